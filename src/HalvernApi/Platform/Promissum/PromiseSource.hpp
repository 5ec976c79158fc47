// The end of a promise that settles it: for code that has a result to give, such as a fake of a service. Copies settle
// the same promise; every member may be called from any thread.
#pragma once

#include "HalvernApi/Platform/Promissum/Promise.hpp"

namespace HalvernApi::Promissum {

// Dropping the last copy before it has settled its promise is a programming error, and asserted.
template <class Value, class E>
class PromiseSource {
 public:
  PromiseSource() : state_(new PromiseState<Value, E>(nullptr)) { state_->addSource(); }
  PromiseSource(const PromiseSource& other) : state_(other.state_) { state_->addSource(); }
  PromiseSource& operator=(PromiseSource other) {
    std::swap(state_, other.state_);
    return *this;
  }
  ~PromiseSource() { state_->removeSource(); }

  Promise<Value, E> promise() const { return Promise<Value, E>(state_); }

  // The first call of the two wins; later ones do nothing.
  void resolve(Value value) const { state_->settle(std::move(value)); }
  void reject(E error) const { state_->settle(Unexpected<E>(std::move(error))); }

 private:
  boost::intrusive_ptr<PromiseState<Value, E>> state_;
};

}  // namespace HalvernApi::Promissum

namespace HalvernApi {
using Promissum::PromiseSource;
}  // namespace HalvernApi
