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
    "  1  the service refused\n"
    "  2  wrong usage: the command line, or a file that it names\n"
    "  3  not authorised: the API key or the access token is not accepted\n"
    "  4  the service was not reached, or the answer not received\n"
    "  5  an answer that is not understood, or any other failure\n"
    "  6  output could not be written\n"
    "  7  the service has no configuration for an ear whose file was asked for";
}  // namespace status

// Ends the program with this exit status. Each line of the words is a message.
struct Failure : std::runtime_error {
  Failure(int exitStatus, const std::string& words) : std::runtime_error(words), status(exitStatus) {}
  int status;
};

// The parts in a row, as a stream writes them.
template <class... Parts>
std::string text(const Parts&... parts) {
  std::ostringstream out;
  (out << ... << parts);
  return out.str();
}

// `text` with a `?` for every control character that a terminal would act on, except line ends and tabs.
std::string printable(std::string_view text);

// Prints each line of the words on standard error, after the program's name.
void say(const std::string& words);

// Calls `isDone`, which waits for up to a second itself, until it is true, and counts the seconds on the terminal. Does
// nothing if standard error is not a terminal.
void wait(const std::function<bool()>& isDone);

// Keeps what is printed on standard output from here on, such as the answers that the library prints there, until
// `releaseOutput` returns it.
void holdOutput();
std::string releaseOutput();

// Asks on the terminal, without showing what is typed. Absent at the end of the input. A signal that ends or stops the
// program does so after the terminal's state is restored; the question is asked again when the program continues.
std::optional<std::string> askSecret(const std::string& name);
