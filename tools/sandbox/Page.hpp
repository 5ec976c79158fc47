// The web page at "/" for people who test an application by hand, and the requests below "/sandbox/" that the page
// uses. docs/sandbox.md documents these requests for scripts in any language. They read and change the state but do not
// count as calls. For one thread at a time, like the state.
#pragma once

#include "State.hpp"

namespace HalvernApi::Testing {

using Chart = decltype(Sandbox::Options::chart);

constexpr const char* eventStream = "text/event-stream";

bool isForPage(std::string_view target);

// Refuses requests that may come from another machine or from another site in the user's browser. If the content type
// of the answer is `eventStream`, the answer is only the head, and the texts of `eventSince` follow as its body.
Answer answerPage(State& state, const SeenRequest& request, const Chart& chart);

// All changes since `version`, as a server-sent event; empty if there are none. Sets `version` to the current one.
std::string eventSince(const State& state, std::size_t& version);

}  // namespace HalvernApi::Testing
