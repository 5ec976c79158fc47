#pragma once

#include "HalvernApi/Platform/Alamofire/URLRequest.hpp"
#include "HalvernApi/Platform/Promissum/Promise.hpp"
#include "HalvernApi/Platform/Promissum/Responses.hpp"

namespace HalvernApi::Alamofire {

// A request that was started. Any thread may call its members.
class HALVERNAPI_EXPORT Request {
 public:
  virtual ~Request();
  Request(const Request&) = delete;
  Request& operator=(const Request&) = delete;

  // Absent if the given text was not a URL.
  const std::optional<URLRequest>& request() const { return request_; }

  // A curl command line for bug reports. Possible secrets are elided: the user information in the URL, the body, and
  // the values of all headers except harmless headers.
  std::string debugDescription() const;

 protected:
  // \cond
  explicit Request(std::optional<URLRequest> request) : request_(std::move(request)) {}
  // \endcond

 private:
  const std::optional<URLRequest> request_;
};

// The outcome of an exchange before decoding. A plain value: any thread.
struct DefaultDataResponse {
  std::optional<Foundation::HTTPURLResponse> response{};  // absent if no answer was received
  std::optional<Foundation::Data> data{};                 // the part of the body that was received
  std::optional<Foundation::NSError> error{};  // why the exchange or the validation failed; absent on success
};

// \cond
// The outcome as the transport reports it. `error` is set if the session rejected the request. All other errors are in
// `failure`, which needs no memory. Handlers receive an NSError that is created from `failure`.
struct RawResponse : DefaultDataResponse {
  std::optional<Foundation::Failure> failure{};
  std::string words{};  // libcurl's description of the failure; empty if there is none, or no memory for it
};
// \endcond

// A request whose answer has a body. A session creates it and keeps it alive until it is finished. Any thread may call
// its members.
class HALVERNAPI_EXPORT DataRequest : public Request,
                                      public Promissum::Cancellable,
                                      public std::enable_shared_from_this<DataRequest> {
 public:
  // \cond
  // The shared state of the answer. It always settles with a value, which contains the error if there is one.
  using Answer = Promissum::PromiseState<RawResponse, Foundation::Unit>;
  // \endcond

  // Makes a T from the JSON of the answer, such as a record's `decodeJson`.
  template <class T>
  using Decoder = std::function<Foundation::Expected<T, Statham::JsonDecodeError>(const Statham::JsonValue&)>;
  // \cond
  template <class T>
  using Decoded = Foundation::Expected<T, Promissum::ErrorResponse>;
  // \endcond

  // Handlers that are attached later receive AFError::responseValidationFailed if the status is not in 200..299, or if
  // the answer has a body and its media type does not match the header "Accept" of the request.
  DataRequest& validate();

  // Calls `handler` once on the completion queue, even if the answer has already been received.
  DataRequest& response(std::function<void(const DefaultDataResponse&)> handler);

  // Parses the body as JSON and decodes it. `decoder` runs on the completion queue. If it throws, the promise fails
  // with AFError::responseSerializationFailed, or with ENOMEM after std::bad_alloc.
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
  // Like responseJsonDecodePromise, but the promise settles with the Expected that `conclude` returns for a Decoded<T>
  // and the answer. `mapResult` would need another promise for this.
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
  // `maxJsonBytes` limits the memory for the JSON values of the answer.
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

  // Only callbacks of the answer use `reserved_` and the functions below. They run one at a time.
  Decoded<std::shared_ptr<const Statham::JsonValue>> json(const RawResponse& answer, bool validated);
  void show(const RawResponse& answer, bool validated, const std::function<void(const DefaultDataResponse&)>& handler);
  std::optional<Foundation::NSError> errorOf(const RawResponse& answer, bool validated);
  std::optional<Foundation::NSError> validationError(const RawResponse& answer);
  Promissum::ErrorResponse currentException();
  static Promissum::ErrorResponse errorResponse(std::variant<Foundation::NSError, Statham::JsonDecodeError> error,
                                                const RawResponse& answer);
  // The first call allocates no memory. The description is `words`, or the text of `failure` if `words` is empty or
  // memory runs out.
  Foundation::NSError makeError(const Foundation::Failure& failure, std::string_view words = {});

  Foundation::NSError reserved_;  // memory for an error, used when no other memory is left
  const std::size_t maxJsonBytes_;
  std::atomic<bool> validated_ = false;
};

}  // namespace HalvernApi::Alamofire
