// What a completion queue runs. Any thread.
#pragma once

#include <boost/smart_ptr/intrusive_ptr.hpp>
#include <boost/smart_ptr/intrusive_ref_counter.hpp>

#include "HalvernApi/Platform/Foundation/Export.hpp"
#include "HalvernApi/Platform/Foundation/Fifo.hpp"

namespace HalvernApi::Foundation {

class HALVERNAPI_EXPORT Task : public boost::intrusive_ref_counter<Task, boost::thread_safe_counter> {
 public:
  using Pointer = boost::intrusive_ptr<Task>;

  virtual ~Task();
  // Runs everything. False if handlers are left because the process began to exit.
  [[nodiscard]] virtual bool run() noexcept = 0;
  // Runs only what settles promises, and none of the application's handlers. False if handlers are left, which a later
  // `run` calls.
  [[nodiscard]] virtual bool runWithoutHandlers() noexcept = 0;
  // True if there is something to run and the task is in no queue. The caller must then put it into one; until it has
  // run, the function returns false.
  [[nodiscard]] virtual bool claimPosting() = 0;

  Pointer next;  // for the list that the task stands in
};

using TaskList = Fifo<Task::Pointer>;

}  // namespace HalvernApi::Foundation
