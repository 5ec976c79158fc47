#include "HalvernApi/Platform/Foundation/Fork.hpp"

#include <pthread.h>

#include <atomic>
#include <new>

namespace HalvernApi::Foundation {

int forkCount() {
  static std::atomic<int> count = 0;
  [[maybe_unused]] static const bool registered = [] {
    if (pthread_atfork(nullptr, nullptr, [] { ++count; }) != 0) throw std::bad_alloc();  // the next call tries again
    return true;
  }();
  return count;
}

}  // namespace HalvernApi::Foundation
