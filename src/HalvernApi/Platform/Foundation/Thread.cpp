#include "HalvernApi/Platform/Foundation/Thread.hpp"

#include <pthread.h>
#include <signal.h>

#include <exception>
#include <utility>

#include "HalvernApi/Platform/Foundation/ProcessExit.hpp"

namespace HalvernApi::Foundation {

namespace {
thread_local const Thread* current = nullptr;
}  // namespace

bool Thread::isOwn() { return current != nullptr; }
bool Thread::isThis() const { return current == this; }

Thread::~Thread() {
  if (!thread_.joinable()) return;
  if (isThis() || origin_.inForkedChild() || ProcessExit::begun())
    thread_.detach();
  else
    thread_.join();
}

// The new thread inherits the signal mask, so asynchronous signals are blocked while it is created.
bool Thread::start(std::function<void()> run) {
#ifndef _WIN32
  sigset_t blocked, before;
  sigfillset(&blocked);
  for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGABRT}) sigdelset(&blocked, fault);
  pthread_sigmask(SIG_SETMASK, &blocked, &before);
#endif
  origin_ = {};
  try {
    thread_ = std::thread([this, run = std::move(run)] {
      current = this;  // only compared: the object may be destroyed before the thread ends
      run();
    });
  } catch (const std::exception&) {  // the system cannot create a thread, or memory has run out
  }
#ifndef _WIN32
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
#endif
  return started();
}

}  // namespace HalvernApi::Foundation
