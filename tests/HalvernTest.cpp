// Runs the program against a sandbox in this process, in scripts and in a terminal.
#include <gmock/gmock.h>
#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <termios.h>

#include <HalvernApi/HalvernApi.hpp>
#include <HalvernApi/Testing/Sandbox.hpp>
#include <filesystem>
#include <fstream>

using namespace HalvernApi::Testing;
using namespace std::chrono_literals;
using namespace testing;

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
    std::ofstream("password.txt") << "correct horse\r\nsecond line\n";
    std::filesystem::copy(HALVERN_CHARTS "/points.json", "points.json");
  }
  ~HalvernTest() override {
    std::filesystem::current_path(testing::TempDir());
    std::filesystem::remove_all(directory);
  }

  std::string directory = testing::TempDir() + "halvern.XXXXXX";
  Sandbox server;
};

// These functions precede each command. `files` shows the files of both ears, `killed` kills the program after it has
// removed an old file, and `offers` prints what bash offers after the words of a command line.
constexpr const char* preamble = R"(
exec </dev/null >out 2>err
CHARTS=")" HALVERN_CHARTS R"("
PASSWORD="--password-file password.txt"
EARS="--left-out left --right-out right"
PROFILE="profile $AT points.json"
FIT="$PROFILE $EARS"
h() { $HALVERN "$@"; }
old() { echo old | tee left >right; }
files() { s=$?; [ ! -e left ] || cat left; [ ! -e right ] || cat right; echo $(ls -A | grep -E 'left|right'); exit $s; }
killed() { $HALVERN "$@" & while kill -0 $! && [ -e right ]; do :; done; kill -9 $!; wait $!; }
offers() { . <(h generate bash); COMP_WORDS=(halvern "$@") COMP_CWORD=$#; _halvern; IFS=,; echo "${COMPREPLY[*]}"; }
)";

TEST_F(HalvernTest, ReportsTheOutcomeOfEachCall) {
  const Script no{.answer = Answer{.body = R"({"isSuccessful": false, "isEmailConfirmed": false, "accessToken": "",
                                               "refreshToken": "", "email": ""})"}};
  const Answer onlyLeft{.body = R"({"leftConfiguration": "AQI=", "rightConfiguration": null})"};
  const Script attack{.answer = Answer{.status = 400, .body = R"({"errorCode": 1, "message": "a\u001b[2J\u009bb"})"}};
  const struct {
    const char* command;
    int status;
    std::string out, err;  // regular expressions
    Script script{};
  } cases[] = {
      {"HALVERN_PASSWORD=x h $LOGIN $PASSWORD", 0, R"(^\{"isSuccessful":true.*"email":"ada@example.com"\}.$)", "^$"},
      {"h $LOGIN $PASSWORD --json", 0, R"(^\{"isSuccessful":true.*,"sex":null,"email":.*\}.$)", "^$"},
      {"h $PROFILE --left-out left --chart svg --json", 0, R"(^\{"left[^ ]*\}.$)", "left ear: 27 bytes"},
      {"old; h $FIT; files", 0, "Left .*Right .*left right.$", "right ear: "},
      {"old; h $FIT; files", 7, "}.\1\2left.$", "right is not written", {.answer = onlyLeft}},
      {"old; h $FIT; files", 4, "^.$", "-1005", {.drop = true}},
      {"old; h $FIT --chart /dev/full; files", 6, "^.$", "No space"},
      {"old; h profile $AT /dev/null $EARS; files", 2, "^.$", "/dev/null: line 1: not JSON"},
      {"old; h $PROFILE --left-out left --right-out no/right; files", 6, "}.old.right.$", "cannot write"},
      {"old; killed $FIT; files", 137, "^.$", "", {.delay = 10s}},
      {"ln -s left x; old; h $PROFILE --left-out x --right-out left; files", 2, "^old.old.left right.$", "same"},
      {"ln -s new y; h $PROFILE --left-out y >&2 && cat new", 0, "Left ", "left ear"},
      {"h $PROFILE --left-out same --right-out ./same", 2, "^$", "same"},
      {"h $PROFILE --left-out - --right-out /dev/stdout", 2, "^$", "same"},
      {"h $PROFILE --audiogram points.json", 2, "^$", "one FILE"},
      {"old; h chart /dev/null --chart left; files", 2, "^old.right.$", "not JSON"},
      {"h profile $AT - --left-out - --right-out /dev/null <points.json", 0, "^Left 500=[^{]*$", "left ear: "},
      {"h profile $AT - --api-key-file - <points.json", 2, "^$", "are the same file, -"},
      {"h profile $AT --left-out left", 2, "^$", "one FILE of audiograms is required"},
      {"h demo", 0, "Every step had the expected result", "^$"},
      {"h version", 0, "^halvern [0-9.]+.$", "^$"},
      {"h help login", 0, "Signs in with e-mail", "^$"},
      {"HALVERN_BASE_URL=${AT#* } http_proxy=x:// h resend-validation-email --json", 0, R"(^\{\}.$)", "^$"},
      {"HALVERN_PASSWORD=$'correct horse\\r\\n' h $LOGIN", 0, "ada@", "^$"},
      {"HALVERN_PASSWORD=$'\\n' h $LOGIN", 2, "^$", "halvern: --password is empty.$"},
      {"h $LOGIN $PASSWORD --proxy x:// --json", 4, R"("NSURLErrorDomain","code":-1000)", "-1000"},
      {"h $LOGIN $PASSWORD --max-time 0.3 --json", 4, "-1001", "", {.delay = 10s}},
      {"h LOGIN", 2, "^$", "^halvern: there is no subcommand LOGIN; the nearest is login.$"},
      {"h hepl", 2, "^$", "the nearest is help.$"},
      {"h $'a\\e[31m'", 2, "^$", "^halvern: there is no subcommand a\\?.31m.$"},
      {"h login", 2, "^$", "^halvern: --base-url is required; see halvern login --help.$"},
      {"h $LOGIN $PASSWORD --json", 1, R"(^\{"isSuccessful":false)", "refused", no},
      {"h $LOGIN $PASSWORD", 1, "u001b", "halvern: a\\?\\[2J\\?b.$", attack},
      {"h $LOGIN --password x --json", 1, R"(^\{"error":\{"case":"validationError",.*is wrong."\}\}.$)", "wrong"},
      {"h send-password-reset $AT --email nobody@example.com", 1, "false", "refused"},
      {"h $LOGIN", 2, "^$", "--password or .* not a terminal"},
      {"h $LOGIN $PASSWORD --max-time nan", 2, "^$", "not a number"},
      {"h $LOGIN $PASSWORD --timeout 0", 2, "^$", "--timeout"},
      {"h update --birthdate 1980-02-30 --sex male $AT", 2, "^$", "not a date"},
      {"HALVERN_API_KEY=x h $LOGIN $PASSWORD --json", 3, R"("case":"notAuthorized")", "401"},
      {"h $LOGIN $PASSWORD --json", 5, R"("case":"unknownJsonData")", "", {.answer = Answer{.body = "{}"}}},
      {"h $LOGIN $PASSWORD", 5, "", "404", {.answer = Answer{.status = 404}}},
      {"h $LOGIN $PASSWORD >/dev/full", 6, "", "cannot write to standard output"},
      {"h $LOGIN $PASSWORD --json >&-", 6, "", "cannot write to standard output"},
      {"exec 3> >(:); wait $!; h $LOGIN $PASSWORD >&3", 6, "", "cannot write to standard output"},
      {"h chart points.json --chart x.png", 2, "^$", "only SVG"},
      // If the charts change intentionally, look at the new ones and store them: see CONTRIBUTING.md.
      {"h chart points.json --chart x.svg | cmp - $CHARTS/points.txt && cmp x.svg $CHARTS/points.svg", 0, "^$", "^$"},
      {"h chart points.json --chart - | cmp - $CHARTS/points.svg", 0, "^$", "^$"},
      {"sed 's/45/40/' points.json | h chart -", 0, "@----:--O1,2-.* X2  left.*: 40 dB at 500 Hz, .*Not all", "^$"},
      {R"(sed "2s/\[/&$(seq -s, -f '{"frequency": %.0f, "volume": 120}' 9001 9040),/" points.json | h chart - --chart -)",
       0, "y='942'[^\n]*L2: 130.*y='851'[^\n]*R1: 120 dB at 9040 Hz", "^$"},
      {"(echo '['; tail -3 points.json) | sed 's/2500/8000/' | h chart - --chart -", 0, "width='797.5'", "^$"},
      {"(printf '\\xEF\\xBB\\xBF'; cat points.json) | h chart --check -", 0, "^$", "^$"},
      {"echo '[\n{]' | h chart --check -", 2, "^$", "^line 2: not JSON[^\n]*.$"},
      {R"(sed 's/"tube": "T"/"tube": "T", "t\\u0075be": "T"/; s/500/500.5/' points.json | h chart --check -)", 2, "^$",
       "^\\[0\\].tube: more than once in its object.\\[1\\].tube.*\\[0\\].values\\[1\\].frequency: expected Int, found "
       "number with"},
      {"sed 's/ 1000/ 500/' points.json | h chart --check -", 2, "^$",
       "^.1..values.1..frequency: 500 Hz has another volume in values.0..\\[2"},
      {R"(echo '[5, {"orientation": "left", "values": [{"frequency": "x"}]}]' | h chart --check -)", 2, "^$",
       "^\\[0\\]: .*\n\\[1\\].orientation: .*\n\\[1\\].serialNumber: missing\n.*values\\[0\\].frequency: .*"},
      {"offers lo", 0, "^login.$", "^$"},
      {"offers help up", 0, "^update.$", "^$"},
      {"offers chart --c", 0, "^--check,--chart.$", "^$"},
      {"touch 'two words'; offers chart two", 0, "^two words.$", "^$"},
      {"offers update --sex ''", 0, "^Male,Female,NotKnown.$", "^$"},
      {"offers login --email ''", 0, "^.$", "^$"},
      {"offers profile --left-out pa", 0, "^password.txt.$", "^$"}};
  for (const auto& [command, status, out, err, script] : cases) {
    SCOPED_TRACE(command);
    server.reset();
    for (const Operation operation : {Operation::login, Operation::profile}) server.script(operation, script);
    std::ofstream("line") << preamble << command;
    EXPECT_EQ(WEXITSTATUS(std::system("bash line")), status);
    EXPECT_THAT(contents("out"), ContainsRegex(out));
    EXPECT_THAT(contents("err"), ContainsRegex(err));
  }
}

// Runs a command in a terminal. When the screen shows the text of a turn, types the keys of that turn. Returns
// everything that was shown, whether echo is on, and the exit status or signal.
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
      {"exec $HALVERN register $AT --email x@example.com",
       {{"password: ", "correct horse\n"}, {"password again: ", "correct house\n"}},
       {"the two passwords differ", "\necho, 2"}},
      {"exec " + ask, {{"password: ", "correct\3"}}, {"interrupted", "\necho, signal 2"}},
      {"exec " + ask, {{"password: ", "\4"}}, {"the input ended", "\necho, 2"}},
      {ask + "; stty -a; fg",
       {{"password: ", "correct\32"}, {"password: ", "correct horse\n"}},
       {" echo ", R"("isSuccessful":true)", "\necho, 0"}},
      {"$HALVERN authenticate $AT --facebook-token x", {}, {"waiting for the service, 1 s", "a?[2Jb"}},
      {"$HALVERN chart points.json", {}, {"\33[94mX\33[39m1 "}},
      {"NO_COLOR=1 $HALVERN chart points.json", {}, {"    40 |-------|-------@O1,2X1-O1,2-:"}},
      {"stty cols 63; $HALVERN chart points.json", {}, {"takes 64 columns", "20 dB at 100 Hz, 40 dB at 500 Hz"}},
  };
  server.script(Operation::authenticate,
                {.delay = 1500ms, .answer = Answer{.status = 500, .body = "a\33[2Jb", .contentType = "text/html"}});
  for (const auto& [command, turns, shown] : cases) {
    SCOPED_TRACE(command);
    const std::string screen = talk(command, turns);
    for (const std::string& words : shown) EXPECT_THAT(screen, HasSubstr(words));
    EXPECT_THAT(screen, Not(HasSubstr("correct")));
    EXPECT_THAT(screen, Not(HasSubstr("\33[2J")));
  }
}

}  // namespace
