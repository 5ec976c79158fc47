#include "Terminal.hpp"

#include <termios.h>
#include <unistd.h>

#include <fstream>
#include <iostream>

void say(const std::string& words) { std::cerr << "halvern: " + words + '\n'; }

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
