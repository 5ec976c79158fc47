// Decodes the input as each record. A record that is encoded and decoded again must be equal. The description of a
// failure must not contain any of the values.
#undef NDEBUG
#include <algorithm>
#include <cassert>
#include <ctime>

#include "HalvernApi/ErrorCodeResponse.hpp"
#include "HalvernApi/HalvernApi.hpp"
#include "HalvernApi/Platform/Statham/JsonText.hpp"

using namespace HalvernApi;

static constexpr std::string_view secret = "~secret~";

static void putSecrets(JsonValue& json) {
  if (json.is_string()) json = boost::json::string_view(secret);
  if (auto* const array = json.if_array()) std::for_each(array->begin(), array->end(), putSecrets);
  if (auto* const object = json.if_object())
    for (auto& member : *object) putSecrets(member.value());
}

template <class Record>
static void checkAs(std::string_view body, const JsonValue& json, const JsonValue& secrets) {
  const auto record = Record::decodeJson(json);
  const auto outlived = Record::decodeJson(*Statham::parseJson(body));
  assert(outlived == record || Record::decodeJson(json) != record);  // or a number is NaN, which is not equal to itself
  assert(decode<Record>(dataOf(body), Record::decodeJson).has_value() == record.has_value());
  const auto other = Record::decodeJson(secrets);
  assert(other || other.error().description().find(secret) == std::string::npos);
  assert(record || !record.error().description().empty());
  if (record) assert(Record::decodeJson(*Statham::parseJson(*Statham::writeJson(record->encodeJson()))) == record);
}

extern "C" int LLVMFuzzerTestOneInput(const char* bytes, std::size_t size) {
  const std::string_view input(bytes, size);
  const std::clock_t start = std::clock();
  const auto document = Statham::parseJson(input);
  assert(std::clock() - start < CLOCKS_PER_SEC);  // even if the hashes of keys collide
  assert(document || !document.error().description.empty());
  if (!document) return 0;
  JsonValue secrets = *document;
  putSecrets(secrets);
  const auto checkAll = [&]<class... Records>() { (checkAs<Records>(input, *document, secrets), ...); };
  checkAll.operator()<AuthenticationResponse, ForgotPasswordResponse, ValidatedEmailResponse, ServerErrorResponse,
                      ConfigurationResponse, Audiogram, FrequencyVolumePair>();
  return 0;
}
