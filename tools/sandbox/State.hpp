// What a sandbox remembers: accounts, scripts, the calls that arrived, and e-mails. The C++ interface and the page both
// read and change it here. For one thread at a time: the sandbox's mutex guards it.
#pragma once

#include "Service.hpp"

namespace HalvernApi::Testing {

// A request, and what became of it if the state has a page.
struct Call {
  enum Outcome { waiting, answered, closed, abandoned };

  std::size_t number;  // from 1, in the order of arrival
  std::chrono::system_clock::time_point time;
  std::chrono::steady_clock::time_point start;  // the same moment
  SeenRequest request;
  std::size_t bodySize;  // of the request as it arrived
  std::size_t version;   // of the state when this call last changed
  Outcome outcome = waiting;
  std::chrono::duration<double, std::milli> duration{};  // until the outcome
  Answer answer{};
  std::size_t answerSize = 0;  // of its body as it was sent
};

struct State {
  // What is kept for a page: the last calls, of each so many headers and bytes of text, and the last e-mails.
  static constexpr std::size_t maxCalls = 1000, maxHeaders = 100, maxText = std::size_t{64} << 10, maxMails = 100;

  // Adds a call. Returns its script, of which one call is used up; without one, the usual behaviour.
  Script add(const SeenRequest& request, std::size_t& number);
  // Answers as the service does. Adds the e-mails that it sends to `sent`.
  Answer answer(const SeenRequest& request, std::vector<Mail>& sent);
  // Sets the outcome of a call that is still known.
  void end(std::size_t number, Call::Outcome outcome, const Answer& answer = {});
  const Call* find(std::size_t number) const;
  // Those for which `isWanted` is true, in the order of arrival.
  std::vector<SeenRequest> requests(const std::function<bool(const SeenRequest&)>& isWanted) const;

  void addAccount(const std::string& email, const std::string& password);
  void addScript(Operation operation, Script script);
  // Replaces the scripts of an operation. One for no calls only removes them.
  void arm(Operation operation, Script script);
  bool confirm(const std::string& email);
  void expireAccessTokens();
  void reset();
  void resetAll();

  Service service;
  const bool hasPage;
  std::size_t version = 1;  // grows with every change
  std::size_t nextNumber = 1;
  std::deque<Call> calls{};  // numbered without gaps
  std::map<Operation, std::size_t> seen{};
  std::map<Operation, std::deque<Script>> scripts{};
  std::deque<Mail> mails{};
};

}  // namespace HalvernApi::Testing
