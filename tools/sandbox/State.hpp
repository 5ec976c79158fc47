// The state of a sandbox: accounts, scripts, calls and e-mails. The C++ interface and the page both read and change it.
// For one thread at a time: the mutex of the sandbox guards it.
#pragma once

#include "Service.hpp"

namespace HalvernApi::Testing {

// A request. Its outcome is only recorded if the state has a page.
struct Call {
  enum Outcome { waiting, answered, closed, abandoned };

  std::size_t number;  // counts from 1 in the order of arrival
  std::chrono::system_clock::time_point time;
  std::chrono::steady_clock::time_point start;  // the same time, for `duration`
  SeenRequest request;
  std::size_t bodySize;  // size of the request's body when it arrived
  std::size_t version;   // the version of the state at the last change of this call
  Outcome outcome = waiting;
  std::chrono::duration<double, std::milli> duration{};  // from the start to the outcome
  Answer answer{};
  std::size_t answerSize = 0;  // size of the answer's body when it was sent
};

struct State {
  // Limits of a state with a page: calls; headers of a call; bytes of a body, of a target, of a method and of all
  // headers; e-mails.
  static constexpr std::size_t maxCalls = 1000, maxHeaders = 100, maxText = std::size_t{64} << 10, maxMails = 100;

  // Adds a call and sets `number`. Returns the script that applies to the call, and counts the call for that script. If
  // there is none, returns the default script.
  Script add(const SeenRequest& request, std::size_t& number);
  // Lets the service answer the request. Sets `sent` to the e-mails that the service sends.
  Answer answer(const SeenRequest& request, std::vector<Mail>& sent);
  // Sets the outcome of a call, unless the call has been removed.
  void end(std::size_t number, Call::Outcome outcome, const Answer& answer = {});
  // Null if the call does not exist or has been removed.
  Call* find(std::size_t number);
  // The requests of one operation, or all requests, in the order of arrival.
  std::vector<SeenRequest> requests(std::optional<Operation> operation = {}) const;

  void addAccount(const std::string& email, const std::string& password);
  void addScript(Operation operation, Script script);
  // Replaces the scripts of an operation. A script with `calls` 0 only removes them.
  void arm(Operation operation, Script script);
  bool confirm(const std::string& email);
  void expireAccessTokens();
  void reset();
  void resetAll();

  Service service;
  const bool hasPage;
  std::size_t version = 1;  // incremented by every change
  std::size_t nextNumber = 1;
  std::deque<Call> calls{};  // with consecutive numbers
  std::map<Operation, std::size_t> seen{};
  std::map<Operation, std::deque<Script>> scripts{};
  std::deque<Mail> mails{};
};

}  // namespace HalvernApi::Testing
