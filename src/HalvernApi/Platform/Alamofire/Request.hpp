// A request that was started, and the answer that it comes to. Every member may be called from any thread.
#pragma once

#include "HalvernApi/Platform/Alamofire/URLRequest.hpp"
#include "HalvernApi/Platform/Promissum/Promise.hpp"
#include "HalvernApi/Platform/Promissum/Responses.hpp"

namespace HalvernApi::Alamofire {

class HALVERNAPI_EXPORT Request {
 public:
  virtual ~Request();
  Request(const Request&) = delete;
  Request& operator=(const Request&) = delete;

  // Absent when the URL's text cannot be a URL.
  const std::optional<URLRequest>& request() const { return request_; }

  // A curl command line for bug reports: what may be a secret (the body, and every header but harmless ones) is elided.
  std::string debugDescription() const;

 protected:
  explicit Request(std::optional<URLRequest> request) : request_(std::move(request)) {}

 private:
  const std::optional<URLRequest> request_;
};

struct DefaultDataResponse {
  std::optional<Foundation::HTTPURLResponse> response{};  // absent when no answer came
  std::optional<Foundation::Data> data{};                 // the body as far as it came
  std::optional<Foundation::NSError> error{};             // what ended the exchange, or what validation found
};

// Made and owned by a session until the answer has come, and by whoever keeps it.
class HALVERNAPI_EXPORT DataRequest : public Request,
                                      public Promissum::Cancellable,
                                      public std::enable_shared_from_this<DataRequest> {
 public:
  // The answer's shared state; it always comes to a value.
  using Answer = Promissum::PromiseState<DefaultDataResponse, Foundation::Unit>;
  template <class T>
  using Decoder = std::function<Foundation::Expected<T, Statham::JsonDecodeError>(const Statham::JsonValue&)>;
  template <class T>
  using Decoded = Foundation::Expected<T, Promissum::ErrorResponse>;

  // Handlers attached from now on see an unacceptable answer as an error: a status outside 200..299, or a body whose
  // media type does not match the request's "Accept".
  DataRequest& validate();

  // `handler` runs once on the completion queue, also when the answer is there already.
  DataRequest& response(std::function<void(const DefaultDataResponse&)> handler);

  // The body parsed as JSON and decoded. `decoder` runs on the completion queue; when it throws, the promise fails.
  template <class T>
  Promissum::Promise<Promissum::SuccessResponse<T>, Promissum::ErrorResponse> responseJsonDecodePromise(
      Decoder<T> decoder) {
    return decodedPromise<T>(std::move(decoder), [](Decoded<T> decoded, const DefaultDataResponse& answer) {
      return std::move(decoded).map([&](T&& value) {
        return Promissum::SuccessResponse<T>{std::move(value), *answer.response};
      });
    });
  }

  // The same, but for what `conclude` makes of a Decoded<T> and the answer: another Expected. Spares the promise that
  // `mapResult` would make.
  template <class T, class Conclude>
  auto decodedPromise(Decoder<T> decoder, Conclude conclude) {
    using Result = std::invoke_result_t<Conclude&, Decoded<T>, const DefaultDataResponse&>;
    using Promise = Promissum::Promise<typename Result::value_type, typename Result::error_type>;
    boost::intrusive_ptr<typename Promise::State> result(new
                                                         typename Promise::State(answer_->queue(), weak_from_this()));
    answer_->whenSettled(
        Answer::Kind::continuation, [self = shared_from_this(), validated = validated_.load(), result,
                                     decoder = std::move(decoder), conclude](const Answer::Result& answer) {
          std::optional<T> value;
          auto error = self->decode(*answer, validated, [&](const Statham::JsonValue& json) {
            auto decoded = decoder(json);
            if (decoded) value = *std::move(decoded);
            return decoded ? std::nullopt : std::optional(std::move(decoded).error());
          });
          result->settle(conclude(
              error ? Decoded<T>(Foundation::unexpect, *std::move(error)) : Decoded<T>(*std::move(value)), *answer));
        });
    return Promise(std::move(result));
  }

 protected:
  // JSON values of the answer take at most `maxJsonBytes`.
  DataRequest(std::optional<URLRequest> request, Promissum::PromiseCore::Queue queue, std::size_t maxJsonBytes);

  const boost::intrusive_ptr<Answer> answer_;

 private:
  using Decode = std::function<std::optional<Statham::JsonDecodeError>(const Statham::JsonValue&)>;

  std::optional<Foundation::NSError> validationError(const DefaultDataResponse& answer) const;
  // Absent when `decode` has succeeded.
  std::optional<Promissum::ErrorResponse> decode(const DefaultDataResponse& answer, bool validated,
                                                 const Decode& decode) const;

  const std::size_t maxJsonBytes_;
  std::atomic<bool> validated_ = false;
};

}  // namespace HalvernApi::Alamofire
