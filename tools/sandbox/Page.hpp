// The page for people who test an application by hand, at "/", and the requests below "/sandbox/" that the page uses
// and that are documented for scripts in any language. They read and change the state; none of them is a call. For one
// thread at a time, as the state.
#pragma once

#include "State.hpp"

namespace HalvernApi::Testing {

using Chart = decltype(Sandbox::Options::chart);

constexpr const char* eventStream = "text/event-stream";

bool isForPage(std::string_view target);

// Refuses requests that another machine or another site in the user's browser may have caused. An answer with the
// content type `eventStream` is only the head of a stream of `eventSince`.
Answer answerPage(State& state, const SeenRequest& request, const Chart& chart);

// All that changed since `version`, which becomes the current one. Empty if nothing did.
std::string eventSince(const State& state, std::size_t& version);

}  // namespace HalvernApi::Testing
