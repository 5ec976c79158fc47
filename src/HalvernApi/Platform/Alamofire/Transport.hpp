// The network side of a session: one thread that drives all transfers, started by the first request. Any thread may
// call. Not installed.
#pragma once

#include <memory>

#include "HalvernApi/Platform/Alamofire/Request.hpp"
#include "HalvernApi/Platform/Foundation/URLSessionConfiguration.hpp"

namespace HalvernApi::Alamofire {

class Transport {
 public:
  Transport(const Foundation::URLSessionConfiguration& configuration,
            std::shared_ptr<Foundation::CompletionQueue> queue);
  ~Transport();
  Transport(const Transport&) = delete;
  Transport& operator=(const Transport&) = delete;

  static std::string acceptEncoding();
  static std::string userAgent();

  // A request with an `error` is answered with it and never reaches the network.
  std::shared_ptr<DataRequest> start(std::optional<URLRequest> request, std::optional<Foundation::NSError> error);

 private:
  class Loop;
  struct Exchange;
  struct Handle;
  struct ParsedUrl;
  const std::shared_ptr<Loop> loop_;
};

}  // namespace HalvernApi::Alamofire
