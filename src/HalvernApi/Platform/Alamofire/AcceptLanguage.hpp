// The languages of the user, as HTTP asks for them. Not installed.
#pragma once

#include <string>

namespace HalvernApi::Alamofire {

// From LANGUAGE, LC_ALL, LC_MESSAGES and LANG, best first: "de-DE;q=1.0, en;q=0.9"; six at most. "en" where there are
// none, as in the locales "C" and "POSIX". Any thread, as long as none changes the environment meanwhile.
std::string acceptLanguage();

}  // namespace HalvernApi::Alamofire
