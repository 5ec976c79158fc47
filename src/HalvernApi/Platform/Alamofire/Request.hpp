#pragma once

#include "HalvernApi/Platform/Alamofire/URLRequest.hpp"
#include "HalvernApi/Platform/Promissum/Promise.hpp"
#include "HalvernApi/Platform/Promissum/Responses.hpp"

namespace HalvernApi::Alamofire {

// A request that was started. Every member may be called from any thread.
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
  // \cond
  explicit Request(std::optional<URLRequest> request) : request_(std::move(request)) {}
  // \endcond

 private:
  const std::optional<URLRequest> request_;
};

// What an exchange came to, before anything is decoded. A plain value: any thread.
struct DefaultDataResponse {
  std::optional<Foundation::HTTPURLResponse> response{};  // absent when no answer came
  std::optional<Foundation::Data> data{};                 // the body as far as it came
  std::optional<Foundation::NSError> error{};             // what ended the exchange, or what validation found
};

// \cond
// An answer as the session delivers it. `error` is set where the call failed before it was sent; of what went wrong
// later there is the failure, from which the error is made for those who ask for it.
struct RawResponse : DefaultDataResponse {
  std::optional<Foundation::Failure> failure{};
  std::string words{};  // libcurl's own for the failure; empty without any, or without memory for them
};
// \endcond

// A request whose answer has a body. Made and owned by a session until the answer has come, and by whoever keeps it.
// Every member may be called from any thread.
class HALVERNAPI_EXPORT DataRequest : public Request,
                                      public Promissum::Cancellable,
                                      public std::enable_shared_from_this<DataRequest> {
 public:
  // \cond
  // The answer's shared state; it always comes to a value.
  using Answer = Promissum::PromiseState<RawResponse, Foundation::Unit>;
  // \endcond

  // What makes a T of the answer's JSON, such as a record's `decodeJson`.
  template <class T>
  using Decoder = std::function<Foundation::Expected<T, Statham::JsonDecodeError>(const Statham::JsonValue&)>;
  // \cond
  template <class T>
  using Decoded = Foundation::Expected<T, Promissum::ErrorResponse>;
  // \endcond

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

  // \cond
  // The same, but for what `conclude` makes of a Decoded<T> and the answer: another Expected. Spares the promise that
  // `mapResult` would make.
  template <class T, class Conclude>
  auto decodedPromise(Decoder<T> decoder, Conclude conclude) {
    using Result = std::invoke_result_t<Conclude&, Decoded<T>, const DefaultDataResponse&>;
    using Promise = Promissum::Promise<typename Result::value_type, typename Result::error_type>;
    boost::intrusive_ptr<typename Promise::State> result(new
                                                         typename Promise::State(answer_->queue(), weak_from_this()));
    answer_->whenSettled(Answer::Kind::continuation,
                         [self = shared_from_this(), validated = validated_.load(), result,
                          decoder = std::move(decoder), conclude](const Answer::Result& answer) {
                           result->settle(conclude(self->decode<T>(*answer, validated, decoder), *answer));
                         });
    return Promise(std::move(result));
  }
  // \endcond

 protected:
  // \cond
  // JSON values of the answer take at most `maxJsonBytes`.
  DataRequest(std::optional<URLRequest> request, Promissum::PromiseCore::Queue queue, std::size_t maxJsonBytes);

  const boost::intrusive_ptr<Answer> answer_;
  // \endcond

 private:
  template <class T>
  Decoded<T> decode(const RawResponse& answer, bool validated, const Decoder<T>& decoder) {
    try {
      return json(answer, validated)
          .and_then([&](const std::shared_ptr<const Statham::JsonValue>& value) -> Decoded<T> {
            return decoder(*value).map_error(
                [&](Statham::JsonDecodeError&& error) { return errorResponse(std::move(error), answer); });
          });
    } catch (...) {
      return Decoded<T>(Foundation::unexpect, currentException());
    }
  }

  // The rest belongs to the callbacks of the answer, which run one at a time.
  Decoded<std::shared_ptr<const Statham::JsonValue>> json(const RawResponse& answer, bool validated);
  void show(const RawResponse& answer, bool validated, const std::function<void(const DefaultDataResponse&)>& handler);
  std::optional<Foundation::NSError> errorOf(const RawResponse& answer, bool validated);
  std::optional<Foundation::NSError> validationError(const RawResponse& answer);
  Promissum::ErrorResponse currentException();
  static Promissum::ErrorResponse errorResponse(std::variant<Foundation::NSError, Statham::JsonDecodeError> error,
                                                const RawResponse& answer);
  // Needs no memory the first time. `words` are said instead of the failure's if there are any, and memory for them.
  Foundation::NSError makeError(const Foundation::Failure& failure, std::string_view words = {});

  Foundation::NSError reserved_;  // memory for an error that has to be made when there is none
  const std::size_t maxJsonBytes_;
  std::atomic<bool> validated_ = false;
};

}  // namespace HalvernApi::Alamofire
