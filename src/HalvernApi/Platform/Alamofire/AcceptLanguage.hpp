// The value of the header "Accept-Language". Not installed.
#pragma once

#include <string>

namespace HalvernApi::Alamofire {

// The user's languages by LANGUAGE, LC_ALL, LC_MESSAGES and LANG, at most six, best first: "de-DE;q=1.0, en;q=0.9".
// "en" if there are none, as in the locales "C" and "POSIX". Any thread, unless another one changes the environment at
// the same time.
std::string acceptLanguage();

}  // namespace HalvernApi::Alamofire
