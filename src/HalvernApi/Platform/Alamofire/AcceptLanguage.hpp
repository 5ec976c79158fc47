// The value of the header "Accept-Language". Not installed.
#pragma once

#include <string>

namespace HalvernApi::Alamofire {

// Returns the user's languages from the environment variables LANGUAGE, LC_ALL, LC_MESSAGES and LANG, at most six, best
// first: "de-DE;q=1.0, en;q=0.9". Returns "en" if there are none, for example in the locales "C" and "POSIX". Any
// thread, but no thread may change the environment at the same time.
std::string acceptLanguage();

}  // namespace HalvernApi::Alamofire
