// Short solutions for common needs of applications, each with a test against the sandbox.
#include <gmock/gmock.h>

#include <HalvernApi/HalvernApi.hpp>
#include <HalvernApi/Testing/Sandbox.hpp>
#include <chrono>
#include <deque>
#include <mutex>

using namespace HalvernApi;
using namespace HalvernApi::Testing;
using namespace std::chrono_literals;
using testing::HasSubstr;

using Clock = std::chrono::steady_clock;

// Returns the result of a call, or of a chain of calls. Cancels the calls at the deadline.
template <class T>
Expected<T, Error> resultBy(Clock::time_point deadline, const Promise<T, Error>& calls) {
  const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
  if (!calls.waitFor(std::max(left, 0ms))) calls.cancel();
  return calls.get();
}

// Cancels the unfinished calls of a screen when the screen is closed. For one thread.
class Screen {
 public:
  Screen() = default;
  Screen(const Screen&) = delete;
  Screen& operator=(const Screen&) = delete;
  ~Screen() {
    for (const auto& cancel : cancels_) cancel();
  }
  template <class T>
  const Promise<T, Error>& show(const Promise<T, Error>& call) {
    cancels_.push_back([call] { call.cancel(); });
    return call;
  }

 private:
  std::vector<std::function<void()>> cancels_;
};

// Keeps updates until the service has accepted or rejected them. For one thread. `waiting` can be stored in a file.
struct Outbox {
  struct Update {
    // The day as text. The Date is created when the update is sent, because the time zone may change until then.
    std::string birthdate;
    Sex sex;
  };
  std::deque<Update> waiting;

  // Call it when the network is back. Returns false if updates remain: the service cannot be reached, reports an error,
  // or rejects the token.
  bool send(ApiService& service, const std::string& accessToken) {
    for (; !waiting.empty(); waiting.pop_front()) {
      const auto birthdate = JsonCodec<Date>::decodeJson(JsonValue(waiting.front().birthdate + "T00:00:00"));
      if (!birthdate) continue;
      const auto result = service.update(*birthdate, waiting.front().sex, accessToken).get();
      // After any error except a rejection, the update is sent again, even if it may have arrived: storing the same
      // values twice is harmless.
      if (!result && result.error().kind() != Error::Case::validationError) return false;
    }
    return true;
  }
};

// Collects the log lines of the library with the time since the start. `configuration` adds an id to all requests, so
// that they can be found in the log of the service. Create the object before the first call.
struct Trace {
  explicit Trace(std::string id) : mark(std::move(id)) {
    Environment::log = [this](const std::string& line) {
      const auto time = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start);
      const std::lock_guard lock(mutex);
      lines.push_back(mark + " +" + std::to_string(time.count()) + " ms " + line);
    };
  }
  URLSessionConfiguration configuration() const { return {.httpAdditionalHeaders = {{"X-Request-Id", mark}}}; }

  const std::string mark;
  const Clock::time_point start = Clock::now();
  std::mutex mutex;
  std::vector<std::string> lines;
};

class RecipesTest : public testing::Test {
 protected:
  RecipesTest() { server.addAccount("ada@example.com", "correct horse"); }
  Promise<AuthenticationResponse, Error> signIn(ApiService& with) {
    return with.login("ada@example.com", "correct horse", "app", "Tests");
  }

  Sandbox server;
  HttpApiService service{server.baseUrl(), {}, server.apiKey()};
};

TEST_F(RecipesTest, ADeadlineEndsAChainOfCalls) {
  const auto confirmed = [&] {
    return signIn(service).flatMap(
        [&](const AuthenticationResponse& account) { return service.checkIfValidated(account.accessToken()); });
  };
  EXPECT_TRUE(resultBy(Clock::now() + 1min, confirmed()));
  server.script(Operation::checkIfValidated, {.delay = 5min});
  const auto late = resultBy(Clock::now() + 200ms, confirmed());
  ASSERT_FALSE(late);
  EXPECT_EQ(late.error().platformError()->code, -999);
}

TEST_F(RecipesTest, ClosingAScreenCancelsItsCalls) {
  server.script(Operation::login, {.delay = 5min, .calls = 2});
  auto screen = std::make_unique<Screen>();
  const auto first = screen->show(signIn(service)), second = screen->show(signIn(service));
  ASSERT_TRUE(server.waitUntilSeen(Operation::login, 2, 1min));
  screen.reset();
  for (const auto& call : {first, second}) EXPECT_EQ(call.get().error().platformError()->code, -999);
}

TEST_F(RecipesTest, AnOutboxKeepsWhatWasNotSent) {
  const std::string token = signIn(service).get()->accessToken();
  Outbox outbox{{{"1980-05-17", Sex::female}, {"1980-05-18", Sex::male}}};
  server.script(Operation::update, {.drop = true, .calls = Script::always});
  EXPECT_FALSE(outbox.send(service, token));
  EXPECT_EQ(outbox.waiting.size(), 2U);
  server.reset();
  server.script(Operation::update, {.answer = Answer{.status = 503}});
  EXPECT_FALSE(outbox.send(service, token));
  EXPECT_FALSE(outbox.send(service, "a token that is refused"));
  EXPECT_EQ(outbox.waiting.size(), 2U);
  EXPECT_TRUE(outbox.send(service, token));
  EXPECT_EQ(server.seen(Operation::update).size(), 4U);
  EXPECT_THAT(signIn(service).get()->dateOfBirth(), testing::Optional(testing::_));
}

TEST_F(RecipesTest, ATraceFollowsACallFromEndToEnd) {
  Trace trace("8f14");
  {
    HttpApiService traced(server.baseUrl(), trace.configuration(), server.apiKey());
    EXPECT_TRUE(signIn(traced).get());
  }
  Environment::log = nullptr;
  ASSERT_EQ(trace.lines.size(), 3U);
  EXPECT_THAT(trace.lines.front(), HasSubstr(" ms POST Optional(" + server.baseUrl()));
  EXPECT_THAT(trace.lines.back(), HasSubstr(" ms STATUS 200 Optional(" + server.baseUrl()));
  EXPECT_EQ(server.seen().back().header("X-Request-Id"), "8f14");
}
