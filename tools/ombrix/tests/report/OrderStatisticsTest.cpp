// Order statistics by selection against the sorted sample (the oracle) on random samples: few
// distinct values (ties), many, single values, positions at both ends and repeated; percentiles
// against the interpolation written out on the sorted sample.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <stdexcept>
#include <vector>

#include "OrderStatistics.h"
#include "Random.h"

namespace {

using ombrix_tool::OrderStatistics;
using ombrix_tool::Percentiles;

// The project's own generator, so the cases are the same everywhere.
class Draw {
 public:
  explicit Draw(std::uint64_t seed) : random_(seed) {}
  std::size_t Below(std::size_t n) {
    return static_cast<std::size_t>(random_.Int(0, static_cast<int>(n) - 1));
  }

 private:
  datagen::Random random_;
};

std::vector<float> Sample(Draw& draw, std::size_t size, std::size_t distinct) {
  std::vector<float> sample(size);
  for (float& value : sample) {
    value = static_cast<float>(draw.Below(distinct)) * 0.37f - 5.0f;
  }
  return sample;
}

TEST(OrderStatistics, EqualTheSortedSampleAtEveryAskedPosition) {
  Draw draw(2024);
  for (int trial = 0; trial < 300; ++trial) {
    const std::size_t size = 1 + draw.Below(trial < 100 ? 8 : 5000);
    const std::size_t distinct = 1 + draw.Below(trial % 2 == 0 ? 4 : 100000);
    const std::vector<float> original = Sample(draw, size, distinct);
    std::vector<float> sorted = original;
    std::sort(sorted.begin(), sorted.end());
    std::vector<std::size_t> positions = {size - 1, 0};
    for (int k = 0; k < 5; ++k) positions.push_back(draw.Below(size));
    positions.push_back(positions.back());  // asked twice
    std::vector<float> sample = original;
    const std::vector<float> got = OrderStatistics(sample, positions);
    ASSERT_EQ(got.size(), positions.size());
    for (std::size_t i = 0; i < positions.size(); ++i) {
      EXPECT_EQ(got[i], sorted[positions[i]])
          << "trial " << trial << ", size " << size << ", position " << positions[i];
    }
    // Reordered, not changed.
    std::sort(sample.begin(), sample.end());
    EXPECT_EQ(sample, sorted) << "trial " << trial;
  }
}

TEST(OrderStatistics, PercentilesInterpolateBetweenNeighbouringOrderStatistics) {
  Draw draw(7);
  const std::vector<double> fractions = {0.99, 0.0, 0.5, 1.0, 0.999, 0.25};
  for (int trial = 0; trial < 200; ++trial) {
    const std::size_t size = 1 + draw.Below(3000);
    const std::vector<float> original = Sample(draw, size, 1 + draw.Below(50000));
    std::vector<float> sorted = original;
    std::sort(sorted.begin(), sorted.end());
    std::vector<float> sample = original;
    const std::vector<double> got = Percentiles(sample, fractions);
    for (std::size_t i = 0; i < fractions.size(); ++i) {
      const double position = fractions[i] * static_cast<double>(size - 1);
      const std::size_t below = static_cast<std::size_t>(std::floor(position));
      const std::size_t above = std::min(below + 1, size - 1);
      const double expected =
          sorted[below] + (position - static_cast<double>(below)) *
                              (static_cast<double>(sorted[above]) - sorted[below]);
      EXPECT_EQ(got[i], expected) << "trial " << trial << ", fraction " << fractions[i];
    }
  }
}

TEST(OrderStatistics, RefusesPositionsOutsideTheSampleAndEmptyPercentiles) {
  std::vector<float> sample = {3.0f, 1.0f, 2.0f};
  EXPECT_THROW(OrderStatistics(sample, {3}), std::out_of_range);
  std::vector<float> empty;
  EXPECT_THROW(Percentiles(empty, {0.5}), std::invalid_argument);
  EXPECT_THROW(Percentiles(sample, {1.5}), std::invalid_argument);
  EXPECT_THROW(Percentiles(sample, {std::nan("")}), std::invalid_argument);
  EXPECT_EQ(Percentiles(sample, {0.5}), std::vector<double>{2.0});
}

}  // namespace
