// Everything that the library offers.
#pragma once

#include "HalvernApi/Alamofire+Extensions.hpp"
#include "HalvernApi/ApiService.hpp"
#include "HalvernApi/Environment.hpp"
#include "HalvernApi/ErrorCodeResponse.hpp"
#include "HalvernApi/Extensions/Date+JsonGen.hpp"
#include "HalvernApi/Platform/Alamofire/AFError.hpp"
#include "HalvernApi/Platform/Statham/JsonDecoder.hpp"
#include "HalvernApi/Request.hpp"
