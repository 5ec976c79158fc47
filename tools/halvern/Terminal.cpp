#include "Terminal.hpp"

#include <sys/mman.h>
#include <termios.h>
#include <unistd.h>

#include <fstream>
#include <iostream>
#include <system_error>

namespace {
int own = -1;   // standard output
int held = -1;  // what stands in for it
}  // namespace

void say(const std::string& words) { std::cerr << "halvern: " + words + '\n'; }

void holdOutput() {
  std::fflush(stdout);
  own = dup(STDOUT_FILENO);
  held = memfd_create("answer", MFD_CLOEXEC);
  if (own == -1 || held == -1 || dup2(held, STDOUT_FILENO) == -1)
    throw std::system_error(errno, std::generic_category(), "cannot hold the answer");
}

std::string releaseOutput() {
  std::fflush(stdout);
  dup2(own, STDOUT_FILENO);
  std::string text(static_cast<std::size_t>(lseek(held, 0, SEEK_END)), '\0');
  for (std::size_t done = 0; done < text.size();) {
    const ssize_t got = pread(held, text.data() + done, text.size() - done, static_cast<off_t>(done));
    if (got <= 0) throw std::system_error(errno, std::generic_category(), "cannot read the answer");
    done += static_cast<std::size_t>(got);
  }
  return text;
}

std::string readSecret(const std::string& file) {
  std::ifstream stream(file);
  std::string line;
  std::getline(stream, line);
  if (line.ends_with('\r')) line.pop_back();
  return line;
}

std::optional<std::string> askSecret(const std::string& name) {
  termios shown{};
  if (tcgetattr(STDIN_FILENO, &shown) != 0) return std::nullopt;
  termios hidden = shown;
  hidden.c_lflag &= ~static_cast<tcflag_t>(ECHO);
  std::cerr << name << ": " << std::flush;
  tcsetattr(STDIN_FILENO, TCSAFLUSH, &hidden);
  std::string line;
  const bool read = static_cast<bool>(std::getline(std::cin, line));
  tcsetattr(STDIN_FILENO, TCSAFLUSH, &shown);
  std::cerr << '\n';
  return read ? std::optional(line) : std::nullopt;
}
