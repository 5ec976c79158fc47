// Runs the example programs against a sandbox. The programs must be in the working directory.
#include <gmock/gmock.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/wait.h>

#include <HalvernApi/Testing/Sandbox.hpp>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>

using namespace HalvernApi::Testing;
using namespace testing;

namespace {

struct Outcome {
  int status = -1;     // -1 if a signal ended the program
  std::string output;  // standard output and standard error
};

class ExamplesTest : public testing::Test {
 protected:
  ExamplesTest() {
    server.addAccount("ada@example.com", "correct horse");
    setenv("API_KEY", server.apiKey().c_str(), 1);
    setenv("PASSWORD", "correct horse", 1);
    std::string scratch = std::filesystem::temp_directory_path() / "examples-XXXXXX";
    std::filesystem::current_path(mkdtemp(scratch.data()));  // the programs write files, and tests run in parallel
  }
  ~ExamplesTest() override {
    const std::filesystem::path scratch = std::filesystem::current_path();
    std::filesystem::current_path(programs);
    std::filesystem::remove_all(scratch);
  }

  // Runs a program. Calls `meanwhile` with its process id while it runs.
  Outcome run(const std::string& program, const std::function<void(pid_t)>& meanwhile = {}) {
    const std::string command = "echo $$; exec '" + (programs / program).string() + "' " + server.baseUrl() +
                                " ada@example.com " + (program == "fitting" ? audiograms : "") + " 2>&1";
    std::FILE* const pipe = popen(command.c_str(), "r");
    pid_t process = 0;
    EXPECT_EQ(std::fscanf(pipe, "%d", &process), 1);
    EXPECT_EQ(std::fgetc(pipe), '\n');
    if (meanwhile) meanwhile(process);
    Outcome outcome;
    for (int c = 0; (c = std::fgetc(pipe)) != EOF;) outcome.output += static_cast<char>(c);
    const int ended = pclose(pipe);
    if (WIFEXITED(ended)) outcome.status = WEXITSTATUS(ended);
    EXPECT_THAT(outcome.output, Not(HasSubstr("accessToken"))) << "the body of an answer came through";
    return outcome;
  }

  std::string audiograms = EXAMPLES "/audiograms.json";
  const std::filesystem::path programs = std::filesystem::current_path();
  Sandbox server;
};

TEST_F(ExamplesTest, SigninTellsItsErrorsApart) {
  const std::string refusal =
      R"({"isSuccessful": false, "isEmailConfirmed": false, "accessToken": "", "refreshToken": "", "email": ""})";
  const struct {
    Script script;
    int status;
    const char* words;
    const char* password = "correct horse";
  } cases[] = {
      {{}, 0, "Signed in as ada@example.com"},
      {{}, 1, "The e-mail address or the password is wrong.", "a guess"},
      {{.answer = Answer{.body = refusal}}, 1, "did not sign you in"},
      {{.drop = true}, 1, "cannot be reached"},
      {{.answer = Answer{.status = 401}}, 1, "does not accept this application"},
      {{.answer = Answer{.body = "{}"}}, 1, "has changed"},
      {{.answer = Answer{.status = 503}}, 1, "cannot do this now"},
  };
  for (const auto& [script, status, words, password] : cases) {
    SCOPED_TRACE(words);
    server.reset();
    server.script(Operation::login, script);
    setenv("PASSWORD", password, 1);
    const Outcome outcome = run("signin");
    EXPECT_EQ(outcome.status, status);
    EXPECT_THAT(outcome.output, HasSubstr(words));
  }
  unsetenv("PASSWORD");
  EXPECT_EQ(run("signin").status, 2);
}

TEST_F(ExamplesTest, FittingWritesAFileForEachEar) {
  const auto contents = [](const char* file) {
    std::ifstream stream(file, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(stream), {});
  };
  server.script(Operation::profile, {.answer = Answer{.body = R"({"leftConfiguration": "AP8=",
                                                                  "rightConfiguration": null})"}});
  std::ofstream("right.bin") << "another patient's";
  const Outcome half = run("fitting");
  EXPECT_EQ(half.status, 1);
  EXPECT_THAT(half.output, AllOf(HasSubstr("left.bin: 2 bytes"), HasSubstr("no configuration for the right ear")));
  EXPECT_EQ(contents("left.bin"), std::string("\0\xff", 2));
  EXPECT_FALSE(std::filesystem::exists("right.bin"));

  setenv("VERBOSE", "1", 1);
  const Outcome both = run("fitting");
  unsetenv("VERBOSE");
  EXPECT_EQ(both.status, 0);
  EXPECT_THAT(both.output, HasSubstr("STATUS 200 Optional(" + server.baseUrl()));
  EXPECT_EQ(contents("left.bin"), "Left 500=10 1000=15 2000=23 4000=30");
  EXPECT_EQ(contents("right.bin"), "Right 500=10 1000=13 2000=18 4000=25");

  audiograms = "/dev/null";
  const Outcome none = run("fitting");
  EXPECT_EQ(none.output, "/dev/null: not readable, or not JSON\n");
  EXPECT_FALSE(std::filesystem::exists("left.bin"));
}

// Tests the main loops of GLib and Qt, if CMake has found these libraries.
TEST_F(ExamplesTest, OtherMainLoopsSignIn) {
  std::istringstream loops(LOOPS);
  for (std::string loop; loops >> loop;) {
    const Outcome outcome = run(loop);
    EXPECT_EQ(outcome.status, 0) << loop;
    EXPECT_EQ(outcome.output, "Signed in as ada@example.com\n");
  }
}

#ifdef HALVERN_DIRECTORY
TEST_F(ExamplesTest, TheScriptStoresBothEars) {
  setenv("HALVERN_API_KEY", server.apiKey().c_str(), 1);
  setenv("HALVERN_PASSWORD", "correct horse", 1);
  setenv("PATH", (HALVERN_DIRECTORY ":" + std::string(getenv("PATH"))).c_str(), 1);
  const std::string command = EXAMPLES "/fitting.sh " + server.baseUrl() + " new@example.com " + audiograms;
  const auto fit = [&] { return WEXITSTATUS(std::system(command.c_str())); };
  EXPECT_EQ(fit(), 0);
  EXPECT_EQ(std::filesystem::file_size("left.bin"), 35U);
  EXPECT_EQ(std::filesystem::file_size("right.bin"), 36U);
  EXPECT_EQ(fit(), 0) << "the account is there already";
  server.script(Operation::profile,
                {.answer = Answer{.body = R"({"leftConfiguration": "AP8=", "rightConfiguration": null})"}});
  EXPECT_EQ(fit(), 7);
  EXPECT_FALSE(std::filesystem::exists("right.bin"));
  server.script(Operation::login, {.drop = true});
  EXPECT_EQ(fit(), 4);
  EXPECT_FALSE(std::filesystem::exists("left.bin"));
  server.script(Operation::register_, {.drop = true});
  EXPECT_EQ(fit(), 4);
}
#endif

TEST_F(ExamplesTest, EventloopShowsTheAnswer) {
  const Outcome outcome = run("eventloop");
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.output, "The address is confirmed.\n");
}

TEST_F(ExamplesTest, EventloopIsCancelledWithCtrlC) {
  server.script(Operation::checkIfValidated, {.delay = std::chrono::minutes(5)});
  const Outcome outcome = run("eventloop", [&](pid_t process) {
    EXPECT_TRUE(server.waitUntilSeen(Operation::checkIfValidated, 1, std::chrono::minutes(1)));
    kill(process, SIGINT);
  });
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.output, HasSubstr("The request was cancelled."));
}

}  // namespace
