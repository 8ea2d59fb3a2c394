// Watches a regulated quantity that is driven toward a target: keeps a sliding, time-stamped
// history of readings, says after each reading whether regulation is reached or has failed, and
// extrapolates the time left until the target. Accepts any arithmetic T; the system uses float.
#pragma once

#include <chrono>
#include <cstdint>
#include <vector>

template <class T>
class CVariableController {
 public:
  // One reading, stamped by Insert with the steady clock in nanoseconds.
  struct Sample {
    std::int64_t Time;
    T Value;
  };

  explicit CVariableController(std::uint64_t capacity);
  virtual ~CVariableController();

  // Records a reading. Returns true when a verdict is available (target reached or regulation
  // time over); error is always written and is true only when the regulation has failed.
  bool Insert(const T& value, bool& error);

  // Milliseconds from now until Target is reached on the line through the oldest and newest
  // readings; negative when there is no trend or it leads away from Target.
  double Predict() const;

  // True once more than ValidationDelay seconds have passed since the last reading.
  bool IsValidationDelayElapsed() const;

  // Current steady-clock time in nanoseconds, the time base of every stamp above. Owners write it
  // into RegulationStartTime when a new regulation begins.
  static std::int64_t SteadyNow();

  T Target{};
  float Tolerance = 0.0f;
  float Limit = 0.0f;
  double ValidationDelay = 1.0;  // seconds
  double RegulationDelay = 1.0;  // minutes
  std::int64_t LastInsertTime = SteadyNow();
  std::int64_t RegulationStartTime = SteadyNow();
  std::uint64_t Capacity;
  std::vector<Sample> History;
};

extern template class CVariableController<float>;
