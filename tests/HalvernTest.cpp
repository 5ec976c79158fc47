// Runs the program as a shell, a person at a terminal and a clinician would, against a sandbox in this process.
#include <gmock/gmock.h>
#include <poll.h>
#include <pty.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <termios.h>

#include <HalvernApi/HalvernApi.hpp>
#include <HalvernApi/Testing/Sandbox.hpp>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <map>
#include <regex>

using namespace HalvernApi::Testing;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;

namespace {

std::string contents(const char* file) {
  std::ifstream stream(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
}

class HalvernTest : public testing::Test {
 protected:
  HalvernTest() {
    EXPECT_NE(mkdtemp(directory.data()), nullptr);
    std::filesystem::current_path(directory);
    server.addAccount("ada@example.com", "correct horse");
    setenv("HALVERN", HALVERN_PROGRAM, 1);
    setenv("HALVERN_API_KEY", server.apiKey().c_str(), 1);
    setenv("AT", ("--base-url " + server.baseUrl()).c_str(), 1);
    setenv("LOGIN", ("login --email ada@example.com --base-url " + server.baseUrl()).c_str(), 1);
    const auto signedIn = HalvernApi::HttpApiService(server.baseUrl(), {}, server.apiKey())
                              .login("ada@example.com", "correct horse", "a", "b")
                              .get();
    setenv("HALVERN_ACCESS_TOKEN", signedIn->accessToken().c_str(), 1);
    setenv("PASSWORD", "--password-file password.txt", 1);
    std::ofstream("password.txt") << "correct horse\r\nsecond line\n";
    std::ofstream("points.json") << R"([{"orientation": "Right", "serialNumber": "R", "tube": "T", "values": [
        {"frequency": 4000, "volume": 45}, {"frequency": 500, "volume": 20}, {"frequency": 1000, "volume": 200},
        {"frequency": 16000, "volume": -30}]}, {"orientation": "Left", "serialNumber": "L", "tube": "T", "values": [
        {"frequency": 100, "volume": 10}, {"frequency": 500, "volume": 20}, {"frequency": 3000, "volume": 55}]},
        {"orientation": "Left", "serialNumber": "A<&\u007f", "tube": "T", "values": [{"frequency": 1000, "volume": 70}]}])";
    EXPECT_EQ(mkfifo("go", 0600), 0);
  }
  ~HalvernTest() override {
    std::filesystem::current_path(testing::TempDir());
    std::filesystem::remove_all(directory);
  }

  std::string directory = testing::TempDir() + "halvern.XXXXXX";
  Sandbox server;
};

TEST_F(HalvernTest, SaysWhatACallCameTo) {
  const Script no{.answer = Answer{.body = R"({"isSuccessful": false, "isEmailConfirmed": false, "accessToken": "",
                                               "refreshToken": "", "email": ""})"}};
  const Script attack{.answer = Answer{.status = 400, .body = R"({"errorCode": 1, "message": "a\u001b[2J\u009bb"})"}};
  const struct {
    const char* command;
    int status;
    std::string out, err;  // regular expressions
    Script script{};
  } cases[] = {
      {"HALVERN_PASSWORD=x h $LOGIN $PASSWORD", 0, R"(^\{"isSuccessful":true.*"email":"ada@example.com"\}.$)", "^$"},
      {"h $LOGIN $PASSWORD --json", 0, R"(^\{"isSuccessful":true.*,"sex":null,"email":.*\}.$)", "^$"},
      {"h resend-validation-email $AT --json", 0, R"(^\{\}.$)", "^$"},
      {"h profile $AT points.json --left-out left --chart svg --json", 0, R"(^\{"left[^ ]*\}.$)", "left ear: 12"},
      {"h demo", 0, "Every step came to what was expected", "^$"},
      {"h --version", 0, "^halvern [0-9.]+.$", "^$"},
      {"h $LOGIN $PASSWORD --json", 1, R"(^\{"isSuccessful":false)", "refused", no},
      {"h $LOGIN $PASSWORD", 1, "u001b", "halvern: a\\?\\[2J\\?b.$", attack},
      {"h $LOGIN --password x --json", 1, R"(^\{"error":\{"case":"validationError",.*is wrong."\}\}.$)", "wrong"},
      {"h send-password-reset $AT --email nobody@example.com", 1, "false", "refused"},
      {"h $LOGIN", 2, "^$", "--password: .* not a terminal"},
      {"h $LOGIN $PASSWORD --timeout 0", 2, "^$", "--timeout"},
      {"h update --birthdate 1980-02-30 --sex male $AT", 2, "^$", "not a date"},
      {"h logn", 2, "^$", "nearest is login"},
      {"HALVERN_API_KEY=x h $LOGIN $PASSWORD --json", 3, R"("case":"notAuthorized")", "401"},
      {"h $LOGIN $PASSWORD --json", 4, R"("NSURLErrorDomain","code":-1005)", "-1005", {.drop = true}},
      {"h $LOGIN $PASSWORD --json", 5, R"("case":"unknownJsonData")", "", {.answer = Answer{.body = "{}"}}},
      {"h $LOGIN $PASSWORD", 5, "", "404", {.answer = Answer{.status = 404}}},
      {"h $LOGIN $PASSWORD >/dev/full", 6, "", "output cannot be written"},
      {"h $LOGIN $PASSWORD --json >&-", 6, "", "output cannot be written"},
      {"(read line <go; h $LOGIN $PASSWORD; echo $? >s) | (exec <&-; echo >go); exit $(cat s)", 6, "", "written"},
      {"h chart points.json --chart /dev/full", 6, "", "cannot write /dev/full: No space"},
      {"h chart --check points.json", 0, "^$", "^$"},
      {"echo '[\n{]' | h chart --check /dev/stdin", 2, "^$", "line 2: not JSON"},
      {R"(echo '[5, {"orientation": "left", "values": [{"frequency": "x"}]}]' | h chart --check /dev/stdin)", 2, "^$",
       "\\[0\\]: .*\n\\[1\\].orientation: .*\n\\[1\\].serialNumber: missing\n.*values\\[0\\].frequency: .*"}};
  for (const auto& [command, status, out, err, script] : cases) {
    SCOPED_TRACE(command);
    server.reset();
    server.script(Operation::login, script);
    const std::string line = std::string("exec </dev/null >out 2>err; h() { $HALVERN \"$@\"; }; ") + command;
    EXPECT_EQ(WEXITSTATUS(std::system(line.c_str())), status);
    EXPECT_THAT(contents("out"), ContainsRegex(out));
    EXPECT_THAT(contents("err"), ContainsRegex(err));
  }
  EXPECT_THAT(contents("left"), HasSubstr("Left 1000=35"));
}

// What a terminal shows while a person waits for words and types keys.
std::string talk(const std::string& command, const std::vector<std::pair<std::string, std::string>>& turns) {
  int terminal = -1;
  if (forkpty(&terminal, nullptr, nullptr, nullptr) == 0) {
    execl("/bin/bash", "bash", "-mc", command.c_str(), nullptr);
    _exit(127);
  }
  std::string shown;
  std::size_t turn = 0, from = 0;
  for (pollfd input{terminal, POLLIN, 0}; poll(&input, 1, 60'000) == 1;) {
    char letters[4096];
    const ssize_t got = read(terminal, letters, sizeof letters);
    if (got <= 0) break;
    shown.append(letters, static_cast<std::size_t>(got));
    if (turn == turns.size() || shown.find(turns[turn].first, from) == std::string::npos) continue;
    from = shown.size();
    const std::string& keys = turns[turn++].second;
    EXPECT_EQ(write(terminal, keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
  }
  EXPECT_EQ(turn, turns.size()) << shown;
  int ended = 0;
  termios state{};
  EXPECT_EQ(tcgetattr(terminal, &state), 0);
  close(terminal);
  EXPECT_NE(wait(&ended), -1);
  return shown + ((state.c_lflag & ECHO) != 0 ? "echo" : "no echo") +
         (WIFSIGNALED(ended) ? ", signal " + std::to_string(WTERMSIG(ended))
                             : ", " + std::to_string(WEXITSTATUS(ended)));
}

TEST_F(HalvernTest, BehavesInATerminal) {
  const std::string ask = "$HALVERN $LOGIN";
  const struct {
    std::string command;
    std::vector<std::pair<std::string, std::string>> turns;
    std::vector<std::string> shown;
  } cases[] = {
      {"exec " + ask, {{"password: ", "correct horse\n"}}, {R"("isSuccessful":true)", "\necho, 0"}},
      {"exec " + ask, {{"password: ", "correct\3"}}, {"interrupted", "\necho, signal 2"}},
      {"exec " + ask, {{"password: ", "\4"}}, {"the input ended", "\necho, 2"}},
      {ask + "; stty -a; fg",
       {{"password: ", "correct\32"}, {"password: ", "correct horse\n"}},
       {" echo ", R"("isSuccessful":true)", "\necho, 0"}},
      {"$HALVERN authenticate $AT --facebook-token x", {}, {"waiting for the service, 1 s", "a?[2Jb"}},
      {"$HALVERN chart points.json", {}, {"\33[94mX\33[39m"}},
      {"NO_COLOR=1 $HALVERN chart points.json", {}, {"    10 X1<100"}},
      {"stty cols 63; $HALVERN chart points.json", {}, {"takes 64 columns", "10 dB at 100 Hz, 20 dB at 500 Hz"}},
  };
  server.script(Operation::authenticate,
                {.delay = std::chrono::milliseconds(1500),
                 .answer = Answer{.status = 500, .body = "a\33[2Jb", .contentType = "text/html"}});
  for (const auto& [command, turns, shown] : cases) {
    SCOPED_TRACE(command);
    const std::string screen = talk(command, turns);
    for (const std::string& words : shown) EXPECT_THAT(screen, HasSubstr(words));
    EXPECT_THAT(screen, Not(HasSubstr("correct")));
    EXPECT_THAT(screen, Not(HasSubstr("\33[2J")));
  }
}

// What the picture shows, read off its own axes: symbols with ear, hertz and decibels, arrows with their direction.
TEST_F(HalvernTest, DrawsPointsWhereTheAxesSay) {
  ASSERT_EQ(std::system("$HALVERN chart points.json --chart chart.svg >chart.txt"), 0);
  const std::string svg = contents("chart.svg");
  const auto each = [&](const char* pattern, auto use) {
    const std::regex regex(pattern);
    for (std::sregex_iterator found(svg.begin(), svg.end(), regex), end; found != end; ++found) use(*found);
  };
  std::map<std::string, std::pair<double, double>> labels;
  each("<text x='([^']*)' y='([^']*)' [^>]*>([^<]*)<",
       [&](const std::smatch& label) { labels.try_emplace(label[3], std::stod(label[1]), std::stod(label[2])); });
  const double octave = labels["1000"].first - labels["500"].first;
  const double decibel = (labels["120"].second - labels["0"].second) / 120;
  EXPECT_NEAR(octave, 20 * decibel, 0.01);
  EXPECT_NEAR(labels["1500"].first, labels["1000"].first + octave * std::log2(1.5), 0.01);
  std::vector<std::string> drawn;
  const auto add = [&](const std::string& what, const std::string& x, const std::string& y) {
    const double hertz = 125 * std::exp2((std::stod(x) - labels["125"].first) / octave);
    const double level = (std::stod(y) + 5 - labels["0"].second) / decibel;
    drawn.push_back(what + ' ' + std::to_string(std::lround(hertz)) + ' ' + std::to_string(std::lround(level)));
  };
  each("<circle cx='([^']*)' cy='([^']*)'", [&](const auto& mark) { add("O", mark[1], mark[2]); });
  each("<path d='M([0-9.]*) ([0-9.]*)m", [&](const auto& mark) { add("X", mark[1], mark[2]); });
  each(R"('translate\(([^ ]*) ([^)]*)\) rotate\(([^.)]*)[^']*' d)",
       [&](const auto& arrow) { add("arrow " + arrow[3].str(), arrow[1], arrow[2]); });
  each("class='curve'[^>]* d='([^']*)'", [&](const auto& curve) {
    drawn.push_back("pieces " + std::to_string(std::ranges::count(curve[1].str(), 'M')));
  });
  // The legend's symbols lie below the scale.
  std::erase_if(drawn, [](const std::string& words) { return std::stod(words.substr(words.rfind(' '))) > 120; });
  EXPECT_THAT(drawn, testing::ElementsAre("O 500 20", "O 1000 120", "O 4000 45", "O 8000 -10", "X 125 10", "X 500 20",
                                          "X 3000 55", "X 1000 70", "arrow 90 1000 120", "arrow -45 8000 -10",
                                          "arrow 180 125 10", "pieces 2", "pieces 1", "pieces 1"));
  for (const char* words : {"<title", "10 dB at 100 Hz, 20 dB at 500 Hz", "A&lt;&amp;?", ">200<", ">-30,16000<",
                            "Outside the scale: right ear, serial number R: 200 dB at 1000 Hz<"})
    EXPECT_THAT(svg, HasSubstr(words));
  for (const char* words :
       {"\n     0 |-------|-------|----:--|----:--|----:--|----:--|\n",
        "\n    20 |-------|-------@----:--|----:--|----:--|----:--|\n", " X1<100 ", "--Ov200:", " O^\n",
        "X2  left ear, serial number A<&?\n", "Outside the scale: left ear, serial number L: 10 dB at 100 Hz\n"})
    EXPECT_THAT(contents("chart.txt"), HasSubstr(words));
}

}  // namespace
