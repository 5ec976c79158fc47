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
  // Without `handlers` it does only what settles promises, and none of the application's handlers runs. False when
  // handlers are left to be run by a later call.
  virtual bool run(bool handlers) noexcept = 0;
  // Whether it has something to run and does not stand in a queue; it is to be put into one then.
  virtual bool isDue() = 0;

  Pointer next;  // for the list that the task stands in
};

using TaskList = Fifo<Task::Pointer>;

}  // namespace HalvernApi::Foundation
