// Compares decoding and encoding of each record with parse and serialize of Boost.JSON on the same bytes. Also measures
// Base64.
#include <benchmark/benchmark.h>

#include <HalvernApi/HalvernApi.hpp>
#include <boost/json/parse.hpp>
#include <boost/json/serialize.hpp>

#include "HalvernApi/Platform/Statham/JsonText.hpp"

namespace {

using namespace HalvernApi;

const std::string session =
    R"({"isSuccessful":true,"isEmailConfirmed":true,"accessToken":"0123456789abcdef0123456789abcdef",)"
    R"("refreshToken":"fedcba9876543210fedcba9876543210","dateOfBirth":"1980-05-17T00:00:00","sex":"Female",)"
    R"("email":"somebody@example.com"})";
const std::string flag = R"({"result":true})";
const std::string rejection = R"({"errorCode":17,"message":"Rejected.","validationErrors":["One.","Two."]})";
const std::string audiogram =
    R"({"orientation":"Left","serialNumber":"L-1","tube":"M2","values":[{"frequency":250,"volume":20.5},)"
    R"({"frequency":500,"volume":25},{"frequency":1000,"volume":35.5},{"frequency":2000,"volume":50},)"
    R"({"frequency":4000,"volume":65.5},{"frequency":8000,"volume":70}]})";

std::string configuration(std::size_t characters) {
  return R"({"leftConfiguration":")" + std::string(characters, 'Q') + R"(","rightConfiguration":null})";
}

void parse(benchmark::State& state, const std::string& text) {
  for ([[maybe_unused]] const auto _ : state) benchmark::DoNotOptimize(boost::json::parse(text));
}

template <class Record>
void decode(benchmark::State& state, const std::string& text) {
  for ([[maybe_unused]] const auto _ : state) {
    auto record = Record::decodeJson(*Statham::parseJson(text));
    if (!record) state.SkipWithError("does not decode");
    benchmark::DoNotOptimize(record);
  }
}

void serialize(benchmark::State& state, const std::string& text) {
  const auto value = boost::json::parse(text);
  for ([[maybe_unused]] const auto _ : state) benchmark::DoNotOptimize(boost::json::serialize(value));
}

template <class Record>
void encode(benchmark::State& state, const std::string& text) {
  const auto record = *Record::decodeJson(boost::json::parse(text));
  for ([[maybe_unused]] const auto _ : state) benchmark::DoNotOptimize(Statham::writeJson(record.encodeJson()));
}

template <class Record>
void addRecord(const std::string& name, const std::string& text) {
  benchmark::RegisterBenchmark(("parse/" + name).c_str(), [text](auto& state) { parse(state, text); });
  benchmark::RegisterBenchmark(("decode/" + name).c_str(), [text](auto& state) { decode<Record>(state, text); });
  benchmark::RegisterBenchmark(("serialize/" + name).c_str(), [text](auto& state) { serialize(state, text); });
  benchmark::RegisterBenchmark(("encode/" + name).c_str(), [text](auto& state) { encode<Record>(state, text); });
}

void base64(benchmark::State& state) {
  const ConfigurationResponse response(std::string(std::size_t{1} << 20, 'Q'), std::nullopt);
  for ([[maybe_unused]] const auto _ : state) benchmark::DoNotOptimize(response.leftData());
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) << 20);
}

}  // namespace

int main(int argc, char** argv) {
  addRecord<AuthenticationResponse>("AuthenticationResponse", session);
  addRecord<ForgotPasswordResponse>("ForgotPasswordResponse", flag);
  addRecord<ValidatedEmailResponse>("ValidatedEmailResponse", flag);
  addRecord<ServerErrorResponse>("ServerErrorResponse", rejection);
  addRecord<Audiogram>("Audiogram", audiogram);
  addRecord<ConfigurationResponse>("ConfigurationResponse-128KiB", configuration(std::size_t{128} << 10));
  benchmark::RegisterBenchmark("base64", base64);
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
}
