// A unit of work for a completion queue. Any thread.
#pragma once

#include <boost/smart_ptr/intrusive_ptr.hpp>
#include <boost/smart_ptr/intrusive_ref_counter.hpp>
#include <memory>

#include "HalvernApi/Platform/Foundation/Export.hpp"
#include "HalvernApi/Platform/Foundation/Fifo.hpp"

namespace HalvernApi::Foundation {

class CompletionQueue;

class HALVERNAPI_EXPORT Task : public boost::intrusive_ref_counter<Task, boost::thread_safe_counter> {
 public:
  using Pointer = boost::intrusive_ptr<Task>;

  virtual ~Task();
  // Runs all callbacks. Returns false if handlers remain because the process has begun to exit.
  [[nodiscard]] virtual bool run() noexcept = 0;
  // Runs only the callbacks that settle promises, not the application's handlers. Returns false if handlers remain for
  // a later `run`.
  [[nodiscard]] virtual bool runWithoutHandlers() noexcept = 0;
  // Returns true if there is something to run and the task is in no queue. The caller must then put the task into a
  // queue. Until the task has run, further calls return false.
  [[nodiscard]] virtual bool claimPosting() = 0;
  virtual const std::shared_ptr<CompletionQueue>& queue() const = 0;

  Pointer next;  // used by the list that contains the task
};

using TaskList = Fifo<Task::Pointer>;

}  // namespace HalvernApi::Foundation
