// Includes all public headers of the library except RecordCodec.hpp.
#pragma once

#if __cplusplus < 202002L
#error "HalvernApi requires C++20: compile with -std=c++20, or set CMAKE_CXX_STANDARD to 20"
#else

#include "HalvernApi/Alamofire+Extensions.hpp"
#include "HalvernApi/ApiService.hpp"
#include "HalvernApi/Environment.hpp"
#include "HalvernApi/ErrorCodeResponse.hpp"
#include "HalvernApi/Extensions/Date+JsonGen.hpp"
#include "HalvernApi/Platform/Alamofire/AFError.hpp"
#include "HalvernApi/Platform/Statham/JsonDecoder.hpp"
#include "HalvernApi/Request.hpp"

#endif
