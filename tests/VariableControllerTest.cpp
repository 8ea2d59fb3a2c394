// The variable controller beyond the suite's timed checks: the verdict table row by row, strict
// level comparisons in single precision, the sliding history, and the two-point prediction. Time
// is steered through the public members instead of sleeping.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <ostream>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include "controller/VariableController.h"

namespace {

using Controller = CVariableController<float>;

constexpr std::int64_t kNsPerMinute = 60'000'000'000LL;
constexpr std::int64_t kNsPerMs = 1'000'000LL;

// Target -25 with the given tolerance, limit -22.
void SetLevels(Controller& controller, float tolerance) {
  controller.Target = -25.0f;
  controller.Tolerance = tolerance;
  controller.Limit = -22.0f;
}

// Target -25 with the given tolerance and a first reading of 0 in the history, so that the next
// reading is judged against the levels.
void StartAtZero(Controller& controller, float tolerance) {
  SetLevels(controller, tolerance);
  bool error = false;
  controller.Insert(0.0f, error);
}

// Levels -21 (upper) and -24 (lower); regulation time of one minute, started now or two minutes
// ago, with one reading already in the history.
void Prepare(Controller& controller, bool timedOut) {
  SetLevels(controller, 1.0f);
  controller.RegulationDelay = 1.0;
  controller.RegulationStartTime = Controller::SteadyNow() - (timedOut ? 2 * kNsPerMinute : 0);
  bool error = true;
  EXPECT_FALSE(controller.Insert(0.0f, error));
  EXPECT_FALSE(error);
}

// A controller of capacity 10 whose history holds the readings (milliseconds before now, value).
Controller WithHistory(std::int64_t now, const std::vector<std::pair<int, float>>& readings) {
  Controller controller(10);
  for (const auto& [msAgo, value] : readings) {
    controller.History.push_back({now - msAgo * kNsPerMs, value});
  }
  return controller;
}

struct Verdict {
  bool result;
  bool error;
};

Verdict InsertInto(float value, bool timedOut) {
  Controller controller(10);
  Prepare(controller, timedOut);
  Verdict verdict{};
  verdict.error = !timedOut;  // must be overwritten
  verdict.result = controller.Insert(value, verdict.error);
  return verdict;
}

}  // namespace

TEST(VariableController, MembersAfterConstruction) {
  const std::int64_t before = Controller::SteadyNow();
  Controller controller(7);
  const std::int64_t after = Controller::SteadyNow();
  EXPECT_EQ(std::tie(controller.Target, controller.Tolerance, controller.Limit),
            std::make_tuple(0.0f, 0.0f, 0.0f));
  EXPECT_EQ(std::tie(controller.ValidationDelay, controller.RegulationDelay),
            std::make_tuple(1.0, 1.0));
  EXPECT_EQ(controller.Capacity, 7u);
  EXPECT_TRUE(controller.History.empty());
  EXPECT_GE(controller.LastInsertTime, before);
  EXPECT_LE(controller.LastInsertTime, after);
  EXPECT_GE(controller.RegulationStartTime, before);
  EXPECT_LE(controller.RegulationStartTime, after);
  static_assert(std::has_virtual_destructor<Controller>::value, "");
  static_assert(std::is_same<decltype(controller.ValidationDelay), double>::value, "");
  static_assert(std::is_same<decltype(controller.LastInsertTime), std::int64_t>::value, "");
  static_assert(std::is_same<decltype(controller.Capacity), std::uint64_t>::value, "");
}

TEST(VariableController, InsertStampsSampleWithSteadyClock) {
  Controller controller(3);
  const std::int64_t before = Controller::SteadyNow();
  bool error = true;
  controller.Insert(4.5f, error);
  EXPECT_FALSE(error);
  ASSERT_EQ(controller.History.size(), 1u);
  EXPECT_EQ(controller.History[0].Time, controller.LastInsertTime);
  EXPECT_GE(controller.History[0].Time, before);
  EXPECT_EQ(controller.History[0].Value, 4.5f);
}

// The verdict table, for a value above the limit, between the levels, and reached: (result, error)
// while the regulation time runs and after it is over.
struct VerdictRow {
  const char* name;
  float value;
  Verdict inTime;
  Verdict late;
};

void PrintTo(const VerdictRow& row, std::ostream* out) { *out << row.name; }

class VerdictTable : public ::testing::TestWithParam<VerdictRow> {};

TEST_P(VerdictTable, GivesResultAndErrorInTimeAndLate) {
  const VerdictRow& row = GetParam();
  const Verdict inTime = InsertInto(row.value, false);
  EXPECT_EQ(inTime.result, row.inTime.result);
  EXPECT_EQ(inTime.error, row.inTime.error);
  const Verdict late = InsertInto(row.value, true);
  EXPECT_EQ(late.result, row.late.result);
  EXPECT_EQ(late.error, row.late.error);
}

INSTANTIATE_TEST_SUITE_P(
    VariableController, VerdictTable,
    ::testing::Values(VerdictRow{"Above", 0.0f, {false, false}, {true, true}},
                      VerdictRow{"Between", -22.5f, {false, false}, {true, false}},
                      VerdictRow{"Reached", -30.0f, {true, false}, {true, false}}),
    [](const ::testing::TestParamInfo<VerdictRow>& info) { return std::string(info.param.name); });

TEST(VariableController, ValueOnUpperLevelCountsAsBetween) {
  const Verdict late = InsertInto(-21.0f, true);
  EXPECT_TRUE(late.result);
  EXPECT_FALSE(late.error);
  const Verdict justAbove = InsertInto(std::nextafter(-21.0f, 0.0f), true);
  EXPECT_TRUE(justAbove.error);
}

TEST(VariableController, ValueOnLowerLevelCountsAsReached) {
  const Verdict onLevel = InsertInto(-24.0f, false);
  EXPECT_TRUE(onLevel.result);
  const Verdict justAbove = InsertInto(std::nextafter(-24.0f, 0.0f), false);
  EXPECT_FALSE(justAbove.result);
}

TEST(VariableController, LevelsAreSinglePrecisionSums) {
  // 0.3f + -25.0f rounds to -24.7000008f; the double sum would be -24.6999999881.
  Controller controller(10);
  StartAtZero(controller, 0.3f);
  const float level = 0.3f + -25.0f;
  ASSERT_LT(static_cast<double>(level), 0.3 + -25.0);
  bool error = false;
  EXPECT_TRUE(controller.Insert(level, error));
  // Between the float level and the double one: still above the float level.
  EXPECT_FALSE(controller.Insert(std::nextafter(level, 0.0f), error));
}

TEST(VariableController, LowerLevelRoundedUpInSinglePrecisionIsReached) {
  // 0.1f + -25.0f rounds up to -24.8999996f, above the exact sum of the two floats
  // (-24.8999999985): a reading equal to the float level has reached the target, while against
  // the wider sum it would lie between the levels.
  Controller controller(10);
  StartAtZero(controller, 0.1f);
  const float level = 0.1f + -25.0f;
  ASSERT_GT(static_cast<double>(level), static_cast<double>(0.1f) + -25.0);
  bool error = false;
  EXPECT_TRUE(controller.Insert(level, error));
  EXPECT_FALSE(error);
}

TEST(VariableController, FirstReadingNeverGivesVerdict) {
  for (const float value : {0.0f, -22.5f, -30.0f}) {
    Controller controller(5);
    SetLevels(controller, 1.0f);
    controller.RegulationDelay = 0.0;
    controller.RegulationStartTime = Controller::SteadyNow() - kNsPerMinute;
    bool error = true;
    EXPECT_FALSE(controller.Insert(value, error)) << value;
    EXPECT_FALSE(error) << value;
  }
}

TEST(VariableController, FirstReadingOfRefilledSingleSampleHistory) {
  // Capacity 1: every reading replaces the only sample, so no reading ever gives a verdict.
  Controller controller(1);
  SetLevels(controller, 1.0f);
  bool error = false;
  EXPECT_FALSE(controller.Insert(-30.0f, error));
  EXPECT_FALSE(controller.Insert(-30.0f, error));
  EXPECT_EQ(controller.History.size(), 1u);
}

TEST(VariableController, VerdictDependsOnlyOnCurrentReading) {
  Controller controller(10);
  Prepare(controller, true);
  bool error = false;
  EXPECT_TRUE(controller.Insert(0.0f, error));
  EXPECT_TRUE(error);
  EXPECT_TRUE(controller.Insert(-30.0f, error));
  EXPECT_FALSE(error);
  EXPECT_TRUE(controller.Insert(0.0f, error));
  EXPECT_TRUE(error);
}

TEST(VariableController, RegulationDelayComparedStrictlyInMinutes) {
  Controller controller(10);
  SetLevels(controller, 1.0f);
  bool error = false;
  controller.Insert(0.0f, error);
  // An hour far in the future cannot have elapsed; one in the past has.
  controller.RegulationDelay = 60.0;
  controller.RegulationStartTime = Controller::SteadyNow() - 59 * kNsPerMinute;
  EXPECT_FALSE(controller.Insert(0.0f, error));
  controller.RegulationStartTime = Controller::SteadyNow() - 61 * kNsPerMinute;
  EXPECT_TRUE(controller.Insert(0.0f, error));
  EXPECT_TRUE(error);
}

TEST(VariableController, InsertDropsExactlyOneSampleEvenWhenOverCapacity) {
  Controller controller(3);
  for (int i = 0; i < 5; ++i) controller.History.push_back({i, static_cast<float>(i)});
  bool error = false;
  controller.Insert(9.0f, error);
  ASSERT_EQ(controller.History.size(), 5u);
  EXPECT_EQ(controller.History.front().Value, 1.0f);
  EXPECT_EQ(controller.History.back().Value, 9.0f);
}

// Lowering Capacity below the history's length: samples 2 .. Capacity move one place toward the
// front, the array loses its last entry, and the new reading is appended.
TEST(VariableController, LoweredCapacityMovesOnlyTheFirstCapacitySamplesAndDropsTheLast) {
  Controller controller(10);
  bool error = false;
  for (int i = 0; i < 10; ++i) controller.Insert(static_cast<float>(i), error);
  controller.Capacity = 3;
  controller.Insert(42.0f, error);
  const std::vector<float> expected{1, 2, 2, 3, 4, 5, 6, 7, 8, 42};
  ASSERT_EQ(controller.History.size(), expected.size());
  for (std::size_t i = 0; i < expected.size(); ++i) {
    EXPECT_EQ(controller.History[i].Value, expected[i]) << "sample " << i;
  }
  // The next reading again moves the first Capacity samples and drops the last.
  controller.Insert(43.0f, error);
  const std::vector<float> next{2, 2, 2, 3, 4, 5, 6, 7, 8, 43};
  ASSERT_EQ(controller.History.size(), next.size());
  for (std::size_t i = 0; i < next.size(); ++i) {
    EXPECT_EQ(controller.History[i].Value, next[i]) << "sample " << i;
  }
}

TEST(VariableController, HistorySlidesOldestFirst) {
  Controller controller(3);
  bool error = false;
  for (int i = 1; i <= 5; ++i) controller.Insert(static_cast<float>(i), error);
  ASSERT_EQ(controller.History.size(), 3u);
  EXPECT_EQ(controller.History[0].Value, 3.0f);
  EXPECT_EQ(controller.History[1].Value, 4.0f);
  EXPECT_EQ(controller.History[2].Value, 5.0f);
  EXPECT_LE(controller.History[0].Time, controller.History[1].Time);
  EXPECT_LE(controller.History[1].Time, controller.History[2].Time);
}

TEST(VariableController, PredictLineThroughOldestAndNewestOnly) {
  // Oldest 0 at -30 ms, newest 3 at -10 ms: 0.15 per ms, target 6 is 20 ms after the newest,
  // so 10 ms from now. The middle sample lies far off the line and must not matter.
  const std::int64_t now = Controller::SteadyNow();
  Controller controller = WithHistory(now, {{30, 0.0f}, {20, 100.0f}, {10, 3.0f}});
  controller.Target = 6.0f;
  const double predicted = controller.Predict();
  const double elapsedMs = static_cast<double>(Controller::SteadyNow() - now) / 1e6;
  EXPECT_LE(predicted, 10.0);
  EXPECT_GE(predicted, 10.0 - elapsedMs - 1e-9);
}

TEST(VariableController, PredictNegativeWhenTrendLeadsAway) {
  Controller controller = WithHistory(Controller::SteadyNow(), {{20, 5.0f}, {10, 4.0f}});
  controller.Target = 10.0f;
  EXPECT_LT(controller.Predict(), 0.0);
}

TEST(VariableController, PredictFlatHistoryDividesByZero) {
  Controller controller = WithHistory(Controller::SteadyNow(), {{20, 5.0f}, {10, 5.0f}});
  controller.Target = 10.0f;
  EXPECT_TRUE(std::isinf(controller.Predict()));
  EXPECT_GT(controller.Predict(), 0.0);
  controller.Target = 5.0f;
  EXPECT_TRUE(std::isnan(controller.Predict()));
}

TEST(VariableController, PredictZeroSpanGivesMinusOne) {
  Controller controller(10);
  EXPECT_EQ(controller.Predict(), -1.0);
  controller.History.push_back({100, 1.0f});
  EXPECT_EQ(controller.Predict(), -1.0);
  controller.History.push_back({100, 2.0f});
  EXPECT_EQ(controller.Predict(), -1.0);
}

TEST(VariableController, ValidationDelayComparedStrictlyInSeconds) {
  Controller controller(10);
  controller.ValidationDelay = 2.0;
  controller.LastInsertTime = Controller::SteadyNow() - 1'000'000'000LL;
  EXPECT_FALSE(controller.IsValidationDelayElapsed());
  controller.LastInsertTime = Controller::SteadyNow() - 3'000'000'000LL;
  EXPECT_TRUE(controller.IsValidationDelayElapsed());
  bool error = false;
  controller.Insert(0.0f, error);
  EXPECT_FALSE(controller.IsValidationDelayElapsed());
}
