#pragma once

#include <cerrno>
#include <iosfwd>
#include <string>
#include <string_view>

#include "HalvernApi/Platform/Foundation/Export.hpp"

namespace HalvernApi::Foundation {

// Transport failures; `code` is one of NSURLError.
inline constexpr std::string_view NSURLErrorDomain = "NSURLErrorDomain";
// Failures of the operating system; `code` is an errno.
inline constexpr std::string_view NSPOSIXErrorDomain = "NSPOSIXErrorDomain";

// The codes of NSURLErrorDomain that the library reports.
enum NSURLError : int {
  NSURLErrorUnknown = -1,                          // none of the following
  NSURLErrorCancelled = -999,                      // cancelled, or the session was destroyed
  NSURLErrorBadURL = -1000,                        // the URL or the proxy's URL cannot be used
  NSURLErrorTimedOut = -1001,                      // a time limit of the configuration has run out
  NSURLErrorUnsupportedURL = -1002,                // the URL's scheme is neither http nor https
  NSURLErrorCannotFindHost = -1003,                // the host name cannot be resolved
  NSURLErrorCannotConnectToHost = -1004,           // the host, or a proxy, does not accept a connection
  NSURLErrorNetworkConnectionLost = -1005,         // the connection ended before the answer was complete
  NSURLErrorHTTPTooManyRedirects = -1007,          // redirected too often
  NSURLErrorBadServerResponse = -1011,             // the answer is not HTTP, or its headers are too long
  NSURLErrorCannotDecodeContentData = -1016,       // the body is not compressed as its header says
  NSURLErrorDataLengthExceedsMaximum = -1103,      // the answer exceeds the configuration's maximum
  NSURLErrorSecureConnectionFailed = -1200,        // TLS failed for a reason other than the following
  NSURLErrorServerCertificateHasBadDate = -1201,   // the certificate has expired
  NSURLErrorServerCertificateUntrusted = -1202,    // untrusted certificate, wrong host, or a key that is not pinned
  NSURLErrorServerCertificateNotYetValid = -1204,  // the certificate is not valid yet: the device's clock may be wrong
};

// An error of the platform: a domain, a code of that domain and a description for developers. A plain value: any
// thread.
struct HALVERNAPI_EXPORT NSError {
  std::string domain;                // NSURLErrorDomain, NSPOSIXErrorDomain or AFErrorDomain, if the library made it
  int code = 0;                      // its meaning depends on the domain
  std::string localizedDescription;  // never contains a token, a key or a password

  // `Error Domain=NSURLErrorDomain Code=-1004 "Could not connect to the server"`
  std::string description() const;

  friend bool operator==(const NSError&, const NSError&) = default;
  // Prints `description()`.
  friend HALVERNAPI_EXPORT std::ostream& operator<<(std::ostream&, const NSError&);
};

// \cond
// An error that owns no memory, so that it can be created and passed on when memory has run out. `words` must be a
// string literal.
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
