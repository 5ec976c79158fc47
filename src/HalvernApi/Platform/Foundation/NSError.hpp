#pragma once

#include <cerrno>
#include <iosfwd>
#include <string>
#include <string_view>

#include "HalvernApi/Platform/Foundation/Export.hpp"

namespace HalvernApi::Foundation {

// The domain of transport failures. The code is an NSURLError.
inline constexpr std::string_view NSURLErrorDomain = "NSURLErrorDomain";
// The domain of failures of the operating system. The code is an errno value.
inline constexpr std::string_view NSPOSIXErrorDomain = "NSPOSIXErrorDomain";

// The codes of NSURLErrorDomain that the library reports.
enum NSURLError : int {
  NSURLErrorUnknown = -1,                          // any other transport failure
  NSURLErrorCancelled = -999,                      // by `cancel`, the session's destructor, process exit or fork()
  NSURLErrorBadURL = -1000,                        // the URL of the request or of the proxy is invalid
  NSURLErrorTimedOut = -1001,                      // a time limit of the configuration was exceeded
  NSURLErrorUnsupportedURL = -1002,                // the URL's scheme is neither http nor https
  NSURLErrorCannotFindHost = -1003,                // the host name cannot be resolved
  NSURLErrorCannotConnectToHost = -1004,           // the host, or a proxy, does not accept a connection
  NSURLErrorNetworkConnectionLost = -1005,         // the connection ended before the answer was complete
  NSURLErrorHTTPTooManyRedirects = -1007,          // more than 16 redirects
  NSURLErrorBadServerResponse = -1011,             // the answer is not valid HTTP, or its headers are too long
  NSURLErrorCannotDecodeContentData = -1016,       // the body is not compressed as "Content-Encoding" says
  NSURLErrorDataLengthExceedsMaximum = -1103,      // the answer or its JSON is too large, or parsing is too slow
  NSURLErrorSecureConnectionFailed = -1200,        // any other failure of TLS, or libcurl does not use OpenSSL
  NSURLErrorServerCertificateHasBadDate = -1201,   // the certificate has expired
  NSURLErrorServerCertificateUntrusted = -1202,    // untrusted certificate, wrong host, or a key that is not pinned
  NSURLErrorServerCertificateNotYetValid = -1204,  // the certificate is not valid yet: the device's clock may be wrong
};

// An error of the platform: a domain, a code of that domain and a description for developers. A plain value: any
// thread.
struct HALVERNAPI_EXPORT NSError {
  std::string domain;                // in errors of the library: NSURLErrorDomain, NSPOSIXErrorDomain or AFErrorDomain
  int code = 0;                      // depends on the domain: an NSURLError, an errno value or an AFError
  std::string localizedDescription;  // English text for developers, without tokens, keys and passwords

  // For example `Error Domain=NSURLErrorDomain Code=-1004 "Could not connect to the server"`.
  std::string description() const;

  friend bool operator==(const NSError&, const NSError&) = default;
  // Prints `description()`.
  friend HALVERNAPI_EXPORT std::ostream& operator<<(std::ostream&, const NSError&);
};

// \cond
// An error that owns no memory. It can be created and copied when memory has run out. `words` must be a string literal.
struct Failure {
  std::string_view domain;
  int code;
  std::string_view words;
};

constexpr Failure urlFailure(NSURLError code, std::string_view words) { return {NSURLErrorDomain, code, words}; }
inline constexpr Failure outOfMemory{NSPOSIXErrorDomain, ENOMEM, "Cannot allocate memory"};
inline constexpr Failure outOfThreads{NSPOSIXErrorDomain, EAGAIN, "Cannot create a thread"};
inline constexpr Failure outOfDescriptors{NSPOSIXErrorDomain, EMFILE, "Too many open files"};
// \endcond

}  // namespace HalvernApi::Foundation

namespace HalvernApi {
using Foundation::NSError;
using Foundation::NSPOSIXErrorDomain;
using Foundation::NSURLErrorDomain;
using enum Foundation::NSURLError;
}  // namespace HalvernApi
