// What is wrong with the headers of a request. Any thread. Not installed.
#pragma once

#include "HalvernApi/Platform/Alamofire/HTTPHeaders.hpp"

namespace HalvernApi::Alamofire {

// What would break the header block or the framing of the message, in words; empty when nothing does.
std::string_view headerFault(const HTTPHeaders& headers);

}  // namespace HalvernApi::Alamofire
