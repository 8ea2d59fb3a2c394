// Our partial selection (median-of-three partitioning above 32 entries, insertion sort below):
// the nth entry is the true order statistic, nothing before it is greater and nothing after it
// smaller, and the multiset of values is kept.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <vector>

#include "Random.h"
#include "filters/Select.h"

namespace {

void ExpectSelected(std::vector<unsigned short> values, std::size_t nth) {
  std::vector<unsigned short> sorted = values;
  std::sort(sorted.begin(), sorted.end());
  ombrix::SelectNth(values.data(), values.data() + nth, values.data() + values.size());
  ASSERT_EQ(values[nth], sorted[nth]) << "size " << values.size() << " nth " << nth;
  for (std::size_t i = 0; i < nth; ++i) ASSERT_LE(values[i], values[nth]) << "index " << i;
  for (std::size_t i = nth + 1; i < values.size(); ++i) {
    ASSERT_GE(values[i], values[nth]) << "index " << i;
  }
  std::sort(values.begin(), values.end());
  ASSERT_EQ(values, sorted);
}

TEST(Select, RandomArraysGiveTheOrderStatistic) {
  datagen::Random rng(4242);
  for (int trial = 0; trial < 2000; ++trial) {
    const int size = trial < 400 ? 1 + trial % 80 : rng.Int(1, 3000);
    // Several value ranges: all distinct-ish, many ties, two values, full 16-bit range.
    const int range =
        std::vector<int>{65535, 3, 1, 255, 40000}[static_cast<std::size_t>(trial % 5)];
    std::vector<unsigned short> values(static_cast<std::size_t>(size));
    for (auto& v : values) v = static_cast<unsigned short>(rng.Int(0, range) + (65535 - range) / 2);
    const std::size_t nth = static_cast<std::size_t>(rng.Int(0, size - 1));
    ExpectSelected(values, nth);
    ExpectSelected(values, values.size() / 2);
  }
}

// Sizes around the insertion-sort limit (32), the median-of-three-medians limit (40) and beyond.
class Size : public ::testing::TestWithParam<int> {};

TEST_P(Size, SortedReversedAndOrganPipeInputs) {
  const int size = GetParam();
  std::vector<unsigned short> ascending(static_cast<std::size_t>(size));
  for (int i = 0; i < size; ++i)
    ascending[static_cast<std::size_t>(i)] = static_cast<unsigned short>(i * 7);
  std::vector<unsigned short> descending(ascending.rbegin(), ascending.rend());
  std::vector<unsigned short> pipe(static_cast<std::size_t>(size));
  for (int i = 0; i < size; ++i)
    pipe[static_cast<std::size_t>(i)] = static_cast<unsigned short>(std::min(i, size - 1 - i));
  for (std::size_t nth :
       {std::size_t{0}, static_cast<std::size_t>(size / 2), static_cast<std::size_t>(size - 1)}) {
    ExpectSelected(ascending, nth);
    ExpectSelected(descending, nth);
    ExpectSelected(pipe, nth);
  }
}

INSTANTIATE_TEST_SUITE_P(Select, Size,
                         ::testing::Values(1, 2, 31, 32, 33, 34, 40, 41, 64, 65, 349, 1000, 6561));

TEST(Select, ShortRangesAreFullySorted) {
  // Up to 32 entries the routine is an insertion sort, so the whole range ends up sorted.
  datagen::Random rng(77);
  for (int size = 1; size <= 32; ++size) {
    std::vector<unsigned short> values(static_cast<std::size_t>(size));
    for (auto& v : values) v = static_cast<unsigned short>(rng.Int(0, 65535));
    ombrix::SelectNth(values.data(), values.data() + size / 2, values.data() + size);
    EXPECT_TRUE(std::is_sorted(values.begin(), values.end())) << "size " << size;
  }
}

}  // namespace
