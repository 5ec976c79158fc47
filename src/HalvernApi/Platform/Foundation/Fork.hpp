// Detects that this process is the child of a fork: in a child, the threads of the parent do not exist, and mutexes may
// stay locked forever. Any thread. Not installed.
#pragma once

namespace HalvernApi::Foundation {

// How many forks are between the process that made the first call and this process.
int forkCount();

// The process in which the object was created.
class OriginalProcess {
 public:
  bool inForkedChild() const { return forkCount() != forkCount_; }

 private:
  int forkCount_ = forkCount();
};

}  // namespace HalvernApi::Foundation
