// Event log shared by the test executable and the test plug-ins it loads: plug-ins record when
// they are loaded and unloaded and when their objects are made and destroyed; tests read the
// sequence. Lives in a shared library so that every module sees the same log.
#pragma once

#include <string>
#include <vector>

namespace plugin_events {

void Record(const std::string& event);

// Returns the events recorded so far, oldest first, and clears the log.
std::vector<std::string> Take();

}  // namespace plugin_events
