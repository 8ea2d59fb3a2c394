#include "controller/VariableController.h"

#include <algorithm>
#include <cstddef>

namespace {

constexpr double kNsPerMs = 1e6;
constexpr double kNsPerSecond = 1e9;
constexpr double kNsPerMinute = 6e10;

}  // namespace

template <class T>
CVariableController<T>::CVariableController(std::uint64_t capacity) : Capacity(capacity) {}

template <class T>
CVariableController<T>::~CVariableController() = default;

template <class T>
std::int64_t CVariableController<T>::SteadyNow() {
  return std::chrono::duration_cast<std::chrono::nanoseconds>(
             std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

template <class T>
bool CVariableController<T>::Insert(const T& value, bool& error) {
  error = false;
  const std::int64_t now = SteadyNow();
  LastInsertTime = now;

  // Exactly one sample leaves per reading, so the history slides rather than being trimmed: the
  // samples 2 .. Capacity move one place toward the front and the array loses its last entry.
  // When the owner has lowered Capacity below the history's length, the samples beyond Capacity
  // stay where they are and the last of them is the one that goes.
  if (!History.empty() && History.size() >= Capacity) {
    const std::size_t moved = std::min<std::size_t>(Capacity, History.size());
    if (moved > 1) std::move(History.begin() + 1, History.begin() + moved, History.begin());
    History.pop_back();
  }
  History.push_back(Sample{now, value});

  // A single reading says nothing about regulation yet, whatever its value.
  if (History.size() == 1) return false;

  const bool timedOut =
      static_cast<double>(LastInsertTime - RegulationStartTime) / kNsPerMinute > RegulationDelay;

  // The levels are single-precision sums: a reading equal to a level belongs to the zone below.
  const float upperLevel = Tolerance + Limit;
  const auto lowerLevel = Tolerance + Target;
  const bool above = value > upperLevel;
  const bool between = !above && value > lowerLevel;

  if (above) {
    error = timedOut;
    return timedOut;
  }
  if (between) return timedOut;  // after the regulation time: a warning, not a failure
  return true;                   // target reached
}

template <class T>
double CVariableController<T>::Predict() const {
  if (History.empty()) return -1.0;
  const std::int64_t now = SteadyNow();
  const Sample& oldest = History.front();
  const Sample& newest = History.back();
  const double spanMs = static_cast<double>(newest.Time - oldest.Time) / kNsPerMs;
  const double sinceLastMs = static_cast<double>(now - newest.Time) / kNsPerMs;
  if (spanMs == 0.0) return -1.0;
  // No guard on the slope: a flat history divides by zero and yields inf or NaN on purpose.
  const double slope = static_cast<double>(newest.Value - oldest.Value) / spanMs;
  return static_cast<double>(Target - newest.Value) / slope - sinceLastMs;
}

template <class T>
bool CVariableController<T>::IsValidationDelayElapsed() const {
  return static_cast<double>(SteadyNow() - LastInsertTime) / kNsPerSecond > ValidationDelay;
}

template class CVariableController<float>;
