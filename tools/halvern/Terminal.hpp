// How the program meets who uses it: what its exit status says, its words on standard error, and secrets that come from
// elsewhere than the command line, where other users of the machine see them. For one thread.
#pragma once

#include <optional>
#include <stdexcept>
#include <string>

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

// Words for people, on standard error.
void say(const std::string& words);

// Holds back what is printed on standard output from here on, as the library does with answers, until it is released
// to the caller.
void holdOutput();
std::string releaseOutput();

// The first line of a file.
std::string readSecret(const std::string& file);

// Asks on the terminal, without showing what is typed. Absent when standard input is not a terminal, or at its end.
std::optional<std::string> askSecret(const std::string& name);
