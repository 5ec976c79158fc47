#include "HalvernApi/Platform/Foundation/Fork.hpp"

#include <pthread.h>

#include <atomic>

namespace HalvernApi::Foundation {

int forkCount() {
  static std::atomic<int> count = 0;
  [[maybe_unused]] static const int registered = pthread_atfork(nullptr, nullptr, [] { ++count; });
  return count;
}

}  // namespace HalvernApi::Foundation
