#include "HalvernApi/Environment.hpp"

namespace HalvernApi {

std::function<void(const std::string&)> Environment::log;

}  // namespace HalvernApi
