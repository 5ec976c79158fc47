#include "Terminal.hpp"

#include <poll.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/signalfd.h>
#include <termios.h>
#include <unistd.h>

#include <boost/algorithm/string.hpp>
#include <fstream>
#include <iostream>
#include <system_error>

namespace {
// Control characters that erase the line "waiting for the service".
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

std::string printedDuring(const std::function<void()>& run) {
  (void)std::fflush(stdout);
  const int own = dup(STDOUT_FILENO), held = memfd_create("answer", MFD_CLOEXEC);
  if (own == -1 || held == -1 || dup2(held, STDOUT_FILENO) == -1)
    throw std::system_error(errno, std::generic_category(), "cannot buffer the answer");
  run();
  (void)std::fflush(stdout);
  dup2(own, STDOUT_FILENO);
  close(own);
  std::ifstream stream("/dev/fd/" + std::to_string(held), std::ios::binary);
  if (!stream) throw std::system_error(errno, std::generic_category(), "cannot read the answer");
  close(held);
  return {std::istreambuf_iterator<char>(stream), {}};
}

std::optional<std::string> askSecret(const std::string& name) {
  // Signals stay blocked until the state of the terminal is restored. A signal that arrived then ends or stops the
  // program.
  sigset_t blocked, usual, pending;
  sigemptyset(&blocked);
  for (const int signal : {SIGINT, SIGQUIT, SIGTERM, SIGHUP, SIGTSTP}) sigaddset(&blocked, signal);
  const int signals = signalfd(-1, &blocked, SFD_CLOEXEC);
  std::optional<std::string> secret;
  bool isInterrupted = false;
  do {
    sigprocmask(SIG_BLOCK, &blocked, &usual);
    termios shown{};
    tcgetattr(STDIN_FILENO, &shown);
    termios hidden = shown;
    hidden.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    tcsetattr(STDIN_FILENO, TCSAFLUSH, &hidden);
    std::cerr << name << ": " << std::flush;
    pollfd inputs[] = {{STDIN_FILENO, POLLIN, 0}, {signals, POLLIN, 0}};
    const bool isReady = poll(inputs, 2, -1) > 0;
    isInterrupted = inputs[1].revents != 0;
    std::string line;
    if (isReady && !isInterrupted && std::getline(std::cin, line)) secret = line;
    tcsetattr(STDIN_FILENO, TCSAFLUSH, &shown);
    std::cerr << '\n';
    sigpending(&pending);
    if (isInterrupted && sigismember(&pending, SIGTSTP) == 0) say("interrupted, nothing was sent");
    sigprocmask(SIG_SETMASK, &usual, nullptr);
  } while (isInterrupted);
  close(signals);
  return secret;
}
