// The errors the ombrix tool reports to its user: one line naming the file or option and the
// reason, and the process exit code that goes with it (2: usage or input, 1: a measurement that
// could not be made).
#pragma once

#include <stdexcept>
#include <string>

namespace ombrix_tool {

enum ExitCode { kExitSuccess = 0, kExitMeasurement = 1, kExitUsage = 2 };

class ToolError : public std::runtime_error {
 public:
  ToolError(int exitCode, const std::string& message)
      : std::runtime_error(message), exitCode_(exitCode) {}
  int ExitCode() const { return exitCode_; }

 private:
  int exitCode_;
};

// A bad option value, a missing or unreadable input, an unwritable output.
inline ToolError UsageError(const std::string& message) { return ToolError(kExitUsage, message); }

// The input was read but the measurement found nothing to measure.
inline ToolError MeasurementError(const std::string& message) {
  return ToolError(kExitMeasurement, message);
}

}  // namespace ombrix_tool
