// Event log shared by the test executable and the test plug-ins it loads: plug-ins record when
// they are loaded and unloaded and when their objects are made and destroyed; tests read the
// sequence. Lives in a shared library so that every module sees the same log.
#pragma once

#include <string>
#include <vector>

// Only these two functions are exported: exporting everything would, on Windows, also export the
// runtime that MinGW links statically into the DLL.
#if defined(_WIN32)
#if defined(OMBRIX_TEST_EVENTS_EXPORTS)
#define OMBRIX_TEST_EVENTS_API __declspec(dllexport)
#else
#define OMBRIX_TEST_EVENTS_API __declspec(dllimport)
#endif
#else
#define OMBRIX_TEST_EVENTS_API __attribute__((visibility("default")))
#endif

namespace plugin_events {

OMBRIX_TEST_EVENTS_API void Record(const std::string& event);

// Returns the events recorded so far, oldest first, and clears the log.
OMBRIX_TEST_EVENTS_API std::vector<std::string> Take();

}  // namespace plugin_events
