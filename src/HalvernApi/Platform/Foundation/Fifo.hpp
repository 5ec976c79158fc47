// A list of objects that have a member `next` of the pointer type, which owns them: first in, first out. It allocates
// nothing, so queueing works when memory has run out. An object stands in one list at a time. For one thread at a time.
#pragma once

#include <utility>

namespace HalvernApi::Foundation {

template <class Pointer>
class Fifo {
 public:
  Fifo() = default;
  explicit Fifo(Pointer only) { push(std::move(only)); }
  Fifo(Fifo&& other) noexcept : first_(std::move(other.first_)), last_(other.last_) {}
  ~Fifo() {
    while (pop()) {  // one by one: a long list must not end in deep recursion
    }
  }
  Fifo& operator=(Fifo&&) = delete;

  bool empty() const { return !first_; }

  void push(Pointer object) {
    auto* const added = object.get();
    (first_ ? last_->next : first_) = std::move(object);
    last_ = added;
  }

  void append(Fifo other) {
    if (other.empty()) return;
    (first_ ? last_->next : first_) = std::move(other.first_);
    last_ = other.last_;
  }

  // Null when there is none.
  Pointer pop() {
    Pointer object = std::move(first_);
    if (object) first_ = std::move(object->next);
    return object;
  }

 private:
  Pointer first_;
  typename Pointer::element_type* last_ = nullptr;  // meaningful where there is a first
};

}  // namespace HalvernApi::Foundation
