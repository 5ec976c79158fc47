// Whether this process is the child of a fork: threads do not live on in a child, and mutexes may be locked there for
// good. Any thread. Not installed.
#pragma once

namespace HalvernApi::Foundation {

// How often this process is the child of a fork since the first call.
int forkCount();

// The process in which this was made.
class OriginalProcess {
 public:
  bool inForkedChild() const { return forkCount() != forkCount_; }

 private:
  int forkCount_ = forkCount();
};

}  // namespace HalvernApi::Foundation
