// What the program has to do with its user: exit statuses, words on standard error, and secrets from files and from the
// terminal, for what stands on the command line other users of the machine see. For one thread.
#pragma once

#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace status {
enum { done, refused, wrongUsage, notAuthorized, network, failed, notWritten };
constexpr char help[] =
    "Exit status:\n"
    "  0  done\n"
    "  1  the service refused\n"
    "  2  used wrongly\n"
    "  3  not authorised: the API key or the access token is not accepted\n"
    "  4  the service was not reached, or the answer not received\n"
    "  5  an answer that is not understood, or any other failure\n"
    "  6  output could not be written";
}  // namespace status

// Output that could not be written.
struct NotWritten : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// `text` with a `?` for every control character that a terminal would obey, all but line ends and tabulators.
std::string printable(std::string_view text);

// Words for people, on standard error, in a line of their own.
void say(const std::string& words);

// Calls `isDone`, which waits for up to a second itself, until it is true, and counts the seconds on the terminal. Does
// nothing where standard error is no terminal.
void wait(const std::function<bool()>& isDone);

// Holds back what is printed on standard output from here on, as the library does with answers, until it is released
// to the caller.
void holdOutput();
std::string releaseOutput();

// The first line of a file.
std::string readSecret(const std::string& file);

// Asks on the terminal, without showing what is typed. Absent at its end. A signal that ends or stops the program does
// so once the terminal shows again what is typed; the question comes anew when the program goes on.
std::optional<std::string> askSecret(const std::string& name);
