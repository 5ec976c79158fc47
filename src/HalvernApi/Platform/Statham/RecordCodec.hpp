#pragma once

#include <tuple>
#include <type_traits>

#include "HalvernApi/Platform/Statham/JsonDecoder.hpp"

namespace HalvernApi::Statham {

// One key of a record. `field` creates it.
template <class Record, class Result>
struct Field {
  // \cond
  using RecordType = Record;
  using Value = std::decay_t<Result>;
  std::string_view key;
  Result (Record::*get)() const;
  // \endcond
};

// Returns a field of a record: its key and its getter. The return type of the getter selects the JsonCodec of the
// value. If it is a std::optional, the key is optional.
template <class Record, class Result>
constexpr Field<Record, Result> field(std::string_view key, Result (Record::*get)() const) {
  return {key, get};
}

// \cond
template <class T>
struct IsOptional : std::false_type {};
template <class T>
struct IsOptional<std::optional<T>> : std::true_type {};
// \endcond

// Decodes and encodes records of one type. The fields must have the order of the arguments of the record's constructor.
// Immutable: any thread.
//
//     constexpr RecordCodec codec("Pair", field("left", &Pair::left), field("right", &Pair::right));
template <class... Fields>
class RecordCodec {
 public:
  // The type that the getters belong to.
  using Record = std::common_type_t<typename Fields::RecordType...>;

  // `type` is the record's name in errors. `type` and the keys must outlive the codec.
  explicit constexpr RecordCodec(std::string_view type, Fields... fields) : type_(type), fields_(fields...) {}

  // Fails with wrongType if `json` is not an object, and with structErrors if keys are bad. The structErrors contain
  // every bad key. An optional key may be missing or null. Unknown keys are ignored.
  Decoded<Record> decode(const JsonValue& json) const {
    Decoded<JsonDecoder> decoder = JsonDecoder::make(json);
    if (!decoder) return Foundation::Unexpected<JsonDecodeError>(std::move(decoder).error());
    return std::apply(
        [&](const Fields&... fields) -> Decoded<Record> {
          // Initialisers in braces are evaluated from left to right. Every key is read, even if an earlier one is bad.
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

  // Writes every key in the order of the fields, with null for absent values.
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
