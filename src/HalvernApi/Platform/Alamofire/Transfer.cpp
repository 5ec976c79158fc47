#include "HalvernApi/Platform/Alamofire/Transfer.hpp"

#include <openssl/ssl.h>

#include <cerrno>

#include "HalvernApi/Platform/Alamofire/URL.hpp"

namespace HalvernApi::Alamofire {

namespace {

constexpr std::string_view tooManyHeaders = "The headers of the answer are too large.";
constexpr std::string_view connectionLost =
    "The connection was lost before an answer came; the server may have seen the request.";
constexpr std::size_t maxHeaderBytes = std::size_t{256} * 1024;
constexpr curl_off_t maxFirstGuess = curl_off_t{1024} * 1024;
constexpr std::size_t largeBody = std::size_t{64} * 1024;  // larger ones libcurl sends in several pieces

// Up to 7.88 libcurl remembers the last header that a handle received after it has freed it.
bool remembersFreedHeaders() { return curlVersion() < 0x080000; }

// Never write session keys where SSLKEYLOGFILE says.
CURLcode withoutKeyLog(CURL*, void* context, void*) {
  SSL_CTX_set_keylog_callback(static_cast<SSL_CTX*>(context), nullptr);
  return CURLE_OK;
}

// In parts, so that libcurl's error messages, which quote the proxy, never hold its password.
void setProxy(CURL* handle, const std::string& proxyUrl) {
  const CurlUrl url = parseUrl(proxyUrl, CURLU_NON_SUPPORT_SCHEME | CURLU_GUESS_SCHEME);
  if (const std::string user = urlPart(url, CURLUPART_USER); !user.empty())
    curl_easy_setopt(handle, CURLOPT_PROXYUSERNAME, user.c_str());
  if (const std::string password = urlPart(url, CURLUPART_PASSWORD); !password.empty())
    curl_easy_setopt(handle, CURLOPT_PROXYPASSWORD, password.c_str());
  curl_url_set(url.get(), CURLUPART_USER, nullptr, 0);
  curl_url_set(url.get(), CURLUPART_PASSWORD, nullptr, 0);
  curl_easy_setopt(handle, CURLOPT_PROXY, urlPart(url, CURLUPART_URL).c_str());
}

int closeSocket(void* sockets, curl_socket_t handle) {
  static_cast<Sockets*>(sockets)->close(handle);
  return 0;
}

}  // namespace

ParsedUrl::ParsedUrl(std::string url) : text(std::move(url)), parts(parseUrl(text)) {
  if (!urlPart(parts, CURLUPART_ZONEID).empty()) parts = nullptr;  // some libcurls lose it when they copy the parts
}

std::unique_ptr<Transfer> Transfer::make(TransferContext& context) {
  std::unique_ptr<Transfer> transfer(new Transfer(context));
  return transfer->setSharedOptions() ? std::move(transfer) : nullptr;
}

Transfer& Transfer::of(CURL* easy) {
  char* transfer = nullptr;
  curl_easy_getinfo(easy, CURLINFO_PRIVATE, &transfer);
  return *reinterpret_cast<Transfer*>(transfer);
}

bool Transfer::setSharedOptions() {
  const Foundation::URLSessionConfiguration& configuration = context_.configuration;
  easy_.reset(curl_easy_init());
  CURL* const easy = easy_.get();
  if (easy == nullptr) return false;
  for (const CURLoption data : {CURLOPT_PRIVATE, CURLOPT_HEADERDATA, CURLOPT_WRITEDATA, CURLOPT_XFERINFODATA,
                                CURLOPT_PREREQDATA, CURLOPT_OPENSOCKETDATA})
    curl_easy_setopt(easy, data, static_cast<void*>(this));
  curl_easy_setopt(easy, CURLOPT_CLOSESOCKETDATA, static_cast<void*>(&context_.sockets));
  // The third: do not wait for a name that is being looked up.
  for (const CURLoption flag :
       {CURLOPT_PATH_AS_IS, CURLOPT_NOSIGNAL, CURLOPT_QUICK_EXIT, CURLOPT_SUPPRESS_CONNECT_HEADERS})
    curl_easy_setopt(easy, flag, 1L);
  curl_easy_setopt(easy, CURLOPT_ERRORBUFFER, errorText_.data());
  if (remembersFreedHeaders()) curl_easy_setopt(easy, CURLOPT_HEADER, 1L);  // to see them first, in onBody
  curl_easy_setopt(easy, CURLOPT_HEADERFUNCTION, onHeader);
  curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, onBody);
  curl_easy_setopt(easy, CURLOPT_XFERINFOFUNCTION, onProgress);
  curl_easy_setopt(easy, CURLOPT_PREREQFUNCTION, onRequest);
  curl_easy_setopt(easy, CURLOPT_OPENSOCKETFUNCTION, onConnection);
  curl_easy_setopt(easy, CURLOPT_CLOSESOCKETFUNCTION, closeSocket);
  curl_easy_setopt(easy, CURLOPT_PROTOCOLS_STR, "http,https");
  curl_easy_setopt(easy, CURLOPT_ACCEPT_ENCODING, "");                        // decode all that this libcurl can
  curl_easy_setopt(easy, CURLOPT_HTTP_VERSION, long{CURL_HTTP_VERSION_1_1});  // see docs/decisions/0003-http-1.1.md
  // Names with several addresses: libcurl leaves each a share of this.
  curl_easy_setopt(easy, CURLOPT_CONNECTTIMEOUT_MS,
                   static_cast<long>(std::max(bounded(configuration.timeoutIntervalForRequest).count(),
                                              std::chrono::milliseconds::rep{1})));
  curl_easy_setopt(easy, CURLOPT_MAXFILESIZE_LARGE, static_cast<curl_off_t>(configuration.maximumResponseSize));
  curl_easy_setopt(easy, CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
  curl_easy_setopt(easy, CURLOPT_SSL_CTX_FUNCTION, withoutKeyLog);
  if (configuration.certificateAuthorityFile) {
    curl_easy_setopt(easy, CURLOPT_CAINFO, configuration.certificateAuthorityFile->c_str());
    curl_easy_setopt(easy, CURLOPT_CAPATH, nullptr);
  }
  curl_easy_setopt(easy, CURLOPT_NOPROXY, "");
  curl_easy_setopt(easy, CURLOPT_PROXY, "");  // none, rather than the environment's
  if (configuration.proxyUrl) setProxy(easy, *configuration.proxyUrl);
  return true;
}

void Transfer::setHeaders(const URLRequest& request) {
  headers_.clear();
  const auto add = [this](const char* line) { headers_.push_back({const_cast<char*>(line), nullptr}); };
  for (const auto& [name, value] : request.headers)
    if (request.body || !equalIgnoringCase(name, "Content-Type")) add(name.data());
  if (!request.body || !request.headers.find("Content-Type")) add("Content-Type:");  // suppresses libcurl's own
  add("Expect:");
  for (std::size_t index = 1; index < headers_.size(); ++index) headers_[index - 1].next = &headers_[index];
  curl_easy_setopt(easy_.get(), CURLOPT_HTTPHEADER, headers_.data());
}

bool Transfer::begin(CURLM* multi, const URLRequest& request, std::shared_ptr<const ParsedUrl> url) {
  CURL* const easy = easy_.get();
  answer_ = {};
  refusal_.reset();
  ++context_.unsent;
  headerBytes_ = 0;
  headerLines_ = 0;
  sentBytes_ = 0;
  sent_ = foundStaleConnection_ = succeeded_ = false;
  lastActivity_ = {};
  errorText_[0] = '\0';
  setHeaders(request);
  if (url_ != url) {
    url_ = std::move(url);
    curl_easy_setopt(easy, CURLOPT_CURLU, url_->parts.get());  // newer libcurls then forget the text
    if (!url_->parts) curl_easy_setopt(easy, CURLOPT_URL, url_->text.c_str());
  }
  const bool isPost = request.method == HTTPMethod::post;
  const bool sendsBody = isPost || request.body;
  if (const std::pair method(request.method, sendsBody); method_ != method) {
    method_ = method;
    const bool isHead = request.method == HTTPMethod::head;
    curl_easy_setopt(easy, sendsBody ? CURLOPT_POST : isHead ? CURLOPT_NOBODY : CURLOPT_HTTPGET, 1L);
    curl_easy_setopt(easy, CURLOPT_CUSTOMREQUEST, isPost ? nullptr : rawValue(request.method).data());
  }
  const std::string_view body = request.body ? std::string_view(*request.body) : std::string_view("");
  if (sendsBody) {
    curl_easy_setopt(easy, CURLOPT_POSTFIELDS, body.data());
    curl_easy_setopt(easy, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body.size()));
  }
  curl_easy_setopt(easy, CURLOPT_NOPROGRESS, body.size() < largeBody ? 1L : 0L);
  return curl_multi_add_handle(multi, easy) == CURLM_OK;
}

bool Transfer::end(CURLM* multi) {
  curl_multi_remove_handle(multi, easy_.get());
  if (!sent_) --context_.unsent;
  if (const auto socket = std::move(socket_)) socket->inUse = false;
  return foundStaleConnection_ || succeeded_;
}

DefaultDataResponse Transfer::outcome(CURLcode result) try {
  CURL* const easy = easy_.get();
  if (answer_.response) {
    char* contentType = nullptr;
    curl_easy_getinfo(easy, CURLINFO_CONTENT_TYPE, &contentType);
    if (contentType != nullptr) answer_.response->contentType = contentType;
  }
  if (!refusal_ && result == CURLE_OUT_OF_MEMORY && sent_ && !answer_.response)
    refuse(Foundation::NSURLErrorBadServerResponse, tooManyHeaders);  // libcurl's word for too long a header line
  else if (!refusal_ && result == CURLE_COULDNT_RESOLVE_HOST && sent_)
    refuse(Foundation::NSURLErrorNetworkConnectionLost, connectionLost);  // libcurl wanted to send the request again
  else if (!refusal_ && result == CURLE_OK && !answer_.response)
    refuse(Foundation::NSURLErrorNetworkConnectionLost, "The answer ends inside its headers.");
  if (refusal_)
    answer_.error = refusal_->words.empty() ? posixError(ENOMEM) : urlError(refusal_->code, refusal_->words);
  else if (result != CURLE_OK)
    answer_.error = errorOf(easy, result, errorText_.data());
  succeeded_ = !answer_.error;
  return std::move(answer_);
} catch (const std::bad_alloc&) {
  return {{}, {}, posixError(ENOMEM)};
}

std::string Transfer::redirectTarget() const {
  char* target = nullptr;
  curl_easy_getinfo(easy_.get(), CURLINFO_REDIRECT_URL, &target);
  return target != nullptr ? target : "";
}

// Called for each connection that libcurl opens. It opens another one for a request that it wants to send again.
curl_socket_t Transfer::onConnection(void* transfer, curlsocktype, curl_sockaddr* address) {
  Transfer& self = *static_cast<Transfer*>(transfer);
  if (!self.sent_) return self.context_.sockets.open(*address);
  self.refuse(Foundation::NSURLErrorNetworkConnectionLost, connectionLost);
  return CURL_SOCKET_BAD;
}

// Called when a request is about to be sent over a connection, again for each one that libcurl tries.
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
  static_cast<Transfer*>(transfer)->refuse(Foundation::NSURLErrorUnknown, {});
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
  return self.acceptsHeader(*data) ? count : 0;  // before libcurl looks at it
}

// Refuses a first header that continues another: some libcurls would look at freed memory.
bool Transfer::acceptsHeader(char first) {
  if (headerLines_ != 1 || (first != ' ' && first != '\t')) return true;
  refuse(Foundation::NSURLErrorBadServerResponse, "The first header continues none.");
  return false;
}

bool Transfer::append(std::string_view bytes) {
  const std::size_t maxSize = context_.configuration.maximumResponseSize;
  if (!answer_.data) answer_.data.emplace();
  Foundation::Data& body = *answer_.data;
  if (bytes.size() > maxSize - body.size()) {
    refuse(Foundation::NSURLErrorDataLengthExceedsMaximum, "The answer is larger than it may be.");
    answer_.data.reset();
    return false;
  }
  try {
    const std::size_t size = body.size() + bytes.size();
    if (body.empty()) {
      curl_off_t length = 0;  // as announced, so perhaps a lie: worth a first guess, not more
      curl_easy_getinfo(easy_.get(), CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &length);
      body.reserve(std::max(size, static_cast<std::size_t>(std::clamp<curl_off_t>(length, 0, maxFirstGuess))));
    } else if (size > body.capacity()) {
      body.reserve(std::min(maxSize, 2 * size));
    }
    const auto* const first = reinterpret_cast<const std::byte*>(bytes.data());
    body.insert(body.end(), first, first + bytes.size());
    return true;
  } catch (const std::bad_alloc&) {
    refuse(Foundation::NSURLErrorUnknown, {});
    return false;
  }
}

int Transfer::onProgress(void* transfer, curl_off_t, curl_off_t, curl_off_t, curl_off_t sent) {
  Transfer& self = *static_cast<Transfer*>(transfer);
  if (std::exchange(self.sentBytes_, sent) == sent) return 0;
  // Newer libcurls send a piece whenever they are called, so also when the limit of a silence has just run out.
  const auto limit = bounded(self.context_.configuration.timeoutIntervalForRequest);
  const Clock::time_point now = self.context_.now, last = self.lastActivity_;
  if (last == Clock::time_point() || now - last < limit) self.lastActivity_ = now;
  return 0;
}

}  // namespace HalvernApi::Alamofire
