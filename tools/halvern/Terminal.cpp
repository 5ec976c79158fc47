#include "Terminal.hpp"

#include <poll.h>
#include <signal.h>
#include <sys/mman.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <boost/algorithm/string.hpp>
#include <fstream>
#include <iostream>
#include <system_error>

namespace {
int own = -1;   // the original standard output
int held = -1;  // the memory file that replaces it between `holdOutput` and `releaseOutput`

volatile sig_atomic_t caught = 0;

// Control characters that erase the line that says that the program waits.
std::string lineStart() { return isatty(STDERR_FILENO) ? '\r' + std::string(40, ' ') + '\r' : ""; }
}  // namespace

std::string printable(std::string_view text) {
  std::string shown;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto byte = static_cast<unsigned char>(text[i]);
    // U+0080 to U+009F are control characters too.
    const bool second = byte == 0xC2 && i + 1 < text.size() && static_cast<unsigned char>(text[i + 1]) < 0xA0;
    const bool obeyed = (byte < 0x20 && byte != '\n' && byte != '\t') || byte == 0x7F || second;
    shown += obeyed ? '?' : text[i];
    i += second ? 1 : 0;
  }
  return shown;
}

void say(const std::string& words) {
  std::cerr << lineStart() + "halvern: " + boost::replace_all_copy(printable(words), "\n", "\nhalvern: ") + '\n';
}

void wait(const std::function<bool()>& isDone) {
  if (!isatty(STDERR_FILENO)) return;
  int seconds = 0;
  while (!isDone())
    std::cerr << lineStart() + "waiting for the service, " + std::to_string(++seconds) + " s" << std::flush;
  if (seconds > 0) std::cerr << lineStart() << std::flush;
}

void holdOutput() {
  (void)std::fflush(stdout);
  own = dup(STDOUT_FILENO);
  held = memfd_create("answer", MFD_CLOEXEC);
  if (own == -1 || held == -1 || dup2(held, STDOUT_FILENO) == -1)
    throw std::system_error(errno, std::generic_category(), "cannot buffer the answer");
}

std::string releaseOutput() {
  (void)std::fflush(stdout);
  dup2(own, STDOUT_FILENO);
  std::ifstream stream("/dev/fd/" + std::to_string(held), std::ios::binary);
  if (!stream) throw std::system_error(errno, std::generic_category(), "cannot read the answer");
  return {std::istreambuf_iterator<char>(stream), {}};
}

std::optional<std::string> askSecret(const std::string& name) {
  constexpr std::array signals{SIGINT, SIGQUIT, SIGTERM, SIGHUP, SIGTSTP};
  std::array<struct sigaction, signals.size()> actions{};
  struct sigaction note {};
  note.sa_handler = [](int signal) { caught = signal; };
  // The signals are blocked except while ppoll waits, so none is missed between the test of `caught` and the wait.
  sigset_t blocked, open;
  sigemptyset(&blocked);
  for (const int signal : signals) sigaddset(&blocked, signal);
  std::optional<std::string> secret;
  do {
    sigprocmask(SIG_BLOCK, &blocked, &open);
    for (std::size_t i = 0; i < signals.size(); ++i) sigaction(signals[i], &note, &actions[i]);
    caught = 0;
    termios shown{};
    tcgetattr(STDIN_FILENO, &shown);
    termios hidden = shown;
    hidden.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    tcsetattr(STDIN_FILENO, TCSAFLUSH, &hidden);
    std::cerr << name << ": " << std::flush;
    pollfd input{STDIN_FILENO, POLLIN, 0};
    std::string line;
    if (ppoll(&input, 1, nullptr, &open) > 0 && std::getline(std::cin, line)) secret = line;
    tcsetattr(STDIN_FILENO, TCSAFLUSH, &shown);
    std::cerr << '\n';
    for (std::size_t i = 0; i < signals.size(); ++i) sigaction(signals[i], &actions[i], nullptr);
    sigprocmask(SIG_SETMASK, &open, nullptr);
    if (caught != 0 && caught != SIGTSTP) say("interrupted, nothing was sent");
    if (caught != 0) (void)raise(caught);
  } while (caught != 0);
  return secret;
}
