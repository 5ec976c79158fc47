// One walker for all records: a record lists its fields once, in declaration order, and is decoded and encoded by it.
//
//   constexpr RecordCodec codec("Pair", field("left", &Pair::left), field("right", &Pair::right));
//
// The type that a getter returns names the codec of the value and says whether the key is optional.
#pragma once

#include <tuple>
#include <type_traits>

#include "HalvernApi/Platform/Statham/JsonDecoder.hpp"

namespace HalvernApi::Statham {

template <class Record, class Result>
struct Field {
  using RecordType = Record;
  using Value = std::decay_t<Result>;
  std::string_view key;
  Result (Record::*get)() const;
};

template <class Record, class Result>
constexpr Field<Record, Result> field(std::string_view key, Result (Record::*get)() const) {
  return {key, get};
}

template <class T>
struct IsOptional : std::false_type {};
template <class T>
struct IsOptional<std::optional<T>> : std::true_type {};

template <class... Fields>
class RecordCodec {
 public:
  using Record = std::common_type_t<typename Fields::RecordType...>;

  explicit constexpr RecordCodec(std::string_view type, Fields... fields) : type_(type), fields_(fields...) {}

  Decoded<Record> decode(const JsonValue& json) const {
    Decoded<JsonDecoder> decoder = JsonDecoder::make(json);
    if (!decoder) return Foundation::Unexpected<JsonDecodeError>(std::move(decoder).error());
    return std::apply(
        [&](const Fields&... fields) -> Decoded<Record> {
          // Braces: the keys are read from left to right, each of them whatever became of those before.
          std::tuple<std::optional<typename Fields::Value>...> values{read(*decoder, fields)...};
          return std::apply(
              [&](auto&... value) -> Decoded<Record> {
                if ((value.has_value() && ...)) return Decoded<Record>(Foundation::in_place, *std::move(value)...);
                return Foundation::Unexpected<JsonDecodeError>(
                    JsonDecodeError::structErrors(std::string(type_), decoder->errors()));
              },
              values);
        },
        fields_);
  }

  JsonObject encode(const Record& record) const {
    JsonObject object;
    object.reserve(sizeof...(Fields));
    std::apply(
        [&](const Fields&... fields) {
          (object.emplace(fields.key, JsonCodec<typename Fields::Value>::encodeJson((record.*fields.get)())), ...);
        },
        fields_);
    return object;
  }

 private:
  template <class F>
  static std::optional<typename F::Value> read(JsonDecoder& decoder, const F& field) {
    using Codec = JsonCodec<typename F::Value>;
    if constexpr (IsOptional<typename F::Value>::value)
      return decoder.optional(field.key, Codec::decodeJson);
    else
      return decoder.required(field.key, Codec::decodeJson);
  }

  std::string_view type_;
  std::tuple<Fields...> fields_;
};

}  // namespace HalvernApi::Statham
