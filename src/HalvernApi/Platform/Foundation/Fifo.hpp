// A first-in, first-out list. Its objects have a member `next` of the type `Pointer`, which owns the following object.
// The list allocates no memory, so `push` works when memory has run out. An object can be in one list at a time. One
// thread at a time may use a list.
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
    while (pop()) {  // one by one, because a long chain of destructors would overflow the stack
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

  Pointer pop() {
    Pointer object = std::move(first_);
    if (object) first_ = std::move(object->next);
    return object;
  }

 private:
  Pointer first_;
  typename Pointer::element_type* last_ = nullptr;  // valid only if first_ is not null
};

}  // namespace HalvernApi::Foundation
