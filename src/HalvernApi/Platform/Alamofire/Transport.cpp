#include "HalvernApi/Platform/Alamofire/Transport.hpp"

#include <algorithm>
#include <climits>

#include "HalvernApi/Platform/Alamofire/Redirect.hpp"
#include "HalvernApi/Platform/Alamofire/URL.hpp"
#include "HalvernApi/Platform/Foundation/Posix.hpp"

namespace HalvernApi::Alamofire {

using Foundation::CompletionQueue;
using Foundation::Failure;
using Foundation::MutexLock;
using Foundation::NSError;
using Foundation::outOfMemory;
using Foundation::urlFailure;

namespace {

constexpr int maxRedirects = 16;
constexpr int spareConnections = 4;     // additional idle connections, to other hosts
constexpr std::size_t minActive = 100;  // enough transfers to keep every connection busy; each takes 12 KiB
constexpr std::size_t minPoolSize = 64;
constexpr std::size_t maxPoolSize = 1024;
constexpr std::size_t maxParsedUrls = 16;
constexpr std::size_t maxJsonFactor = 4;  // bytes of JSON values for each byte of maximumResponseSize

constexpr std::chrono::seconds maxUnnoticedSleep{1};

constexpr Failure cancelled = urlFailure(Foundation::NSURLErrorCancelled, "The request was cancelled.");
constexpr Failure tooLong = urlFailure(Foundation::NSURLErrorTimedOut, "The exchange exceeded its time limit.");
constexpr Failure silent = urlFailure(Foundation::NSURLErrorTimedOut, "The server was silent for too long.");
constexpr Failure endlessRedirects =
    urlFailure(Foundation::NSURLErrorHTTPTooManyRedirects, "The server redirected the request too many times.");

std::optional<Failure> proxyFault(const std::optional<std::string>& proxyUrl) {
  if (!proxyUrl) return std::nullopt;
  const CurlUrl url = parseUrl(*proxyUrl, CURLU_NON_SUPPORT_SCHEME | CURLU_GUESS_SCHEME);
  constexpr std::string_view known[] = {"http", "https", "socks4", "socks4a", "socks5", "socks5h"};
  const std::string scheme = urlPart(url, CURLUPART_SCHEME);
  if (std::find(std::begin(known), std::end(known), scheme) != std::end(known) && !urlPart(url, CURLUPART_HOST).empty())
    return scheme == "https" ? tlsFault() : std::nullopt;
  return urlFailure(Foundation::NSURLErrorBadURL, "The URL of the proxy cannot be read.");
}

// Whether `pin` is a SHA-256 hash in Base64. libcurl compares the text, so the unused bits of its last character must
// be 0.
bool isPin(const std::string& pin) {
  constexpr std::size_t hashBytes = 32, textBytes = 44;
  constexpr std::string_view withoutSpareBits = "AEIMQUYcgkosw048";
  const auto hash = pin.size() == textBytes ? Foundation::decodeBase64(pin) : std::nullopt;
  return hash && hash->size() == hashBytes && withoutSpareBits.find(pin[textBytes - 2]) != std::string_view::npos;
}

std::optional<Failure> pinFault(const std::vector<std::string>& pins) {
  if (std::all_of(pins.begin(), pins.end(), isPin)) return std::nullopt;
  return urlFailure(Foundation::NSURLErrorServerCertificateUntrusted,
                    "A pinned public key is not a SHA-256 hash in Base64.");
}

std::optional<Failure> configurationFault(const Foundation::URLSessionConfiguration& configuration) {
  if (const auto fault = proxyFault(configuration.proxyUrl)) return fault;
  return pinFault(configuration.pinnedPublicKeys);
}

}  // namespace

// A request in flight. Constructed on the caller's thread; `cancelOrDelegate` may be called on any thread. The members
// below `transport` are used by the I/O thread only. Callbacks of the answer run on the completion queue; they use
// members of DataRequest only.
struct Transport::Exchange final : DataRequest, TransferOwner, ListHook {
  Exchange(std::optional<URLRequest> request, std::shared_ptr<CompletionQueue> queue, std::size_t maxJsonBytes,
           std::weak_ptr<Transport> itsTransport)
      : DataRequest(std::move(request), std::move(queue), maxJsonBytes), transport(std::move(itsTransport)) {}

  std::shared_ptr<Cancellable> cancelOrDelegate() override {
    if (const auto its = transport.lock())
      its->send({Command::Kind::cancel, std::static_pointer_cast<Exchange>(shared_from_this())});
    return nullptr;
  }
  using DataRequest::answer_;
  const URLRequest& current() const { return redirected ? *redirected : *request(); }
  bool inFlight() const { return self != nullptr; }

  const std::weak_ptr<Transport> transport;
  std::shared_ptr<Exchange> self;      // keeps the exchange alive while it is in flight; null otherwise
  std::unique_ptr<Transfer> transfer;  // null while the exchange waits for a transfer
  std::optional<URLRequest> redirected;
  int redirects = 0;
  Clock::time_point started;
  Clock::time_point lastActivity;  // start or last redirect; the transfer has the time of later activity
};

Transport::Transport(const Foundation::URLSessionConfiguration& configuration, std::shared_ptr<CompletionQueue> queue)
    : queue_(std::move(queue)),
      configurationFault_(configurationFault(configuration)),
      requestLimit_(bounded(configuration.timeoutIntervalForRequest)),
      resourceLimit_(bounded(configuration.timeoutIntervalForResource)),
      maxConnections_(static_cast<std::size_t>(
          std::clamp(configuration.httpMaximumConnectionsPerHost, 1, INT_MAX - spareConnections))),
      maxActive_(std::max(minActive, maxConnections_)),
      maxJsonBytes_(maxJsonFactor * std::min(configuration.maximumResponseSize, SIZE_MAX / maxJsonFactor)),
      context_{configuration} {
  context_.configuration.completionQueue = nullptr;  // `queue_` refers to it
  pool_.reserve(std::clamp(maxConnections_, minPoolSize, maxPoolSize));
}

Transport::~Transport() = default;

std::shared_ptr<DataRequest> Transport::start(std::optional<URLRequest> request, std::optional<NSError> error) {
  // In a forked child, the session's queue may stay locked, and its thread does not exist.
  const auto exchange = std::make_shared<Exchange>(
      std::move(request), inForkedChild() ? CompletionQueue::on(nullptr) : queue_, maxJsonBytes_, weak_from_this());
  std::optional<Failure> failure;
  if (!error) failure = faultOf(*exchange->request());
  if (!error && !failure) failure = send({Command::Kind::start, exchange});
  if (error || failure) exchange->answer_->settle(RawResponse{{{}, {}, std::move(error)}, failure});
  return exchange;
}

std::optional<Failure> Transport::faultOf(const URLRequest& request) const {
  if (const auto fault = loadingFault(request.url)) return fault;
  if (configurationFault_) return configurationFault_;
  if (context_.configuration.pinnedPublicKeys.empty() || isHttps(request.url)) return std::nullopt;
  return urlFailure(Foundation::NSURLErrorServerCertificateUntrusted, "Without TLS no public key can be checked.");
}

void Transport::flush() { (void)send({Command::Kind::flush, nullptr}); }

std::optional<Failure> Transport::send(Command command) {
  if (inForkedChild() || Foundation::ProcessExit::begun()) return cancelled;
  bool asleep = false;
  {
    const MutexLock lock(mutex_);
    if (stopping_) return cancelled;
    if (command.kind == Command::Kind::flush && !started_) return std::nullopt;  // there is no connection
    if (const auto failure = ensureThreads()) return failure;
    inbox_.push_back(std::move(command));
    asleep = std::exchange(asleep_, false);
  }
  if (asleep) curl_multi_wakeup(multi_.get());
  return std::nullopt;
}

// After an error, the next request tries again.
std::optional<Failure> Transport::ensureThreads() {
  if (started_) return std::nullopt;
  if (!multi_) {
    initialiseCurl();
    CurlMulti multi(curl_multi_init());
    if (!multi) return outOfMemory;
    // If no descriptors are left for wake-ups, curl_multi_init succeeds, but curl_multi_wakeup fails.
    if (curl_multi_wakeup(multi.get()) != CURLM_OK) return Foundation::outOfDescriptors;
    // CURLMOPT_MAXCONNECTS limits idle connections.
    const long maxConnections = static_cast<long>(maxConnections_), maxIdle = maxConnections + spareConnections;
    if (curl_multi_setopt(multi.get(), CURLMOPT_MAX_HOST_CONNECTIONS, maxConnections) != CURLM_OK ||
        curl_multi_setopt(multi.get(), CURLMOPT_MAXCONNECTS, maxIdle) != CURLM_OK)
      return outOfMemory;
    multi_ = std::move(multi);
  }
  // The thread for handlers is started first, because a call is accepted only if its answer can be delivered.
  if (!Foundation::ProcessExit::stopAtExit(weak_from_this())) return cancelled;
  if (!queue_->prepare()) return Foundation::outOfThreads;
  started_ = thread_.start([self = shared_from_this()] { self->run(); });
  if (!started_) return Foundation::outOfThreads;
  return std::nullopt;
}

void Transport::stop() {
  if (inForkedChild()) return;
  {
    const MutexLock lock(mutex_);
    stopping_ = true;
    if (!started_ || thread_.isThis()) return;
  }
  curl_multi_wakeup(multi_.get());
  const MutexLock lock(joining_);
  if (thread_.started()) thread_.join();
}

void Transport::run() {
  while (takeInbox()) {
    while (mayBegin()) {
      Exchange& exchange = waiting_.front();
      waiting_.pop_front();
      active_.push_back(exchange);
      begin(exchange);
    }
    int running = 0;
    curl_multi_perform(multi_.get(), &running);  // if it fails, the time limits end the transfers
    reap();
    endOverdue();
    postFinished();
    if (!mayBegin()) wait();
  }
  for (Exchanges* const exchanges : {&active_, &waiting_})
    while (!exchanges->empty()) interrupt(exchanges->front(), cancelled);
  postFinished();
  pool_.clear();
}

// Executes the commands in the inbox. Returns false if the thread must end; `run` then cancels all exchanges.
bool Transport::takeInbox() {
  bool stopping = false;
  {
    const MutexLock lock(mutex_);
    batch_.swap(inbox_);
    asleep_ = false;
    stopping = stopping_;
  }
  context_.now = Clock::now();
  if (!batch_.empty()) retireConnectionsAfterSleep();
  for (Command& command : batch_) execute(command);
  batch_.clear();
  return !stopping;
}

void Transport::execute(Command& command) {
  switch (command.kind) {
    case Command::Kind::start: enqueue(std::move(command.exchange)); break;
    case Command::Kind::flush: context_.sockets.retire(); break;
    case Command::Kind::cancel:
      if (command.exchange->inFlight()) interrupt(*command.exchange, cancelled);
      break;
  }
}

// Connections are lost while the device is asleep, and the system does not report this.
void Transport::retireConnectionsAfterSleep() {
  const auto before = timeAsleep_;
  timeAsleep_ = timeAsleep();
  if (timeAsleep_ - before > maxUnnoticedSleep) context_.sockets.retire();
}

void Transport::enqueue(std::shared_ptr<Exchange> exchange) {
  exchange->started = exchange->lastActivity = context_.now;
  waiting_.push_back(*exchange);
  exchange->self = std::move(exchange);
  deadline_ = std::min(deadline_, context_.now + std::min(requestLimit_, resourceLimit_));
}

// Starts the exchange, or restarts it if it already has a transfer. If this fails, the exchange finishes.
void Transport::begin(Exchange& exchange) {
  if (exchange.transfer) recycle(std::move(exchange.transfer));
  CURLcode result = CURLE_OUT_OF_MEMORY;
  try {
    auto url = parsed(exchange.current().url);
    if (pool_.empty()) pool_.push_back(std::make_unique<Transfer>(context_));
    exchange.transfer = std::move(pool_.back());
    pool_.pop_back();
    ++activeCount_;
    exchange.transfer->owner = &exchange;
    result = exchange.transfer->begin(multi_.get(), exchange.current(), std::move(url));
    if (result == CURLE_OK) return;
  } catch (const std::bad_alloc&) {
  }
  finish(exchange, {{}, failureOf(nullptr, result)});
}

std::shared_ptr<const ParsedUrl> Transport::parsed(const std::string& url) {
  const auto known = std::find_if(urls_.begin(), urls_.end(), [&](const auto& one) { return one->text == url; });
  if (known != urls_.end()) return *known;
  if (urls_.size() == maxParsedUrls) urls_.erase(urls_.begin());
  return urls_.emplace_back(std::make_shared<ParsedUrl>(url));
}

void Transport::recycle(std::unique_ptr<Transfer> transfer) {
  --activeCount_;
  if (transfer->end(multi_.get()) && pool_.size() < pool_.capacity()) pool_.push_back(std::move(transfer));
}

void Transport::reap() {
  int left = 0;
  while (const CURLMsg* const message = curl_multi_info_read(multi_.get(), &left)) {
    if (message->msg != CURLMSG_DONE) continue;
    TransferOwner* const owner = Transfer::of(message->easy_handle).owner;
    transferDone(*static_cast<Exchange*>(owner), message->data.result);
  }
}

void Transport::transferDone(Exchange& exchange, CURLcode result) {
  if (exchange.transfer->foundStaleConnection()) {
    begin(exchange);
    return;
  }
  RawResponse answer = exchange.transfer->outcome(result);
  if (!followRedirect(exchange, answer)) finish(exchange, std::move(answer));
}

// Follows the redirect if `answer` is one. Returns false if the exchange must finish with `answer`. Sets
// `answer.failure` if there were too many redirects, or if memory runs out.
bool Transport::followRedirect(Exchange& exchange, RawResponse& answer) try {
  if (answer.failure || answer.response->statusCode / 100 != 3) return false;
  auto next = redirect(exchange.current(), answer.response->statusCode, exchange.transfer->redirectTarget());
  if (!next) return false;
  if (++exchange.redirects > maxRedirects) {
    answer.failure = endlessRedirects;
    return false;
  }
  recycle(std::move(exchange.transfer));  // first, because the transfer points to the request that is replaced
  exchange.redirected = std::move(next);
  exchange.lastActivity = context_.now;
  begin(exchange);
  return true;
} catch (const std::bad_alloc&) {
  answer.failure = outOfMemory;
  return false;
}

// Finishes the exchange with `failure` and the part of its answer that was received.
void Transport::interrupt(Exchange& exchange, const Failure& failure) {
  finish(exchange, exchange.transfer ? exchange.transfer->interrupted(failure) : RawResponse{{}, failure});
}

void Transport::finish(Exchange& exchange, RawResponse answer) {
  const std::shared_ptr<Exchange> finished = std::move(exchange.self);
  exchange.unlink();
  if (exchange.transfer) recycle(std::move(exchange.transfer));
  if (exchange.answer_->settleWithoutPosting(std::move(answer))) finished_.push(exchange.answer_);
}

void Transport::postFinished() {
  if (!finished_.empty()) queue_->post(std::move(finished_));
}

// Finishes the exchanges whose time limit is reached, and computes the next deadline. Does nothing before the deadline:
// activity can only move the limits to later times.
void Transport::endOverdue() {
  if (context_.now < deadline_) return;
  deadline_ = Clock::time_point::max();
  for (Exchanges* const exchanges : {&active_, &waiting_})
    for (auto at = exchanges->begin(); at != exchanges->end();) {
      Exchange& exchange = *at++;
      Clock::time_point lastActivity = exchange.lastActivity;
      if (exchange.transfer) lastActivity = std::max(lastActivity, exchange.transfer->lastActivity());
      const Clock::time_point silentUntil = lastActivity + requestLimit_;
      const Clock::time_point wholeUntil = exchange.started + resourceLimit_;
      if (context_.now >= wholeUntil)
        interrupt(exchange, tooLong);
      else if (context_.now >= silentUntil)
        interrupt(exchange, silent);
      else
        deadline_ = std::min({deadline_, silentUntil, wholeUntil});
    }
}

void Transport::wait() {
  // Some versions of libcurl do not end the wait when it is time to try the next address of a host.
  const std::chrono::milliseconds maxWait =
      context_.unsent > 0 ? std::chrono::milliseconds(250) : std::chrono::hours(1);
  context_.now = Clock::now();
  const auto rest = std::chrono::ceil<std::chrono::milliseconds>(deadline_ - context_.now);
  {
    const MutexLock lock(mutex_);
    asleep_ = inbox_.empty() && !stopping_;
    if (!asleep_) return;
  }
  const int timeout = static_cast<int>(std::clamp(rest, std::chrono::milliseconds(0), maxWait).count());
  if (curl_multi_poll(multi_.get(), nullptr, 0, timeout, nullptr) == CURLM_OK) return;
  // The system cannot wait for sockets, because memory or descriptors ran out. Try again soon.
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
}

}  // namespace HalvernApi::Alamofire
