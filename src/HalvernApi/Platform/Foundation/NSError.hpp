#pragma once

#include <iosfwd>
#include <string>
#include <string_view>

#include "HalvernApi/Platform/Foundation/Export.hpp"

namespace HalvernApi::Foundation {

// Transport failures; `code` is one of NSURLError.
inline constexpr std::string_view NSURLErrorDomain = "NSURLErrorDomain";
// Failures of the operating system; `code` is an errno.
inline constexpr std::string_view NSPOSIXErrorDomain = "NSPOSIXErrorDomain";

// The numbers of NSURLErrorDomain that occur.
enum NSURLError : int {
  NSURLErrorUnknown = -1,
  NSURLErrorCancelled = -999,
  NSURLErrorBadURL = -1000,
  NSURLErrorTimedOut = -1001,
  NSURLErrorUnsupportedURL = -1002,
  NSURLErrorCannotFindHost = -1003,
  NSURLErrorCannotConnectToHost = -1004,
  NSURLErrorNetworkConnectionLost = -1005,
  NSURLErrorHTTPTooManyRedirects = -1007,
  NSURLErrorBadServerResponse = -1011,
  NSURLErrorCannotDecodeContentData = -1016,
  NSURLErrorDataLengthExceedsMaximum = -1103,
  NSURLErrorSecureConnectionFailed = -1200,
  NSURLErrorServerCertificateHasBadDate = -1201,
  NSURLErrorServerCertificateUntrusted = -1202,
  NSURLErrorServerCertificateNotYetValid = -1204,
};

// The platform's error value: a domain, a number in it, and words for a developer. A plain value: any thread.
struct HALVERNAPI_EXPORT NSError {
  std::string domain;  // NSURLErrorDomain, NSPOSIXErrorDomain or AFErrorDomain, where the library has made it
  int code = 0;        // what it means depends on the domain
  std::string localizedDescription;  // never holds a token, a key or a password

  // `Error Domain=NSURLErrorDomain Code=-1004 "Could not connect to the server"`
  std::string description() const;

  friend bool operator==(const NSError&, const NSError&) = default;
  // Prints `description()`.
  friend HALVERNAPI_EXPORT std::ostream& operator<<(std::ostream&, const NSError&);
};

}  // namespace HalvernApi::Foundation

namespace HalvernApi {
using Foundation::NSError;
using Foundation::NSPOSIXErrorDomain;
using Foundation::NSURLErrorDomain;
using enum Foundation::NSURLError;
}  // namespace HalvernApi
