// A request that was started, and the answer that it comes to. Every member may be called from any thread.
#pragma once

#include <atomic>
#include <functional>
#include <memory>

#include "HalvernApi/Platform/Alamofire/URLRequest.hpp"
#include "HalvernApi/Platform/Promissum/Promise.hpp"
#include "HalvernApi/Platform/Promissum/Responses.hpp"

namespace HalvernApi::Alamofire {

class HALVERNAPI_EXPORT Request {
 public:
  virtual ~Request();

  // Absent when the URL's text cannot be a URL.
  const std::optional<URLRequest>& request() const { return *request_; }

  // A curl command line for bug reports: what may be a secret (the body, and every header but harmless ones) is elided.
  std::string debugDescription() const;

 protected:
  using Sent = std::shared_ptr<const std::optional<URLRequest>>;

  explicit Request(Sent request) : request_(std::move(request)) {}

  const Sent request_;
};

struct DefaultDataResponse {
  std::optional<Foundation::HTTPURLResponse> response{};  // absent when no answer came
  std::optional<Foundation::Data> data{};                 // the body as far as it came
  std::optional<Foundation::NSError> error{};             // what ended the exchange, or what validation found
};

class HALVERNAPI_EXPORT DataRequest final : public Request {
 public:
  // The answer's shared state; it always comes to a value.
  using Answer = Promissum::PromiseState<DefaultDataResponse, Foundation::Unit>;

  DataRequest(Sent request, boost::intrusive_ptr<Answer> answer);

  // Handlers attached from now on see an unacceptable answer as an error: a status outside 200..299, or a body whose
  // media type does not match the request's "Accept".
  DataRequest& validate();

  // `handler` runs once on the completion queue, also when the answer is there already.
  DataRequest& response(std::function<void(const DefaultDataResponse&)> handler);

  // The body parsed as JSON and decoded: a Promise<SuccessResponse<T>, ErrorResponse>, or what `conclude` makes of its
  // Expected, as by `mapResult`, but for the price of one promise. `decoder` runs on the completion queue; when it
  // throws, the promise fails. One that does no more than read is quicker served.
  template <class T, class F = std::identity>
  auto responseJsonDecodePromise(
      std::function<Foundation::Expected<T, Statham::JsonDecodeError>(const Statham::JsonValue&)> decoder,
      F conclude = {}, Statham::JsonUse use = Statham::JsonUse::keep) {
    using Decoded = Foundation::Expected<Promissum::SuccessResponse<T>, Promissum::ErrorResponse>;
    using Concluded = std::decay_t<std::invoke_result_t<F&, Decoded>>;
    using Result = Promissum::Promise<typename Concluded::value_type, typename Concluded::error_type>;
    boost::intrusive_ptr<typename Result::State> result(
        new typename Result::State(answer_->queue(), answer_->cancellable()));
    answer_->whenSettled([judge = judge(), result, decoder = std::move(decoder), conclude = std::move(conclude),
                          use](auto&& answered) mutable {
      std::optional<T> value;
      const auto decode = [&](const Statham::JsonValue& json) -> std::optional<Statham::JsonDecodeError> {
        auto decoded = decoder(json);
        if (!decoded) return std::move(decoded).error();
        value = *std::move(decoded);
        return std::nullopt;
      };
      DefaultDataResponse answer = *std::forward<decltype(answered)>(answered);
      auto failure = decodeAnswer(answer, judge, use, decode);
      auto decoded = failure ? Decoded(Foundation::Unexpected<Promissum::ErrorResponse>(*std::move(failure)))
                             : Decoded(Promissum::SuccessResponse<T>{*std::move(value), *std::move(answer.response)});
      result->settle(std::invoke(conclude, std::move(decoded)), true);
    });
    return Result(std::move(result));
  }

 private:
  using Decode = std::function<std::optional<Statham::JsonDecodeError>(const Statham::JsonValue&)>;

  // The request whose "Accept" an answer is held to; null without validation. Handlers keep this rather than all of the
  // data request, which would keep the answer.
  Sent judge() const { return validated_ ? request_ : nullptr; }
  static std::optional<Foundation::NSError> validationError(const DefaultDataResponse& answer, const Sent& judge);
  static std::optional<Promissum::ErrorResponse> decodeAnswer(DefaultDataResponse& answer, const Sent& judge,
                                                              Statham::JsonUse use, const Decode& decode);

  const boost::intrusive_ptr<Answer> answer_;
  std::atomic<bool> validated_ = false;
};

}  // namespace HalvernApi::Alamofire

namespace HalvernApi {
using Alamofire::DataRequest;
using Alamofire::DefaultDataResponse;
}  // namespace HalvernApi
