#include "HalvernApi/Platform/Alamofire/Transport.hpp"

#include <poll.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <list>
#include <mutex>

#include "HalvernApi/Platform/Alamofire/AFError.hpp"
#include "HalvernApi/Platform/Alamofire/Curl.hpp"
#include "HalvernApi/Platform/Alamofire/Timing.hpp"
#include "HalvernApi/Platform/Alamofire/URL.hpp"
#include "HalvernApi/Platform/Alamofire/WakePipe.hpp"
#include "HalvernApi/Platform/Foundation/CompletionQueue.hpp"
#include "HalvernApi/Platform/Foundation/Thread.hpp"

namespace HalvernApi::Alamofire {

using Foundation::CompletionQueue;
using Foundation::NSError;

namespace {

constexpr int mostRedirects = 16;
constexpr std::string_view tooManyHeaders = "The headers of the answer are too large.";
constexpr std::size_t mostHeaderBytes = std::size_t{256} * 1024;
constexpr int leastPoolSize = 64;
constexpr std::size_t mostParsedUrls = 16;
constexpr curl_off_t largestFirstGuess = curl_off_t{1024} * 1024;
constexpr std::size_t largeBody = std::size_t{64} * 1024;  // larger ones libcurl sends in several pieces

NSError urlError(Foundation::NSURLError code, std::string_view words) {
  return {std::string(Foundation::NSURLErrorDomain), code, std::string(words)};
}

NSError posixError(int code) { return {std::string(Foundation::NSPOSIXErrorDomain), code, std::strerror(code)}; }

NSError cancelled() { return urlError(Foundation::NSURLErrorCancelled, "The request was cancelled."); }

bool isHttps(std::string_view url) { return equalIgnoringCase(schemeOf(url), "https"); }
bool isHttp(std::string_view url) { return equalIgnoringCase(schemeOf(url), "http"); }

// Why a URL cannot be loaded, as far as that shows without taking it apart, which is libcurl's to do.
std::optional<NSError> loadingFault(std::string_view url) {
  if (!isHttp(url) && !isHttps(url))
    return urlError(Foundation::NSURLErrorUnsupportedURL, "The URL's scheme is neither http nor https.");
  url.remove_prefix(schemeOf(url).size() + 1);
  if (!url.starts_with("//") || url.find_first_of("/?#", 2) == 2 || url.size() == 2)
    return urlError(Foundation::NSURLErrorBadURL, "The URL names no host.");
  return std::nullopt;
}

}  // namespace

// A URL that libcurl has taken apart, for all transfers that go there.
struct Transport::ParsedUrl {
  explicit ParsedUrl(std::string url) : text(std::move(url)), parts(parseUrl(text)) {
    if (!urlPart(parts, CURLUPART_ZONEID).empty()) parts = nullptr;  // some libcurls lose it when they copy the parts
  }

  const std::string text;
  const bool secure = isHttps(text);
  CurlUrl parts;  // null where libcurl is left with the text, as where it cannot make sense of it
};

// What serves one request after the other. Settings that they share stay set.
struct Transport::Handle {
  Exchange* exchange = nullptr;  // whose turn it is
  CurlHeaders headers;
  std::array<char, CURL_ERROR_SIZE> words{};
  std::size_t slot = 0;  // where its socket is, or was
  std::shared_ptr<const ParsedUrl> url;
  std::optional<std::pair<HTTPMethod, bool>> method;  // and whether it sends a body
  CurlEasy easy;                                      // last, so that it goes first: it refers to the others
};

// One request on its way to an answer. Made on the caller's thread, then touched by the I/O thread alone.
struct Transport::Exchange final : public Promissum::Cancellable, public std::enable_shared_from_this<Exchange> {
  explicit Exchange(std::weak_ptr<Loop> itsLoop) : loop(std::move(itsLoop)) {}
  void cancel() override;

  const URLRequest& request() const { return redirected ? *redirected : **original; }

  const std::weak_ptr<Loop> loop;
  std::shared_ptr<const std::optional<URLRequest>> original;
  std::optional<URLRequest> redirected;
  boost::intrusive_ptr<DataRequest::Answer> answer;

  std::unique_ptr<Handle> handle;
  int redirects = 0;
  bool sentAgain = false;
  curl_off_t sent = 0;

  // The answer so far: the response from its last header on, an error when a callback has refused to go on.
  DefaultDataResponse outcome;
  std::size_t headerBytes = 0;
  int lines = 0;  // of the header block so far

  // In the lists of the I/O thread.
  Loop* driver = nullptr;  // null when not in flight
  Clock::time_point started;
  Clock::time_point lastByte;
  std::list<std::shared_ptr<Exchange>>::iterator byStartEntry;
  std::list<Exchange*>::iterator byLastByteEntry;
};

namespace {

// Up to 7.88 libcurl remembers the last header that a handle received after it has freed it.
bool remembersFreedHeaders() {
  static const bool remembers = curl_version_info(CURLVERSION_NOW)->version_num < 0x080000;
  return remembers;
}

bool hasFirstByte(CURL* easy) {
  curl_off_t microseconds = 0;
  return curl_easy_getinfo(easy, CURLINFO_STARTTRANSFER_TIME_T, &microseconds) == CURLE_OK && microseconds > 0;
}

}  // namespace

// What the I/O thread works on. The thread shares it with the transport, and may outlive that by a moment.
class Transport::Loop : public Foundation::ProcessExit::Stoppable, public std::enable_shared_from_this<Loop> {
 public:
  Loop(const Foundation::URLSessionConfiguration& configuration, std::shared_ptr<CompletionQueue> queue)
      : configuration_(configuration),
        requestLimit_(bounded(configuration.timeoutIntervalForRequest)),
        resourceLimit_(bounded(configuration.timeoutIntervalForResource)),
        connections_(std::max(configuration.httpMaximumConnectionsPerHost, 1)),
        poolSize_(static_cast<std::size_t>(std::max(connections_, leastPoolSize))),
        queue_(std::move(queue)) {
    configuration_.completionQueue = nullptr;  // the queue has it, and decides when it goes
  }

  const std::shared_ptr<CompletionQueue>& queue() const { return queue_; }
  bool leftBehind() const { return Foundation::forkCount() != forkCount_; }

  // Any thread. The error says why it cannot be done; then nothing happens.
  std::optional<NSError> start(const std::shared_ptr<Exchange>& exchange);
  void cancel(const std::shared_ptr<Exchange>& exchange);
  // Ends everything, and returns when that is done unless it is the I/O thread that calls.
  void stop() override;

 private:
  struct Command {
    enum class Kind { start, cancel } kind;
    std::shared_ptr<Exchange> exchange;
  };

  std::optional<NSError> ensureThread();
  void wakeIfAsleep(std::unique_lock<std::mutex> lock);

  // All below: the I/O thread alone.
  void run();
  bool takeInbox();
  void begin(std::shared_ptr<Exchange> exchange);
  std::unique_ptr<Handle> takeHandle();
  void giveBack(std::unique_ptr<Handle> handle);
  std::shared_ptr<const ParsedUrl> parsed(const std::string& url);
  bool prepare(Exchange& exchange);
  void reap();
  void complete(Exchange& exchange, CURLcode result);
  bool sendAgain(Exchange& exchange);
  bool follow(Exchange& exchange);
  void finish(Exchange& exchange, std::optional<NSError> error);
  void expire();
  void handOver();
  void drive();
  void wait();
  void touch(Exchange& exchange);

  static std::size_t onHeader(char* data, std::size_t size, std::size_t count, void* context);
  static std::size_t onBody(char* data, std::size_t size, std::size_t count, void* context);
  static int onProgress(void* context, curl_off_t, curl_off_t, curl_off_t, curl_off_t);
  static int onSocket(CURL* easy, curl_socket_t socket, int what, void* context, void* slot);
  static int onTimer(CURLM*, long milliseconds, void* context);

  Foundation::URLSessionConfiguration configuration_;
  const std::chrono::milliseconds requestLimit_;
  const std::chrono::milliseconds resourceLimit_;
  const int connections_;  // to one host
  const std::size_t poolSize_;
  const std::shared_ptr<CompletionQueue> queue_;
  const int forkCount_ = Foundation::forkCount();

  std::mutex mutex_;
  std::condition_variable stopped_;
  std::vector<Command> inbox_;
  bool stopping_ = false;
  bool running_ = false;
  bool asleep_ = false;
  WakePipe wakePipe_;

  // All below: the I/O thread alone, once it runs.
  CurlMulti multi_;
  std::vector<std::unique_ptr<Handle>> pool_;
  std::vector<std::shared_ptr<const ParsedUrl>> urls_;  // the last ones, newest last
  std::list<std::shared_ptr<Exchange>> byStart_;        // oldest first
  std::list<Exchange*> byLastByte_;                     // longest silence first
  std::vector<pollfd> sockets_;     // the first one is the pipe's; a free slot has the descriptor -1
  std::vector<Handle*> receivers_;  // whose bytes each socket brings; null where it may be several
  std::optional<Clock::time_point> timer_;
  Clock::time_point now_;
  std::vector<CompletionQueue::Task> finished_;
  std::thread::id ioThread_;
  Foundation::Thread thread_;
};

// Under the mutex. The error says why there is none; the next request tries again.
std::optional<NSError> Transport::Loop::ensureThread() {
  if (running_) return std::nullopt;
  if (!multi_) {
    initialiseCurl();
    CurlMulti multi(curl_multi_init());
    if (!multi) return posixError(ENOMEM);
    if (!wakePipe_.open()) return posixError(errno);
    curl_multi_setopt(multi.get(), CURLMOPT_MAX_HOST_CONNECTIONS, long{connections_});
    curl_multi_setopt(multi.get(), CURLMOPT_MAXCONNECTS, connections_ + 4L);  // idle ones, some to other hosts
    curl_multi_setopt(multi.get(), CURLMOPT_SOCKETFUNCTION, onSocket);
    curl_multi_setopt(multi.get(), CURLMOPT_SOCKETDATA, this);
    curl_multi_setopt(multi.get(), CURLMOPT_TIMERFUNCTION, onTimer);
    curl_multi_setopt(multi.get(), CURLMOPT_TIMERDATA, this);
    multi_ = std::move(multi);
    sockets_.push_back({wakePipe_.readEnd(), POLLIN, 0});
    receivers_.push_back(nullptr);
  }
  running_ = thread_.start([self = shared_from_this()] { self->run(); });
  if (!running_) return posixError(EAGAIN);
  Foundation::ProcessExit::stopAtExit(weak_from_this());
  return std::nullopt;
}

std::optional<NSError> Transport::Loop::start(const std::shared_ptr<Exchange>& exchange) {
  std::unique_lock lock(mutex_);
  if (stopping_) return cancelled();
  if (auto error = ensureThread()) return error;
  inbox_.push_back({Command::Kind::start, exchange});
  wakeIfAsleep(std::move(lock));
  return std::nullopt;
}

void Transport::Loop::cancel(const std::shared_ptr<Exchange>& exchange) {
  if (leftBehind()) return;
  std::unique_lock lock(mutex_);
  inbox_.push_back({Command::Kind::cancel, exchange});
  wakeIfAsleep(std::move(lock));
}

void Transport::Loop::stop() {
  if (leftBehind()) return;
  std::unique_lock lock(mutex_);
  stopping_ = true;
  if (!running_) return;
  wakePipe_.wake();
  if (ioThread_ != std::this_thread::get_id()) stopped_.wait(lock, [this] { return !running_; });
}

void Transport::Loop::wakeIfAsleep(std::unique_lock<std::mutex> lock) {
  const bool asleep = std::exchange(asleep_, false);
  lock.unlock();
  if (asleep) wakePipe_.wake();
}

void Transport::Loop::run() {
  {
    const std::lock_guard lock(mutex_);
    ioThread_ = std::this_thread::get_id();
  }
  while (takeInbox()) {
    drive();
    reap();
    expire();
    handOver();
    wait();
  }
  while (!byStart_.empty()) finish(*byStart_.front(), cancelled());
  handOver();
  pool_.clear();
  multi_.reset();
  const std::lock_guard lock(mutex_);
  running_ = false;
  stopped_.notify_all();
}

// False when the loop is to end. Whatever is in the inbox then has been begun, and ends with the rest.
bool Transport::Loop::takeInbox() {
  std::vector<Command> commands;
  bool stopping = false;
  {
    const std::lock_guard lock(mutex_);
    commands.swap(inbox_);
    stopping = stopping_;
  }
  now_ = Clock::now();
  for (Command& command : commands) {
    if (command.kind == Command::Kind::start)
      begin(std::move(command.exchange));
    else if (command.exchange->driver != nullptr)
      finish(*command.exchange, cancelled());
  }
  return !stopping;
}

void Transport::Loop::begin(std::shared_ptr<Exchange> shared) {
  Exchange& exchange = *shared;
  exchange.driver = this;
  exchange.started = exchange.lastByte = now_;
  exchange.byStartEntry = byStart_.insert(byStart_.end(), std::move(shared));
  exchange.byLastByteEntry = byLastByte_.insert(byLastByte_.end(), &exchange);
  if (!prepare(exchange)) finish(exchange, posixError(ENOMEM));
}

std::unique_ptr<Transport::Handle> Transport::Loop::takeHandle() {
  if (!pool_.empty()) {
    auto pooled = std::move(pool_.back());
    pool_.pop_back();
    return pooled;
  }
  auto handle = std::make_unique<Handle>();
  handle->easy = makeEasy(configuration_);
  CURL* const easy = handle->easy.get();
  if (easy == nullptr) return nullptr;
  curl_easy_setopt(easy, CURLOPT_PRIVATE, handle.get());
  curl_easy_setopt(easy, CURLOPT_ERRORBUFFER, handle->words.data());
  if (remembersFreedHeaders()) curl_easy_setopt(easy, CURLOPT_HEADER, 1L);  // to see them first, in onBody
  curl_easy_setopt(easy, CURLOPT_HEADERFUNCTION, onHeader);
  curl_easy_setopt(easy, CURLOPT_HEADERDATA, handle.get());
  curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, onBody);
  curl_easy_setopt(easy, CURLOPT_WRITEDATA, handle.get());
  curl_easy_setopt(easy, CURLOPT_XFERINFOFUNCTION, onProgress);
  curl_easy_setopt(easy, CURLOPT_XFERINFODATA, handle.get());
  return handle;
}

void Transport::Loop::giveBack(std::unique_ptr<Handle> handle) {
  if (!handle) return;
  handle->exchange = nullptr;
  if (Handle*& receiver = receivers_[handle->slot]; receiver == handle.get()) receiver = nullptr;
  curl_multi_remove_handle(multi_.get(), handle->easy.get());
  if (pool_.size() < poolSize_) pool_.push_back(std::move(handle));
}

// A service has few URLs, and libcurl takes one apart for every transfer unless it is told the parts.
std::shared_ptr<const Transport::ParsedUrl> Transport::Loop::parsed(const std::string& url) {
  const auto known = std::find_if(urls_.begin(), urls_.end(), [&](const auto& one) { return one->text == url; });
  if (known != urls_.end()) return *known;
  if (urls_.size() == mostParsedUrls) urls_.erase(urls_.begin());
  return urls_.emplace_back(std::make_shared<ParsedUrl>(url));
}

// Sets what depends on the request, and hands the transfer to libcurl.
bool Transport::Loop::prepare(Exchange& exchange) {
  giveBack(std::move(exchange.handle));
  exchange.handle = takeHandle();
  if (!exchange.handle) return false;
  Handle& handle = *exchange.handle;
  CURL* const easy = handle.easy.get();
  const URLRequest& request = exchange.request();
  const std::string_view body = request.body ? std::string_view(*request.body) : std::string_view("");
  handle.exchange = &exchange;
  handle.words[0] = '\0';
  handle.headers.assign(request.headers, request.body.has_value());
  curl_easy_setopt(easy, CURLOPT_HTTPHEADER, handle.headers.list());
  if (!handle.url || handle.url->text != request.url) {
    handle.url = parsed(request.url);
    curl_easy_setopt(easy, CURLOPT_URL, handle.url->text.c_str());
    curl_easy_setopt(easy, CURLOPT_CURLU, handle.url->parts.get());
    // Waiting for a connection to show whether it takes several requests pays only where it may: over TLS.
    curl_easy_setopt(easy, CURLOPT_PIPEWAIT, handle.url->secure ? 1L : 0L);
  }
  const bool isPost = request.method == HTTPMethod::post;
  const bool sendsBody = isPost || request.body;
  if (const std::pair method(request.method, sendsBody); handle.method != method) {
    handle.method = method;
    const bool isHead = request.method == HTTPMethod::head;
    curl_easy_setopt(easy, sendsBody ? CURLOPT_POST : isHead ? CURLOPT_NOBODY : CURLOPT_HTTPGET, 1L);
    curl_easy_setopt(easy, CURLOPT_CUSTOMREQUEST, isPost ? nullptr : rawValue(request.method).data());
  }
  if (sendsBody) {
    curl_easy_setopt(easy, CURLOPT_POSTFIELDS, body.data());
    curl_easy_setopt(easy, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body.size()));
    curl_easy_setopt(easy, CURLOPT_NOPROGRESS, body.size() < largeBody ? 1L : 0L);
  }
  curl_easy_setopt(easy, CURLOPT_FRESH_CONNECT, exchange.sentAgain ? 1L : 0L);
  exchange.outcome = {};
  exchange.lines = 0;
  exchange.sent = 0;
  return curl_multi_add_handle(multi_.get(), easy) == CURLM_OK;
}

void Transport::Loop::drive() {
  // A timer that is due at once is due again and again while libcurl has work that needs no waiting.
  for (int running = 0; timer_ && *timer_ <= now_;) {
    timer_.reset();
    curl_multi_socket_action(multi_.get(), CURL_SOCKET_TIMEOUT, 0, &running);
  }
}

void Transport::Loop::reap() {
  int left = 0;
  while (const CURLMsg* const message = curl_multi_info_read(multi_.get(), &left)) {
    if (message->msg != CURLMSG_DONE) continue;
    char* handle = nullptr;
    curl_easy_getinfo(message->easy_handle, CURLINFO_PRIVATE, &handle);
    complete(*reinterpret_cast<Handle*>(handle)->exchange, message->data.result);
  }
}

void Transport::Loop::complete(Exchange& exchange, CURLcode result) {
  if (exchange.outcome.error) return finish(exchange, std::move(exchange.outcome.error));
  if (result == CURLE_OUT_OF_MEMORY && !exchange.outcome.response && hasFirstByte(exchange.handle->easy.get()))
    // libcurl's word for a header line that is longer than it takes.
    return finish(exchange, urlError(Foundation::NSURLErrorBadServerResponse, tooManyHeaders));
  if ((result == CURLE_SEND_ERROR || result == CURLE_RECV_ERROR || result == CURLE_GOT_NOTHING) && sendAgain(exchange))
    return;
  if (result != CURLE_OK)
    return finish(exchange, errorOf(exchange.handle->easy.get(), result, exchange.handle->words.data()));
  if (!exchange.outcome.response)
    return finish(exchange,
                  urlError(Foundation::NSURLErrorNetworkConnectionLost, "The answer ends inside its headers."));
  if (follow(exchange)) return;
  finish(exchange, std::nullopt);
}

// A connection that was kept may turn out to be dead only when it is used. libcurl then sends the request once more
// over another one, but counts how often it does so for all requests that a handle ever serves, and gives up at the
// fifth. True when the request goes out again.
bool Transport::Loop::sendAgain(Exchange& exchange) {
  long newConnections = 1;
  curl_easy_getinfo(exchange.handle->easy.get(), CURLINFO_NUM_CONNECTS, &newConnections);
  if (newConnections != 0 || exchange.headerBytes != 0 || exchange.sentAgain) return false;
  exchange.sentAgain = true;
  if (!prepare(exchange)) finish(exchange, posixError(ENOMEM));
  return true;
}

// A redirect to the same origin is followed as browsers do: 301 and 302 turn a POST into a GET, 303 all but a HEAD, 307
// and 308 repeat the request. Any other is the answer. True when the exchange goes on, or has ended here.
bool Transport::Loop::follow(Exchange& exchange) {
  const int status = exchange.outcome.response->statusCode;
  if (status < 300 || status > 399) return false;
  char* target = nullptr;
  curl_easy_getinfo(exchange.handle->easy.get(), CURLINFO_REDIRECT_URL, &target);
  if (target == nullptr || !sameOrigin(target, exchange.request().url)) return false;
  URLRequest request = exchange.request();
  const auto becomeGet = [&request] {
    request.method = HTTPMethod::get;
    request.body.reset();
  };
  switch (status) {
    case 301:
    case 302:
      if (request.method == HTTPMethod::post) becomeGet();
      break;
    case 303:
      if (request.method != HTTPMethod::head) becomeGet();
      break;
    case 307:
    case 308: break;
    default: return false;
  }
  if (++exchange.redirects > mostRedirects) {
    finish(exchange, urlError(Foundation::NSURLErrorHTTPTooManyRedirects, "The server redirects without end."));
    return true;
  }
  request.url = target;
  exchange.redirected = std::move(request);
  if (!prepare(exchange)) finish(exchange, posixError(ENOMEM));
  return true;
}

void Transport::Loop::finish(Exchange& exchange, std::optional<NSError> error) {
  std::shared_ptr<Exchange> finished = std::move(*exchange.byStartEntry);
  exchange.driver = nullptr;
  byLastByte_.erase(exchange.byLastByteEntry);
  byStart_.erase(exchange.byStartEntry);

  DefaultDataResponse& outcome = exchange.outcome;
  if (outcome.response && exchange.handle) {
    char* contentType = nullptr;
    curl_easy_getinfo(exchange.handle->easy.get(), CURLINFO_CONTENT_TYPE, &contentType);
    if (contentType != nullptr) outcome.response->contentType = contentType;
  }
  outcome.error = std::move(error);
  giveBack(std::move(exchange.handle));
  // The exchange goes along: memory is best freed by the thread that allocated it.
  finished_.push_back([exchange = std::move(finished)]() mutable {
    const auto answer = std::move(exchange->answer);
    DefaultDataResponse response = std::move(exchange->outcome);
    exchange.reset();
    answer->settle(std::move(response), true);
  });
}

void Transport::Loop::handOver() {
  if (finished_.empty()) return;
  queue_->post(std::exchange(finished_, {}));
}

void Transport::Loop::expire() {
  while (!byStart_.empty() && now_ >= byStart_.front()->started + resourceLimit_)
    finish(*byStart_.front(), urlError(Foundation::NSURLErrorTimedOut, "The exchange took longer than it may."));
  while (!byLastByte_.empty() && now_ >= byLastByte_.front()->lastByte + requestLimit_)
    finish(*byLastByte_.front(), urlError(Foundation::NSURLErrorTimedOut, "The server was silent for too long."));
}

void Transport::Loop::wait() {
  std::optional<Clock::time_point> due = timer_;
  const auto soonest = [&due](Clock::time_point time) { due = due ? std::min(*due, time) : time; };
  if (!byStart_.empty()) soonest(byStart_.front()->started + resourceLimit_);
  if (!byLastByte_.empty()) soonest(byLastByte_.front()->lastByte + requestLimit_);
  int timeout = -1;
  if (due) {
    const auto rest = std::chrono::ceil<std::chrono::milliseconds>(*due - now_).count();
    timeout = static_cast<int>(std::clamp<std::chrono::milliseconds::rep>(rest, 0, 3'600'000));
  }
  {
    const std::lock_guard lock(mutex_);
    if (!inbox_.empty() || stopping_) timeout = 0;
    asleep_ = timeout != 0;
  }
  const int ready = ::poll(sockets_.data(), static_cast<nfds_t>(sockets_.size()), timeout);
  {
    const std::lock_guard lock(mutex_);
    asleep_ = false;
  }
  now_ = Clock::now();
  if (ready <= 0) return;
  if (sockets_[0].revents != 0) wakePipe_.drain();
  // By index: libcurl's answer to an event may open and close sockets.
  for (std::size_t slot = 1; slot < sockets_.size(); ++slot) {
    const short events = std::exchange(sockets_[slot].revents, short{0});
    if (events == 0) continue;
    // Here, and not in the callbacks alone: half a header line is a sign of life too.
    if (receivers_[slot] != nullptr && (events & POLLIN) != 0) touch(*receivers_[slot]->exchange);
    const int mask = ((events & (POLLIN | POLLHUP)) != 0 ? CURL_CSELECT_IN : 0) |
                     ((events & POLLOUT) != 0 ? CURL_CSELECT_OUT : 0) |
                     ((events & (POLLERR | POLLNVAL)) != 0 ? CURL_CSELECT_ERR : 0);
    int running = 0;
    curl_multi_socket_action(multi_.get(), sockets_[slot].fd, mask, &running);
  }
}

void Transport::Loop::touch(Exchange& exchange) {
  exchange.lastByte = now_;
  byLastByte_.splice(byLastByte_.end(), byLastByte_, exchange.byLastByteEntry);
}

std::size_t Transport::Loop::onHeader(char* data, std::size_t, std::size_t count, void* context) {
  Exchange& exchange = *static_cast<Handle*>(context)->exchange;
  exchange.driver->touch(exchange);
  const std::string_view line(data, count);
  exchange.headerBytes += count;
  exchange.lines = line.starts_with("HTTP/") ? 1 : exchange.lines + 1;
  if (exchange.headerBytes > mostHeaderBytes) {
    exchange.outcome.error = urlError(Foundation::NSURLErrorBadServerResponse, tooManyHeaders);
    return 0;
  }
  if (line == "\r\n" || line == "\n") {
    long status = 0;
    curl_easy_getinfo(exchange.handle->easy.get(), CURLINFO_RESPONSE_CODE, &status);
    if (status >= 200) exchange.outcome.response = {static_cast<int>(status)};
  }
  return count;
}

std::size_t Transport::Loop::onBody(char* data, std::size_t, std::size_t count, void* context) {
  Exchange& exchange = *static_cast<Handle*>(context)->exchange;
  Loop& loop = *exchange.driver;
  loop.touch(exchange);
  if (!exchange.outcome.response) {
    // A header line, before libcurl looks at it; a first header that continues another would have it look at freed
    // memory.
    const bool continues = *data == ' ' || *data == '\t';
    if (exchange.lines != 1 || !continues) return count;
    exchange.outcome.error = urlError(Foundation::NSURLErrorBadServerResponse, "The first header continues none.");
    return 0;
  }
  if (!exchange.outcome.data) exchange.outcome.data.emplace();
  Foundation::Data& body = *exchange.outcome.data;
  if (count > loop.configuration_.maximumResponseSize - body.size()) {
    exchange.outcome.error =
        urlError(Foundation::NSURLErrorDataLengthExceedsMaximum, "The answer is larger than it may be.");
    exchange.outcome.data.reset();
    return 0;
  }
  try {
    if (body.empty()) {
      curl_off_t length = 0;  // as announced, so perhaps a lie: worth a first guess, not more
      curl_easy_getinfo(exchange.handle->easy.get(), CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &length);
      body.reserve(static_cast<std::size_t>(std::clamp<curl_off_t>(length, 0, largestFirstGuess)));
    }
    const auto* const bytes = reinterpret_cast<const std::byte*>(data);
    body.insert(body.end(), bytes, bytes + count);
    return count;
  } catch (const std::bad_alloc&) {
    exchange.outcome.error = posixError(ENOMEM);
    return 0;
  }
}

int Transport::Loop::onProgress(void* context, curl_off_t, curl_off_t, curl_off_t, curl_off_t sent) {
  Exchange& exchange = *static_cast<Handle*>(context)->exchange;
  if (std::exchange(exchange.sent, sent) != sent) exchange.driver->touch(exchange);
  return 0;
}

int Transport::Loop::onSocket(CURL* easy, curl_socket_t socket, int what, void* context, void* known) {
  Loop& loop = *static_cast<Loop*>(context);
  auto slot = reinterpret_cast<std::uintptr_t>(known);  // 0, the pipe's, while libcurl knows none
  if (slot == 0) {
    const auto free =
        std::find_if(loop.sockets_.begin() + 1, loop.sockets_.end(), [](pollfd entry) { return entry.fd < 0; });
    slot = static_cast<std::uintptr_t>(free - loop.sockets_.begin());
    if (free == loop.sockets_.end()) {
      loop.sockets_.push_back({});
      loop.receivers_.push_back(nullptr);
    }
    curl_multi_assign(loop.multi_.get(), socket, reinterpret_cast<void*>(slot));
  }
  const int events = ((what & CURL_POLL_IN) != 0 ? POLLIN : 0) | ((what & CURL_POLL_OUT) != 0 ? POLLOUT : 0);
  loop.sockets_[slot] = {what == CURL_POLL_REMOVE ? -1 : socket, static_cast<short>(events), 0};
  char* address = nullptr;
  curl_easy_getinfo(easy, CURLINFO_PRIVATE, &address);
  Handle* const handle = reinterpret_cast<Handle*>(address);  // null for one of libcurl's own
  // Over TLS a connection may carry several transfers, and this names but one of them.
  const bool alone = handle != nullptr && handle->exchange != nullptr && !handle->url->secure;
  if (alone) handle->slot = slot;
  loop.receivers_[slot] = alone && what != CURL_POLL_REMOVE ? handle : nullptr;
  return 0;
}

int Transport::Loop::onTimer(CURLM*, long milliseconds, void* context) {
  Loop& loop = *static_cast<Loop*>(context);
  loop.timer_.reset();
  if (milliseconds >= 0) loop.timer_ = loop.now_ + std::chrono::milliseconds(milliseconds);
  return 0;
}

void Transport::Exchange::cancel() {
  if (const auto its = loop.lock()) its->cancel(shared_from_this());
}

Transport::Transport(const Foundation::URLSessionConfiguration& configuration, std::shared_ptr<CompletionQueue> queue)
    : loop_(std::make_shared<Loop>(configuration, std::move(queue))) {}

Transport::~Transport() { loop_->stop(); }

std::string Transport::acceptEncoding() {
  initialiseCurl();
  const curl_version_info_data& libcurl = *curl_version_info(CURLVERSION_NOW);
  std::string list;
  for (const auto& [feature, names] : {std::pair{CURL_VERSION_LIBZ, "deflate, gzip"},
                                       std::pair{CURL_VERSION_BROTLI, "br"}, std::pair{CURL_VERSION_ZSTD, "zstd"}})
    if ((libcurl.features & feature) != 0) (list += list.empty() ? "" : ", ") += names;
  return list.empty() ? "identity" : list;
}

std::string Transport::userAgent() {
  initialiseCurl();
  return std::string("HalvernApi/" HALVERNAPI_VERSION " libcurl/") + curl_version_info(CURLVERSION_NOW)->version;
}

std::shared_ptr<DataRequest> Transport::start(std::optional<URLRequest> request, std::optional<NSError> error) {
  // In the child of a fork the session's queue may be locked, and its thread is not there.
  const bool leftBehind = loop_->leftBehind();
  const auto queue = leftBehind ? CompletionQueue::on(nullptr) : loop_->queue();
  const auto exchange = std::make_shared<Exchange>(loop_);
  const boost::intrusive_ptr<DataRequest::Answer> answer(new DataRequest::Answer(queue, exchange));
  const auto sent = std::make_shared<const std::optional<URLRequest>>(std::move(request));
  if (!error) error = loadingFault((*sent)->url);
  if (!error && leftBehind) error = cancelled();
  if (!error) {
    exchange->original = sent;
    exchange->answer = answer;
    error = loop_->start(exchange);
  }
  if (error) queue->post([answer, error] { answer->settle(DefaultDataResponse{{}, {}, error}, true); });
  return std::make_shared<DataRequest>(sent, answer);
}

}  // namespace HalvernApi::Alamofire
