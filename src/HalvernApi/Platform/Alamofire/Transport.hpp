// The network side of a session: one I/O thread that runs libcurl for all exchanges. The first request starts the
// thread. Every exchange that is started ends with an answer, which may be a failure. Not installed.
#pragma once

#include <boost/intrusive/list.hpp>

#include "HalvernApi/Platform/Alamofire/Transfer.hpp"
#include "HalvernApi/Platform/Foundation/CompletionQueue.hpp"

namespace HalvernApi::Alamofire {

class Transport final : public Foundation::ProcessExit::Stoppable, public std::enable_shared_from_this<Transport> {
 public:
  Transport(const Foundation::URLSessionConfiguration& configuration,
            std::shared_ptr<Foundation::CompletionQueue> queue);
  ~Transport() override;

  // Any thread. If there is an `error`, the request is not sent and fails with this error. Otherwise `request` must be
  // present.
  std::shared_ptr<DataRequest> start(std::optional<URLRequest> request, std::optional<Foundation::NSError> error);
  // Any thread. Requests that start later use new connections.
  void flush();
  // Any thread. Cancels all exchanges and ends the I/O thread. Waits until that is done, unless the caller is the I/O
  // thread.
  void stop() override;

 private:
  struct Exchange;
  struct Command {
    enum class Kind { start, cancel, flush } kind;
    std::shared_ptr<Exchange> exchange;  // null for `flush`
  };
  using ListHook = boost::intrusive::list_base_hook<boost::intrusive::link_mode<boost::intrusive::auto_unlink>>;
  using Exchanges = boost::intrusive::list<Exchange, boost::intrusive::base_hook<ListHook>,
                                           boost::intrusive::constant_time_size<false>>;

  // Returns the reason why this session cannot send `request`, if any.
  std::optional<Foundation::Failure> faultOf(const URLRequest& request) const;
  // Puts `command` into the inbox. Returns an error if it was not accepted.
  std::optional<Foundation::Failure> send(Command command);
  std::optional<Foundation::Failure> ensureThreads() HALVERNAPI_REQUIRES(mutex_);
  bool inForkedChild() const { return origin_.inForkedChild(); }

  // The functions below run on the I/O thread.
  void run();
  bool takeInbox();
  void execute(Command& command);
  void retireConnectionsAfterSleep();
  void enqueue(std::shared_ptr<Exchange> exchange);
  bool mayBegin() const { return !waiting_.empty() && activeCount_ < maxActive_; }
  void begin(Exchange& exchange);
  std::shared_ptr<const ParsedUrl> parsed(const std::string& url);
  void reap();
  void transferDone(Exchange& exchange, CURLcode result);
  bool followRedirect(Exchange& exchange, RawResponse& answer);
  void recycle(std::unique_ptr<Transfer> transfer);
  void interrupt(Exchange& exchange, const Foundation::Failure& failure);
  void finish(Exchange& exchange, RawResponse answer);
  void endOverdue();
  void postFinished();
  void wait();

  const std::shared_ptr<Foundation::CompletionQueue> queue_;
  const Foundation::OriginalProcess origin_{};
  const std::optional<Foundation::Failure> configurationFault_;  // if present, every call fails with it
  const std::chrono::milliseconds requestLimit_;
  const std::chrono::milliseconds resourceLimit_;
  const std::size_t maxConnections_;  // per host
  const std::size_t maxActive_;       // transfers inside libcurl
  const std::size_t maxJsonBytes_;    // per answer

  Foundation::Mutex mutex_;
  std::vector<Command> inbox_ HALVERNAPI_GUARDED_BY(mutex_);
  bool started_ HALVERNAPI_GUARDED_BY(mutex_) = false;
  bool stopping_ HALVERNAPI_GUARDED_BY(mutex_) = false;
  bool asleep_ HALVERNAPI_GUARDED_BY(mutex_) = false;
  Foundation::Mutex joining_;  // held while the thread is joined
  Foundation::Thread thread_;  // started under mutex_, joined under joining_

  // Once the I/O thread runs, only that thread uses the members below, with two exceptions. Any thread reads the
  // configuration, which does not change. Any thread may wake the multi handle, so that handle exists as long as this
  // object.
  TransferContext context_;
  CurlMulti multi_;
  std::vector<Command> batch_;
  std::vector<std::unique_ptr<Transfer>> pool_;
  std::vector<std::shared_ptr<const ParsedUrl>> urls_;  // a cache, oldest first
  Exchanges waiting_;                                   // exchanges that wait for a transfer, in order of arrival
  Exchanges active_;
  std::size_t activeCount_ = 0;                            // transfers that are not in the pool
  Clock::time_point deadline_ = Clock::time_point::max();  // no time limit ends before this time
  std::chrono::nanoseconds timeAsleep_{0};  // how long the device had slept when the last commands were taken
  Foundation::TaskList finished_;
};

}  // namespace HalvernApi::Alamofire
