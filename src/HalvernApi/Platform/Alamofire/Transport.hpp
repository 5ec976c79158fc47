// The network side of a session: one thread that has libcurl carry all exchanges, started by the first request. Every
// exchange that is started comes to an answer. Not installed.
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

  // Any thread. A request with an `error` is answered with it and never reaches the network.
  std::shared_ptr<DataRequest> start(std::optional<URLRequest> request, std::optional<Foundation::NSError> error);
  // Any thread. Requests that start later use new connections.
  void flush();
  // Any thread. Ends every exchange, and returns when that is done unless it is the I/O thread that calls.
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

  std::optional<Foundation::Failure> faultOf(const URLRequest& request) const;
  // The error says why nobody will look at `command`.
  std::optional<Foundation::Failure> send(Command command);
  std::optional<Foundation::Failure> ensureThreads() HALVERNAPI_REQUIRES(mutex_);
  void wake();
  bool inForkedChild() const { return origin_.inForkedChild(); }

  // The I/O thread.
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
  bool redirected(Exchange& exchange, RawResponse& answer);
  void recycle(std::unique_ptr<Transfer> transfer);
  void interrupt(Exchange& exchange, const Foundation::Failure& failure);
  void finish(Exchange& exchange, RawResponse answer);
  void endOverdue();
  void postFinished();
  void wait();

  const std::shared_ptr<Foundation::CompletionQueue> queue_;
  const Foundation::OriginalProcess origin_{};
  const std::optional<Foundation::Failure> configurationFault_;  // fails every call
  const std::chrono::milliseconds requestLimit_;
  const std::chrono::milliseconds resourceLimit_;
  const std::size_t maxConnections_;  // to one host
  const std::size_t maxActive_;       // transfers inside libcurl
  const std::size_t maxJsonBytes_;    // of one answer

  Foundation::Mutex mutex_;
  std::vector<Command> inbox_ HALVERNAPI_GUARDED_BY(mutex_);
  bool started_ HALVERNAPI_GUARDED_BY(mutex_) = false;
  bool stopping_ HALVERNAPI_GUARDED_BY(mutex_) = false;
  bool asleep_ HALVERNAPI_GUARDED_BY(mutex_) = false;
  Foundation::Condition changed_;
  Foundation::Mutex joining_;  // held while the thread is joined
  Foundation::Thread thread_;  // started under mutex_, joined under joining_

  // The I/O thread, once it runs; but any thread may wake the multi handle, which therefore lives as long as this.
  TransferContext context_;
  CurlMulti multi_;
  std::vector<Command> batch_;
  std::vector<std::unique_ptr<Transfer>> pool_;
  std::vector<std::shared_ptr<const ParsedUrl>> urls_;  // the last ones, newest last
  Exchanges waiting_;                                   // for a transfer, longest first
  Exchanges active_;
  std::size_t activeCount_ = 0;                            // transfers that are not in the pool
  Clock::time_point deadline_ = Clock::time_point::max();  // no time limit ends before it
  std::chrono::nanoseconds timeAsleep_{0};                 // of the device, when the inbox was last read
  Foundation::TaskList finished_;
};

}  // namespace HalvernApi::Alamofire
