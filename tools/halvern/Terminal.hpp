// Exit statuses, messages on standard error, and questions at the terminal. For one thread.
#pragma once

#include <functional>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>

namespace status {
enum { done, refused, wrongUsage, notAuthorized, network, failed, notWritten, noConfiguration };
constexpr char help[] =
    "Exit status:\n"
    "  0  done\n"
    "  1  the service refused the request\n"
    "  2  error in the command line, or in a file that it names\n"
    "  3  not authorised: the API key or the access token is not accepted\n"
    "  4  the service was not reached, or the answer was not received\n"
    "  5  the answer was not understood, or any other failure\n"
    "  6  output could not be written\n"
    "  7  the service has no configuration for an ear for which a file was requested";
}  // namespace status

// Thrown to end the program with an exit status. Each line of the words is printed as a message.
struct Failure : std::runtime_error {
  Failure(int exitStatus, const std::string& words) : std::runtime_error(words), status(exitStatus) {}
  int status;
};

// Concatenates the parts, formatted as in a stream.
template <class... Parts>
std::string text(const Parts&... parts) {
  std::ostringstream out;
  (out << ... << parts);
  return out.str();
}

// Replaces every control character by `?`, except line ends and tabs, so that the text cannot control the terminal.
std::string printable(std::string_view text);

// Prints each line of the words on standard error, with the name of the program as prefix.
void say(const std::string& words);

// Calls `isDone` until it returns true, and shows the elapsed seconds on the terminal. `isDone` itself must wait for up
// to a second. Shows nothing if standard error is not a terminal.
void wait(const std::function<bool()>& isDone);

// Runs `run`, and returns what it printed on standard output, such as the answers that the library prints. Nothing of
// it reaches the stream. Throws std::system_error on failure.
std::string printedDuring(const std::function<void()>& run);

// Asks on the terminal without showing what is typed. Returns nullopt at the end of the input. If a signal ends or
// stops the program, the state of the terminal is restored first. When the program continues, it asks again.
std::optional<std::string> askSecret(const std::string& name);
