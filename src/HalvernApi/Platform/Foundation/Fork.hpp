// Detects that this process is a forked child. The threads of the parent do not exist in the child, and mutexes may
// stay locked forever. Any thread. Not installed.
#pragma once

namespace HalvernApi::Foundation {

// The number of forks that led from the process of the first call to this process. May throw std::bad_alloc.
int forkCount();

class OriginalProcess {
 public:
  bool inForkedChild() const { return forkCount() != forkCount_; }

 private:
  int forkCount_ = forkCount();
};

}  // namespace HalvernApi::Foundation
