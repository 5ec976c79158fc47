#include "HalvernApi/Platform/Alamofire/Transfer.hpp"

#include <openssl/ssl.h>

#include <climits>

#include "HalvernApi/Platform/Alamofire/URL.hpp"
#include "HalvernApi/Platform/Foundation/Ascii.hpp"

namespace HalvernApi::Alamofire {

using Foundation::Failure;

namespace {

constexpr std::string_view tooManyHeaders = "The headers of the answer are too large.";
constexpr std::string_view connectionLost =
    "The connection was lost before an answer came; the server may have seen the request.";
constexpr std::size_t maxHeaderBytes = std::size_t{256} * 1024;
constexpr curl_off_t maxFirstReserve = curl_off_t{1024} * 1024;
constexpr std::size_t largeBody = std::size_t{64} * 1024;  // libcurl sends larger bodies in several parts

// Before 8.0, a libcurl handle keeps a pointer to the last header that it received, although the header has been freed.
bool remembersFreedHeaders() { return curlVersion() < 0x080000; }

// Before 8.6, libcurl reports a header line of more than 100 KiB as CURLE_OUT_OF_MEMORY.
bool reportsLongHeadersAsNoMemory() { return curlVersion() < 0x080600; }

// libcurl does not send a body with HEAD, where it has no meaning (RFC 9110, 9.3.2).
bool hasBody(const URLRequest& request) { return request.body && request.method != HTTPMethod::head; }

// Keeps session keys out of the file that SSLKEYLOGFILE names.
CURLcode withoutKeyLog(CURL*, void* context, void*) {
  SSL_CTX_set_keylog_callback(static_cast<SSL_CTX*>(context), nullptr);
  return CURLE_OK;
}

CURLcode setPart(CURLU* url, CURLUPart part, const char* value) {
  const CURLUcode result = curl_url_set(url, part, value, 0);
  if (result == CURLUE_OK) return CURLE_OK;
  return result == CURLUE_OUT_OF_MEMORY ? CURLE_OUT_OF_MEMORY : CURLE_URL_MALFORMAT;
}

// Does not use curl_url_get, which reports a control character and a lack of memory with the same result.
std::string percentDecoded(const std::string& text) {
  int size = 0;
  const std::unique_ptr<char, CurlCleanup<curl_free>> decoded(
      curl_easy_unescape(nullptr, text.data(), static_cast<int>(text.size()), &size));
  if (!decoded) throw std::bad_alloc();
  return {decoded.get(), static_cast<std::size_t>(size)};
}

// Sets user and password by separate options, because libcurl's error messages quote the URL of the proxy.
CURLcode setProxy(EasyOptions& options, const std::string& proxyUrl) {
  const CurlUrl url = parseUrl(proxyUrl, CURLU_NON_SUPPORT_SCHEME | CURLU_GUESS_SCHEME);
  if (const std::string user = urlPart(url, CURLUPART_USER); !user.empty())
    options.set(CURLOPT_PROXYUSERNAME, percentDecoded(user).c_str());
  if (const std::string password = urlPart(url, CURLUPART_PASSWORD); !password.empty())
    options.set(CURLOPT_PROXYPASSWORD, percentDecoded(password).c_str());
  for (const CURLUPart secret : {CURLUPART_USER, CURLUPART_PASSWORD})
    if (const CURLcode result = setPart(url.get(), secret, nullptr); result != CURLE_OK) return result;
  options.set(CURLOPT_PROXY, urlPart(url, CURLUPART_URL).c_str());
  // The port is set again, because libcurl uses its default port if memory runs out while it reads the port in the URL.
  if (const std::string port = urlPart(url, CURLUPART_PORT, 0); !port.empty())
    options.set(CURLOPT_PROXYPORT, std::stol(port));
  return options.result();
}

// Sets the TLS options for servers and https proxies. Requires a libcurl with OpenSSL: without it, https calls fail
// before a transfer begins.
void setTlsOptions(EasyOptions& options, const Foundation::URLSessionConfiguration& configuration) {
  options.set(CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
  options.setIfKnown(CURLOPT_PROXY_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
  options.set(CURLOPT_SSL_CTX_FUNCTION, withoutKeyLog);
  if (configuration.certificateAuthorityFile) {
    options.set(CURLOPT_CAINFO, configuration.certificateAuthorityFile->c_str());
    options.set(CURLOPT_CAPATH, static_cast<const char*>(nullptr));
    options.setIfKnown(CURLOPT_PROXY_CAINFO, configuration.certificateAuthorityFile->c_str());
    options.setIfKnown(CURLOPT_PROXY_CAPATH, static_cast<const char*>(nullptr));
  }
  std::string pins;
  for (const std::string& pin : configuration.pinnedPublicKeys) pins += (pins.empty() ? "sha256//" : ";sha256//") + pin;
  if (!pins.empty()) options.set(CURLOPT_PINNEDPUBLICKEY, pins.c_str());
}

int closeSocket(void* sockets, curl_socket_t handle) {
  static_cast<Sockets*>(sockets)->close(handle);
  return 0;
}

}  // namespace

Transfer& Transfer::of(CURL* easy) {
  char* transfer = nullptr;
  curl_easy_getinfo(easy, CURLINFO_PRIVATE, &transfer);
  return *reinterpret_cast<Transfer*>(transfer);
}

// Creates the handle and sets the options that are the same for all exchanges of a session.
CURLcode Transfer::setSharedOptions() {
  const Foundation::URLSessionConfiguration& configuration = context_.configuration;
  easy_.reset(curl_easy_init());
  if (!easy_) return CURLE_OUT_OF_MEMORY;
  EasyOptions options(easy_.get());
  for (const CURLoption data : {CURLOPT_PRIVATE, CURLOPT_HEADERDATA, CURLOPT_WRITEDATA, CURLOPT_XFERINFODATA,
                                CURLOPT_PREREQDATA, CURLOPT_OPENSOCKETDATA})
    options.set(data, static_cast<void*>(this));
  options.set(CURLOPT_CLOSESOCKETDATA, static_cast<void*>(&context_.sockets));
  // With CURLOPT_QUICK_EXIT, libcurl does not wait for the end of a name lookup.
  for (const CURLoption flag :
       {CURLOPT_PATH_AS_IS, CURLOPT_NOSIGNAL, CURLOPT_QUICK_EXIT, CURLOPT_SUPPRESS_CONNECT_HEADERS})
    options.set(flag, 1L);
  options.set(CURLOPT_ERRORBUFFER, errorText_.data());
  if (remembersFreedHeaders()) options.set(CURLOPT_HEADER, 1L);  // onBody then checks headers before libcurl reads them
  options.set(CURLOPT_HEADERFUNCTION, onHeader);
  options.set(CURLOPT_WRITEFUNCTION, onBody);
  options.set(CURLOPT_XFERINFOFUNCTION, onProgress);
  options.set(CURLOPT_PREREQFUNCTION, onRequest);
  options.set(CURLOPT_OPENSOCKETFUNCTION, onConnection);
  options.set(CURLOPT_CLOSESOCKETFUNCTION, closeSocket);
  options.set(CURLOPT_PROTOCOLS_STR, "http,https");
  options.set(CURLOPT_ACCEPT_ENCODING, "");                        // decode all encodings that this libcurl supports
  options.set(CURLOPT_HTTP_VERSION, long{CURL_HTTP_VERSION_1_1});  // see docs/decisions/0003-http-1.1.md
  options.set(CURLOPT_DNS_CACHE_TIMEOUT, 0L);  // the device may be in another network when it connects again
  // If a name has several addresses, libcurl spends a part of this time on each.
  constexpr std::chrono::milliseconds shortest{1}, longest{INT_MAX};
  options.set(CURLOPT_CONNECTTIMEOUT_MS,
              static_cast<long>(std::clamp(configuration.timeoutIntervalForRequest, shortest, longest).count()));
  if (!tlsFault()) setTlsOptions(options, configuration);
  options.setIfKnown(CURLOPT_NOPROXY, "");
  options.setIfKnown(CURLOPT_PROXY, "");  // ignore proxies in environment variables
  return configuration.proxyUrl ? setProxy(options, *configuration.proxyUrl) : options.result();
}

void Transfer::setHeaders(const URLRequest& request) {
  headers_.clear();
  const auto add = [this](const char* line) { headers_.push_back({const_cast<char*>(line), nullptr}); };
  for (auto line = request.headers.begin(); line != request.headers.end(); ++line)
    if (hasBody(request) || !Foundation::equalIgnoringCase((*line).name, "Content-Type")) add(line.at);
  if (!hasBody(request) || !request.headers.find("Content-Type")) add("Content-Type:");  // libcurl adds none
  add("Expect:");
  for (std::size_t index = 1; index < headers_.size(); ++index) headers_[index - 1].next = &headers_[index];
}

CURLcode Transfer::begin(CURLM* multi, const URLRequest& request, std::shared_ptr<const ParsedUrl> url) {
  ++context_.unsent;
  answer_ = {};
  headerBytes_ = 0;
  headerLines_ = 0;
  sentBytes_ = 0;
  sent_ = foundStaleConnection_ = succeeded_ = false;
  lastActivity_ = {};
  errorText_[0] = '\0';
  if (!easy_) {
    const CURLcode result = setSharedOptions();
    if (result != CURLE_OK) return result;
  }
  EasyOptions options(easy_.get());
  setHeaders(request);
  options.set(CURLOPT_HTTPHEADER, headers_.data());
  if (url_ != url) {
    url_ = std::move(url);
    options.set(CURLOPT_CURLU, url_->parts.get());  // newer versions of libcurl then discard CURLOPT_URL
    if (!url_->parts) options.set(CURLOPT_URL, url_->text.c_str());
  }
  const bool isPost = request.method == HTTPMethod::post;
  const bool sendsBody = isPost || hasBody(request);
  if (const std::pair method(request.method, sendsBody); method_ != method) {
    method_ = method;
    if (sendsBody)
      options.set(CURLOPT_POST, 1L);
    else
      options.set(request.method == HTTPMethod::head ? CURLOPT_NOBODY : CURLOPT_HTTPGET, 1L);
    options.set(CURLOPT_CUSTOMREQUEST, isPost ? nullptr : rawValue(request.method).data());
  }
  const std::string_view body = hasBody(request) ? std::string_view(*request.body) : std::string_view("");
  if (sendsBody) {
    options.set(CURLOPT_POSTFIELDS, body.data());
    options.set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body.size()));
  }
  options.set(CURLOPT_NOPROGRESS, body.size() < largeBody ? 1L : 0L);
  if (options.result() != CURLE_OK) return options.result();
  const CURLMcode added = curl_multi_add_handle(multi, easy_.get());
  if (added == CURLM_OK) return CURLE_OK;
  return added == CURLM_OUT_OF_MEMORY ? CURLE_OUT_OF_MEMORY : CURLE_FAILED_INIT;
}

bool Transfer::end(CURLM* multi) {
  if (easy_) curl_multi_remove_handle(multi, easy_.get());
  if (!sent_) --context_.unsent;
  Sockets::release(std::exchange(socket_, nullptr));
  return foundStaleConnection_ || succeeded_;
}

RawResponse Transfer::outcome(CURLcode result) {
  std::optional<Failure>& failure = answer_.failure;
  // The parts are valid, so this result means that libcurl had no memory to copy them.
  if (result == CURLE_URL_MALFORMAT && url_->parts) result = CURLE_OUT_OF_MEMORY;
  if (!failure && result == CURLE_OUT_OF_MEMORY && reportsLongHeadersAsNoMemory() && sent_ && !answer_.response)
    refuse(Foundation::NSURLErrorBadServerResponse, tooManyHeaders);
  else if (!failure && (result == CURLE_COULDNT_RESOLVE_HOST || result == CURLE_COULDNT_RESOLVE_PROXY) && sent_)
    refuse(Foundation::NSURLErrorNetworkConnectionLost, connectionLost);  // libcurl tried to send the request again
  else if (!failure && result == CURLE_OK && !answer_.response)
    refuse(Foundation::NSURLErrorNetworkConnectionLost, "The answer ends inside its headers.");
  // If the request was not sent, these results mean that a proxy has refused to connect. The server has not seen the
  // request.
  if (!sent_ && (result == CURLE_RECV_ERROR || result == CURLE_SEND_ERROR || result == CURLE_GOT_NOTHING))
    result = CURLE_PROXY;
  if (!failure && result != CURLE_OK) {
    failure = failureOf(easy_.get(), result);
    try {
      if (result != CURLE_OUT_OF_MEMORY) answer_.words = errorText_.data();
    } catch (const std::bad_alloc&) {  // the failure keeps libcurl's general text for `result`
    }
  }
  succeeded_ = !failure;
  addContentType();
  return std::move(answer_);
}

RawResponse Transfer::interrupted(const Failure& failure) {
  answer_.failure = failure;
  addContentType();
  return std::move(answer_);
}

void Transfer::addContentType() try {
  char* contentType = nullptr;
  if (answer_.response) curl_easy_getinfo(easy_.get(), CURLINFO_CONTENT_TYPE, &contentType);
  if (contentType != nullptr) answer_.response->contentType = contentType;
} catch (const std::bad_alloc&) {
  if (!answer_.failure) refuseForMemory();
}

void Transfer::refuseForMemory() { answer_.failure = Foundation::outOfMemory; }

std::string Transfer::redirectTarget() const {
  char* target = nullptr;
  curl_easy_getinfo(easy_.get(), CURLINFO_REDIRECT_URL, &target);
  return target != nullptr ? target : "";
}

// libcurl calls this for each connection that it opens. If the request has already been sent, libcurl is about to send
// it again. This is refused.
curl_socket_t Transfer::onConnection(void* transfer, curlsocktype, curl_sockaddr* address) try {
  Transfer& self = *static_cast<Transfer*>(transfer);
  if (!self.sent_) return self.context_.sockets.open(*address);
  self.refuse(Foundation::NSURLErrorNetworkConnectionLost, connectionLost);
  return CURL_SOCKET_BAD;
} catch (const std::bad_alloc&) {
  static_cast<Transfer*>(transfer)->refuseForMemory();
  return CURL_SOCKET_BAD;
}

// libcurl calls this when it is about to send a request over a connection. A second call in one exchange means that
// libcurl is about to send the request again. This is refused.
int Transfer::onRequest(void* transfer, char* peer, char*, int peerPort, int localPort) try {
  Transfer& self = *static_cast<Transfer*>(transfer);
  if (self.sent_) {
    self.refuse(Foundation::NSURLErrorNetworkConnectionLost, connectionLost);
    return CURL_PREREQFUNC_ABORT;
  }
  self.sent_ = true;
  --self.context_.unsent;
  self.socket_ = self.context_.sockets.use(peer, peerPort, localPort);
  self.foundStaleConnection_ = !self.socket_;
  return self.socket_ ? CURL_PREREQFUNC_OK : CURL_PREREQFUNC_ABORT;
} catch (const std::bad_alloc&) {
  static_cast<Transfer*>(transfer)->refuseForMemory();
  return CURL_PREREQFUNC_ABORT;
}

std::size_t Transfer::onHeader(char* data, std::size_t, std::size_t count, void* transfer) {
  Transfer& self = *static_cast<Transfer*>(transfer);
  self.lastActivity_ = self.context_.now;
  if (!self.acceptsHeader(*data)) return 0;
  const std::string_view line(data, count);
  self.headerBytes_ += count;
  self.headerLines_ = line.starts_with("HTTP/") ? 1 : self.headerLines_ + 1;
  if (self.headerBytes_ > maxHeaderBytes) {
    self.refuse(Foundation::NSURLErrorBadServerResponse, tooManyHeaders);
    return 0;
  }
  if (line == "\r\n" || line == "\n") {
    long status = 0;
    curl_easy_getinfo(self.easy_.get(), CURLINFO_RESPONSE_CODE, &status);
    if (status >= 200) self.answer_.response = {static_cast<int>(status)};
  }
  return count;
}

std::size_t Transfer::onBody(char* data, std::size_t, std::size_t count, void* transfer) {
  Transfer& self = *static_cast<Transfer*>(transfer);
  self.lastActivity_ = self.context_.now;
  if (self.answer_.response) return self.append({data, count}) ? count : 0;
  return self.acceptsHeader(*data) ? count : 0;  // a header, because of CURLOPT_HEADER; libcurl reads it later
}

// Refuses a continuation line as the first header, because some versions of libcurl then read freed memory. `first` is
// the first character of the line. `headerLines_` is 1 after the status line.
bool Transfer::acceptsHeader(char first) {
  if (headerLines_ != 1 || (first != ' ' && first != '\t')) return true;
  refuse(Foundation::NSURLErrorBadServerResponse, "The first header of the answer is a continuation line.");
  return false;
}

bool Transfer::append(std::string_view bytes) {
  const std::size_t maxSize = context_.configuration.maximumResponseSize;
  if (!answer_.data) answer_.data.emplace();
  Foundation::Data& body = *answer_.data;
  curl_off_t claimed = 0;  // the body's "Content-Length"; not positive if unknown
  if (body.empty()) curl_easy_getinfo(easy_.get(), CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &claimed);
  if (bytes.size() > maxSize - body.size() || (claimed > 0 && static_cast<std::uintmax_t>(claimed) > maxSize)) {
    refuse(Foundation::NSURLErrorDataLengthExceedsMaximum, "The answer exceeds the maximum size.");
    answer_.data.reset();
    return false;
  }
  try {
    const std::size_t size = body.size() + bytes.size();
    if (body.empty()) {
      body.reserve(std::max(size, static_cast<std::size_t>(std::clamp<curl_off_t>(claimed, 0, maxFirstReserve))));
    } else if (size > body.capacity()) {
      body.reserve(std::min(maxSize, 2 * size));
    }
    const auto* const first = reinterpret_cast<const std::byte*>(bytes.data());
    body.insert(body.end(), first, first + bytes.size());
    return true;
  } catch (const std::bad_alloc&) {
    refuseForMemory();
    return false;
  }
}

int Transfer::onProgress(void* transfer, curl_off_t, curl_off_t, curl_off_t, curl_off_t sent) {
  Transfer& self = *static_cast<Transfer*>(transfer);
  if (sent == self.sentBytes_) return 0;
  self.sentBytes_ = sent;
  // Newer versions of libcurl send a part in every call, also in the call after the time limit on silence has passed.
  // Such a part does not count as activity.
  const auto limit = bounded(self.context_.configuration.timeoutIntervalForRequest);
  const Clock::time_point now = self.context_.now, last = self.lastActivity_;
  if (last == Clock::time_point() || now - last < limit) self.lastActivity_ = now;
  return 0;
}

}  // namespace HalvernApi::Alamofire
