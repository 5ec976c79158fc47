// How calls fare with a network and servers that misbehave, and what is left of them afterwards.
#include <signal.h>
#include <sys/resource.h>

#include <fstream>

#include "Support.hpp"

namespace HalvernApi::Tests {
namespace {

Answer text(std::string bytes) { return {{Step::send, std::move(bytes)}}; }

// 200, with these headers besides, and whatever follows the header block.
Answer raw(const std::string& headers, const std::string& rest) {
  return text("HTTP/1.1 200 OK\r\nContent-Type: application/json\r\n" + headers + "\r\n" + rest);
}

Answer redirect(int status, const std::string& target) {
  return text("HTTP/1.1 " + std::to_string(status) + " Moved\r\nLocation: " + target + "\r\nContent-Length: 0\r\n\r\n");
}

Answer operator+(Answer answer, Step step) {
  answer.push_back(std::move(step));
  return answer;
}

TEST(TimeLimits, AreTotalAtEveryStage) {
  constexpr auto limit = 500ms;
  const URLSessionConfiguration silence{.timeoutIntervalForRequest = limit}, whole{.timeoutIntervalForResource = limit};
  Trap lookingUp(Stage::lookingUp, 2), connecting(Stage::connecting, 2), waiting(Stage::waiting, 2);
  ScriptedServer dripping({{{Step::drip, json(std::string(1000, ' '))[0].bytes, 20ms}}});
  std::vector<std::pair<std::string, URLSessionConfiguration>> rows = {{dripping.url(), whole}};
  for (const Trap* trap : {&lookingUp, &connecting, &waiting})
    rows.insert(rows.end(), {{trap->url(), silence}, {trap->url(), whole}});

  std::vector<std::unique_ptr<SessionManager>> sessions;
  std::vector<Promise<Unit, Error>> calls;
  std::vector<std::atomic<Clock::duration>> taken(rows.size());
  for (std::size_t row = 0; row < rows.size(); ++row) {
    sessions.push_back(std::make_unique<SessionManager>(rows[row].second));
    const auto start = Clock::now();
    calls.push_back(call(*sessions[row], rows[row].first));
    calls[row].finally([&time = taken[row], start] { time = Clock::now() - start; });
  }
  for (std::size_t row = 0; row < rows.size(); ++row) {
    SCOPED_TRACE(testing::Message() << "row " << row << ", " << rows[row].first);
    EXPECT_EQ(outcomeOf(calls[row]), timedOut);
    ASSERT_TRUE(eventually([&] { return taken[row].load().count() > 0; }));
    EXPECT_GE(taken[row].load(), limit - 1ms);  // libcurl counts in whole ones
    EXPECT_LE(taken[row].load(), limit + limit / 5 * slowness());
  }
}

TEST(TimeLimits, OfSilenceBeginAnewWithEveryHeaderAndEveryByteOfTheBody) {
  Answer answer = text("HTTP/1.1 200 OK\r\n");
  for (int header = 0; header < 16; ++header)
    answer.insert(answer.end(), {{Step::pause, {}, 40ms}, {Step::send, "X: y\r\n"}});
  answer.insert(answer.end(), {{Step::send, "Content-Type: application/json\r\nContent-Length: 16\r\n\r\n"},
                               {Step::drip, "{              }", 40ms}});
  ScriptedServer server({answer});
  SessionManager session({.timeoutIntervalForRequest = 600ms});
  EXPECT_EQ(outcomeOf(call(session, server.url())), "success");  // after more than twice that time
}

TEST(TimeLimits, OfSilenceBeginAnewWithEveryPieceThatIsTakenOfALargeBody) {
  constexpr std::size_t size = 16 << 20;  // more than the system takes at once
  Listener listener(false);
  std::thread slowReader([&] {
    auto socket = listener.acceptor.accept();
    std::string piece(size / 32, '\0');
    for (int count = 0; count < 12; ++count) {
      boost::asio::read(socket, boost::asio::buffer(piece));
      std::this_thread::sleep_for(100ms);  // the reader's pace, not silence
    }
  });
  SessionManager session({.timeoutIntervalForRequest = 500ms});
  EXPECT_EQ(outcomeOf(call(session, listener.url(), std::string(size, 'x'))),
            lost);  // when the reader ends, not before
  slowReader.join();
}

TEST(TimeLimits, LeaveEveryAddressOfAHostItsShare) {
  ScriptedServer server({json("{}")});
  const std::string port = server.authority().substr(server.authority().find(':'));
  const Listener full(true, "127.0.0.2", std::stoi(port.substr(1)));
  SessionManager session({.timeoutIntervalForRequest = 3s});
  EXPECT_EQ(outcomeOf(call(session, "http://two.example" + port)), "success");
}

TEST(Connections, AreNoMoreThanTheyMayBe) {
  ScriptedServer server({heldAnswer});
  SessionManager session({.httpMaximumConnectionsPerHost = 3});
  std::vector<Promise<Unit, Error>> calls;
  for (int number = 0; number < 20; ++number) calls.push_back(call(session, server.url()));
  const auto last = call(session, server.url());
  last.cancel();
  EXPECT_EQ(outcomeOf(last), cancelled);  // and so the others have begun
  server.release();
  for (const auto& promise : calls) EXPECT_EQ(outcomeOf(promise), "success");
  EXPECT_EQ(server.connections(), 3);
}

TEST(Connections, OfAThousandFailingCallsLeaveNoDescriptorBehind) {
  ScriptedServer server({{closing}, {{Step::reset}}, raw("Content-Length: 9\r\n", "{") + closing, {closing}});
  SessionManager session({});
  const auto failMany = [&](int times) {
    for (int number = 0; number < times; ++number) {
      EXPECT_EQ(outcomeOf(call(session, "http://127.0.0.1:1")), refused);
      EXPECT_EQ(outcomeOf(call(session, server.url())), lost);
    }
  };
  failMany(4);
  const std::size_t before = Holdings().descriptors.size();
  failMany(500);
  EXPECT_TRUE(eventually([&] { return Holdings().descriptors.size() <= before; })) << before;
}

TEST(Connections, ThatEndOrSpeakWhileIdleAreNotUsedAgain) {
  const Identity identity;
  const Listener full(true);
  for (const auto& channels : {std::shared_ptr<ssl_ctx_st>(), identity.channels})
    for (const int status : {0, 408, 500})  // of an answer that nobody asked for
      for (const std::size_t size : {4UL, 400'000UL}) {
        SCOPED_TRACE(testing::Message() << (channels ? "TLS, " : "plain, ") << status << ", " << size);
        const Answer unasked = {{Step::pause, {}, 5ms}, http(status, "application/json", "{}")[0]};
        Answer answer = json("{}");
        if (status != 0) answer.insert(answer.end(), unasked.begin(), unasked.end());
        ScriptedServer server({answer + closing}, channels);
        SessionManager session({.certificateAuthorityFile = identity.file()});
        const auto pending = call(session, full.url());  // over a connection that is not made
        for (std::size_t number = 1; number <= 30; ++number) {
          ASSERT_EQ(outcomeOf(call(session, server.url(), std::string(size, 'x'))), "success") << number;
          ASSERT_TRUE(server.awaitClosed(number));
        }
        EXPECT_EQ(server.requests().size(), 30);
        EXPECT_EQ(server.connections(), 30);
      }
}

TEST(Requests, ThatAServerMayHaveSeenAreNotSentAgain) {
  std::vector<Answer> answers(6, heldAnswer);
  answers.push_back({closing});
  ScriptedServer server(answers);
  SessionManager session({});
  std::vector<Promise<Unit, Error>> calls;
  for (int number = 0; number < 6; ++number) calls.push_back(call(session, server.url()));
  ASSERT_TRUE(server.awaitRequests(6));
  server.release();
  for (const auto& promise : calls) EXPECT_EQ(outcomeOf(promise), "success");
  for (std::size_t sent = 7; sent <= 9; ++sent) {  // each over a connection that was kept
    EXPECT_EQ(outcomeOf(call(session, server.url(), "once")), lost);
    EXPECT_EQ(server.requests().size(), sent);
  }
  EXPECT_EQ(server.connections(), 6);
}

TEST(Proxies, AreToldTheirUserAndPasswordAndTheWholeUrl) {
  ScriptedServer proxy({json("{}")});
  SessionManager session({.proxyUrl = "http://us%65r:pass:word@" + proxy.authority()});
  EXPECT_EQ(outcomeOf(call(session, "http://no.such.example:81/a?b")), "success");
  const Received received = proxy.requests().at(0);
  EXPECT_EQ(received.line, "POST http://no.such.example:81/a?b HTTP/1.1");
  EXPECT_EQ(received.headers.find("proxy-authorization")->second, "Basic dXNlcjpwYXNzOndvcmQ=");
}

TEST(Proxies, ThatCannotBeReadFailEveryCallBeforeALookUp) {
  for (const char* proxy :
       {"", "http://", "http://[::1", "ftp://127.0.0.1:1", "http://a b", "http://no.such.example:x"}) {
    SessionManager session({.proxyUrl = proxy});
    EXPECT_EQ(outcomeOf(call(session, "http://no.such.example")), "network NSURLErrorDomain -1000") << proxy;
  }
}

TEST(Signals, DoNotComeFromAPeerThatResetsAndAreLeftAlone) {
  const auto actions = [] {
    std::vector<std::pair<void (*)(int), int>> all(NSIG);
    for (int number = 1; number < NSIG; ++number) {
      struct sigaction action {};
      sigaction(number, nullptr, &action);
      all[static_cast<std::size_t>(number)] = {action.sa_handler, action.sa_flags};
    }
    return all;
  };
  const auto before = actions();
  ASSERT_EQ(before[SIGPIPE].first, SIG_DFL);
  const Identity identity;
  ScriptedServer server({json("{}")}, identity.channels, {{Step::reset}});
  SessionManager session({.certificateAuthorityFile = identity.file()});
  for (int number = 0; number < 30; ++number)
    EXPECT_EQ(outcomeOf(call(session, server.url(), std::string(1 << 20, 'x'))), lost);
  EXPECT_EQ(actions(), before);
}

TEST(Signals, AreNotDeliveredToThreadsOfTheLibrary) {
  const Trap trap(Stage::lookingUp, 1);
  const auto before = entries("/proc/self/task");
  SessionManager session({});
  EXPECT_EQ(outcomeOf(call(session, "http://127.0.0.1:1")), refused);
  const auto pending = call(session, trap.url());
  ASSERT_TRUE(eventually([] { return lookupsUnderWay == 1; }));
  int seen = 0;
  for (const std::string& thread : entries("/proc/self/task")) {
    if (before.count(thread) != 0) continue;
    std::ifstream status("/proc/self/task/" + thread + "/status");
    const std::string words(std::istreambuf_iterator<char>(status), {});
    auto left = ~std::stoull(words.substr(words.find("SigBlk:") + 7), nullptr, 16);
    // Faults, what cannot be blocked, and two of the C library's own.
    for (const int number : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGABRT, SIGKILL, SIGSTOP, 32, 33})
      left &= ~(1ULL << (number - 1));
    EXPECT_EQ(left, 0);
    ++seen;
  }
  EXPECT_EQ(seen, 3);  // input and output, handlers, the look-up
  pending.cancel();
}

TEST(Redirects, ToTheSameOriginAreFollowedAsTheStandardHasIt) {
  constexpr auto post = HTTPMethod::post, put = HTTPMethod::put;
  const std::vector<std::tuple<int, HTTPMethod, std::string>> rows = {
      {301, post, "GET"}, {302, post, "GET"}, {303, post, "GET"}, {307, post, "POST"}, {308, post, "POST"},
      {301, put, "PUT"},  {302, put, "PUT"},  {303, put, "GET"},  {308, put, "PUT"}};
  SessionManager session({});
  for (const auto& [status, method, followedBy] : rows) {
    SCOPED_TRACE(testing::Message() << status << ' ' << rawValue(method));
    ScriptedServer server({redirect(status, "/next?a=b"), json("{}")});
    EXPECT_EQ(outcomeOf(call(session, server.url() + "/first", "secret", method)), "success");
    ASSERT_EQ(server.requests().size(), 2);
    const Received second = server.requests()[1];
    const bool withBody = followedBy != "GET";
    EXPECT_EQ(second.line, followedBy + " /next?a=b HTTP/1.1");
    EXPECT_EQ(second.body, withBody ? R"({"text":"secret"})" : "");
    EXPECT_EQ(second.headers.count("content-type"), withBody ? 1 : 0);
    EXPECT_EQ(second.headers.count("access-token"), 1);
  }
}

TEST(Redirects, ToAnotherOriginAreTheAnswerAndLoopsEnd) {
  ScriptedServer elsewhere({json("{}")});
  SessionManager session({});
  const std::string authority = elsewhere.authority(), port = authority.substr(authority.find(':'));
  for (const std::string& target :
       {elsewhere.url(), "//" + authority, "https://" + authority, "ftp://" + authority, "http://localhost" + port,
        "http://127.0.0.1" + port + "@" + authority, std::string("http://127.0.0.1"),
        std::string("file:///etc/hostname"), std::string("http://[")}) {
    ScriptedServer server({redirect(307, target)});
    EXPECT_EQ(outcomeOf(call(session, server.url(), "secret")), invalid) << target;
    EXPECT_EQ(server.requests().size(), 1);
  }
  EXPECT_EQ(elsewhere.connections(), 0);
  ScriptedServer endless({redirect(307, "/again")});
  EXPECT_EQ(outcomeOf(call(session, endless.url())), "network NSURLErrorDomain -1007");
  EXPECT_EQ(endless.requests().size(), 17);
}

// A header that continues the last one of the answer before, over the same session.
TEST(HostileAnswers, ThatBeginWithAFoldedHeaderReachNoOtherAnswer) {
  const Answer folded =
      text("HTTP/1.1 200 OK\r\n folded: nothing\r\nContent-Type: application/json\r\nContent-Length: 2\r\n\r\n{}");
  ScriptedServer server({json("{}"), folded, redirect(307, "/"), folded, json("{}")});
  HttpApiService service(server.url(), {}, "key");
  for (const bool orderly : {true, false, false, true}) {
    EXPECT_TRUE(service.resendValidationEmail("token").get() || !orderly);
  }
}

// What a decoder keeps of the JSON that it was given is its own, whatever is read afterwards on the same thread.
TEST(HostileAnswers, AreGoneWithTheirDecodersButNotWhatThoseKept) {
  const std::string texts[] = {std::string(100, 'x'), std::string(100, 'y')};
  ScriptedServer server({json('"' + texts[0] + '"'), json('"' + texts[1] + '"')});
  SessionManager session({});
  const auto call = [&] {
    auto kept = request<JsonValue>(session, server.url(), HTTPMethod::post, {}, JSONEncoding::default_(), {}, {},
                                   [](const JsonValue& value) { return Expected<JsonValue, JsonDecodeError>(value); });
    EXPECT_TRUE(kept.waitFor(10s));
    return kept;
  };
  const auto first = call(), second = call();
  EXPECT_EQ(first.get(), JsonValue(texts[0]));
  EXPECT_EQ(second.get(), JsonValue(texts[1]));
}

TEST(HostileAnswers, EachComeToOneOutcomeInBoundedMemory) {
  constexpr std::size_t maxSize = 64 << 10, large = 2 << 20;
  const std::string badCoding = "network NSURLErrorDomain -1016", tooLarge = "network NSURLErrorDomain -1103";
  const std::string full = "{\"result\":true}" + std::string(maxSize - 15, ' ');
  const std::string length = "Content-Length: " + std::to_string(maxSize), inChunks = "Transfer-Encoding: chunked\r\n";
  std::vector<std::tuple<std::string, Answer, std::string>> rows = {
      {"as large as it may be", raw(length + "\r\n", full), "success"},
      {"as large without a length", raw("", full), "success"},
      {"announced as larger", raw(length + "0\r\n", ""), tooLarge},
      {"a byte larger without a length", raw("", full + ' '), tooLarge},
      {"broken compression", raw("Content-Encoding: deflate\r\n", "\x78\x9c" + std::string(40, 'x')), badCoding},
      {"cut short in a chunk", raw(inChunks, "f\r\n{\"result\""), lost},
      {"a length that is none", raw("Content-Length: -1\r\n", "{}"), badAnswer},
      {"headers without end", raw(repeat("X: " + std::string(1000, 'x') + "\r\n", 2000), ""), badAnswer},
      {"a header without end", text("HTTP/1.1 200 OK\r\nX: " + std::string(large, ' ')), badAnswer},
      {"1xx without end", text(repeat("HTTP/1.1 103 Early Hints\r\nX: y\r\n\r\n", 60'000)), badAnswer},
      {"60,000 arrays in each other", raw("", std::string(60'000, '[')), notJson},
      {"more values than may take up memory", raw("", '[' + repeat("0,", maxSize / 2 - 1) + "0]"), tooLarge}};
  // What the fuzz target begins with.
  const std::filesystem::path corpus = std::filesystem::path(__FILE__).parent_path() / "../../fuzz/corpus/answers";
  const std::vector<std::pair<std::string, std::vector<const char*>>> seeds = {
      {"success",
       {"100-then-200", "103-then-200", "200-charset", "200-chunked", "200-deflate", "200-gzip", "200-hsts",
        "200-record", "200-until-close", "204", "205", "folded-header", "http-1.0", "two-lengths"}},
      {lost, {"101", "200-cut", "nothing"}},
      {badCoding, {"200-gzip-two-members"}},  // libcurl decodes no more than one
      {tooLarge, {"200-bomb", "200-brotli-bomb", "200-zstd-bomb"}},
      {badAnswer, {"200-folded-first", "http-0.9"}},
      {notJson, {"200-empty", "200-gzip-cut", "200-not-json"}},
      {invalid, {"200-html", "302-elsewhere", "304", "400-code", "403"}},
      {"validationError No.", {"400-message"}},
      {"notAuthorized", {"401"}}};
  for (const auto& [outcome, names] : seeds)
    for (const char* name : names) {
      std::ifstream file(corpus / name, std::ios::binary);
      rows.emplace_back(name, text({std::istreambuf_iterator<char>(file), {}}), outcome);
    }
  rusage before{}, after{};
  getrusage(RUSAGE_SELF, &before);
  for (const auto& [what, answer, outcome] : rows) {
    ScriptedServer server({answer + closing});
    SessionManager session({.timeoutIntervalForRequest = 5s * slack, .maximumResponseSize = maxSize});
    EXPECT_EQ(outcomeOf(call(session, server.url())), outcome) << what;
  }
  getrusage(RUSAGE_SELF, &after);
  EXPECT_LT(after.ru_maxrss - before.ru_maxrss, 32 * 1024 * slack) << "KiB, from " << before.ru_maxrss;
}

}  // namespace
}  // namespace HalvernApi::Tests
