// Bytes as the body of an answer, read as every record. A record survives the way back through text; a failure is
// described without a word of the values.
#include "HalvernApi/ErrorCodeResponse.hpp"
#include "HalvernApi/HalvernApi.hpp"
#include "HalvernApi/Platform/Statham/JsonText.hpp"
#include "Support.hpp"

namespace HalvernApi::Fuzz {
namespace {

constexpr std::string_view secret = "~secret~";

void putSecrets(JsonValue& json) {
  if (json.is_string()) json = boost::json::string_view(secret);
  if (auto* const array = json.if_array()) std::for_each(array->begin(), array->end(), putSecrets);
  if (auto* const object = json.if_object())
    for (auto& member : *object) putSecrets(member.value());
}

template <class Record>
void checkAs(std::string_view body, const JsonValue& json, const JsonValue& secrets) {
  const auto record = Record::decodeJson(json);
  const auto outlived = Record::decodeJson(*Statham::parseJson(body));
  require(outlived == record || Record::decodeJson(json) != record /* holds NaN */, "what is decoded stands alone");
  const auto* const bytes = reinterpret_cast<const std::byte*>(body.data());
  require(decode<Record>(Data(bytes, bytes + body.size()), Record::decodeJson).has_value() == record.has_value(),
          "decode(Data) takes what decodeJson takes");
  const auto other = Record::decodeJson(secrets);
  require(other || other.error().description().find(secret) == std::string::npos, "a failure quotes no value");
  if (!record) return require(!record.error().description().empty(), "a failure is described");
  const auto text = Statham::writeJson(record->encodeJson());
  require(text.has_value(), "a record can be written");
  const auto written = Statham::parseJson(*text);
  require(written.has_value(), "a written record is JSON");
  require(Record::decodeJson(*written) == record, "a record survives");
}

}  // namespace

void check(std::string_view input) {
  const auto document = Statham::parseJson(input);
  require(document || !document.error().description.empty(), "a text that is not JSON is described");
  if (!document) return;
  JsonValue secrets = *document;
  putSecrets(secrets);
  const auto checkAll = [&]<class... Records>() { (checkAs<Records>(input, *document, secrets), ...); };
  checkAll.operator()<AuthenticationResponse, ForgotPasswordResponse, ValidatedEmailResponse, ServerErrorResponse,
                      ConfigurationResponse, Audiogram, FrequencyVolumePair>();
}

}  // namespace HalvernApi::Fuzz
