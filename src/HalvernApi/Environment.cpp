#include "HalvernApi/Environment.hpp"

#include <new>

namespace HalvernApi {
namespace {

using Hook = std::function<void(const std::string&)>;

// Constructed before any object of the application: 101 is the first priority that GCC does not reserve. The hook is
// never destroyed.
struct Storage {
  Storage() noexcept { new (&hook) Hook; }
  ~Storage() {}
  union {
    Hook hook;
  };
};

[[gnu::init_priority(101)]] Storage storage;

}  // namespace

constinit Hook& Environment::log = storage.hook;

}  // namespace HalvernApi
