// Oversampled edge profiles: bin placement, the bin-offset asymmetry, threading and pixel depths.
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <opencv2/core.hpp>
#include <ostream>
#include <system_error>
#include <utility>
#include <vector>

#include "CvErrors.h"
#include "EdgeProfileReference.h"
#include "Random.h"
#include "ThreadStartFailure.h"
#include "mtf/EdgeProfile.h"

namespace {

cv::Mat RandomRegion(datagen::Random& random, int rows, int cols, int depth, int lo, int hi) {
  cv::Mat region(rows, cols, CV_MAKETYPE(depth, 1));
  cv::Mat values(rows, cols, CV_64F);
  for (int r = 0; r < rows; ++r) {
    for (int c = 0; c < cols; ++c) values.at<double>(r, c) = random.Int(lo, hi);
  }
  values.convertTo(region, region.type());
  return region;
}

std::vector<double> Build(const cv::Mat& region, float slope, int threads = 1) {
  EdgeProfiler profiler;
  profiler.threadCount = threads;
  return BuildEdgeProfile(profiler, region, slope);
}

TEST(EdgeProfile, SlopeZeroFillsOnlyEveryOversamplingBin) {
  const cv::Mat region = (cv::Mat_<double>(3, 5) << 1, 2, 3, 4, 5,  //
                          3, 4, 5, 6, 7,                            //
                          5, 6, 7, 8, 9);
  EdgeProfiler profiler;
  const std::vector<double> esf = BuildEdgeProfile(profiler, region, 0.0f);
  EXPECT_EQ(profiler.binOffset, 0);
  ASSERT_EQ(esf.size(), 20u);
  for (int i = 0; i < 20; ++i) {
    const double expected = i % 4 == 0 ? 3.0 + i / 4 : 0.0;
    EXPECT_EQ(esf[i], expected) << i;
  }
  EXPECT_EQ(profiler.esf.values, esf);
  EXPECT_EQ(profiler.esf.origin, 0.0);
  EXPECT_EQ(profiler.esf.step, 1.0);
}

// The 2 x 2 region (10 20 / 30 40) at a slope: the bin offset the run writes (whatever the
// profiler held before) and the ESF it gives.
struct SmallRegionCase {
  const char* name;
  float slope;
  std::int32_t binOffset;
  std::vector<double> esf;
};

void PrintTo(const SmallRegionCase& c, std::ostream* out) { *out << c.name; }

class SmallRegion : public ::testing::TestWithParam<SmallRegionCase> {};

TEST_P(SmallRegion, PlacesEveryPixelInItsBin) {
  const cv::Mat region = (cv::Mat_<double>(2, 2) << 10, 20, 30, 40);
  EdgeProfiler profiler;
  profiler.binOffset = -7;  // overwritten by the run
  const std::vector<double> esf = BuildEdgeProfile(profiler, region, GetParam().slope);
  EXPECT_EQ(profiler.binOffset, GetParam().binOffset);
  EXPECT_EQ(esf, GetParam().esf);
}

INSTANTIATE_TEST_SUITE_P(
    EdgeProfile, SmallRegion,
    ::testing::Values(
        // Row 1 projects to (c - 0.15) x 4 = -0.6 and 3.4: ceil gives 0 and 4 (round would give
        // -1 and 3), so both rows share the bins of row 0. off = round(-0.6) = -1: binOffset -1,
        // extra 1, bins 9, skip round(0.5) = 1; positions 0 and 4 -> bins 1 and 5.
        SmallRegionCase{"PositionsRoundUpWithCeil", 0.15f, -1, {20, 0, 0, 0, 30, 0, 0, 0}},
        // off = round(-0.5 x 4) = -2 -> binOffset -2, extra 2, bins 10, skip 1. Row 0 lands in
        // bins 2 and 6, row 1 (positions -2 and 2) in bins 0 and 4.
        SmallRegionCase{"NegativeOffsetShiftsTheBins", 0.5f, -2, {0, 10, 0, 40, 0, 20, 0, 0}},
        // off = round(0.5 x 4) = +2 is not a shift: binOffset 0, extra 2, bins 10, skip 1. Row 0
        // lands in bins 0 and 4, row 1 (positions 2 and 6) in bins 2 and 6.
        SmallRegionCase{"PositiveOffsetIsNotUsedAsShift", -0.5f, 0, {0, 30, 0, 20, 0, 40, 0, 0}}),
    [](const ::testing::TestParamInfo<SmallRegionCase>& info) { return info.param.name; });

TEST(EdgeProfile, NegativeSlopeStillPlacesEveryPixel) {
  // A constant region: every bin that receives a pixel averages to 7, and with a positive offset
  // no pixel may fall outside the array, so the bins' counts sum to R x C. Averages cannot show
  // counts, so compare with the oracle, which counts the same way, and check the constant.
  const cv::Mat region(40, 30, CV_16UC1, cv::Scalar(7));
  const std::vector<double> esf = Build(region, -0.13f);
  std::int32_t offset = 99;
  EXPECT_EQ(esf, oracle::BuildEdgeProfile(region, -0.13f, 4.0f, offset));
  EXPECT_EQ(offset, 0);
  ASSERT_EQ(esf.size(), 120u);
  int filled = 0;
  for (double v : esf) {
    EXPECT_TRUE(v == 0.0 || v == 7.0);
    filled += v == 7.0;
  }
  EXPECT_GT(filled, 100);
}

TEST(EdgeProfile, ThreadCountsOneTwoThreeGiveIdenticalProfiles) {
  datagen::Random random(5);
  // R = 10 rows: three threads take 3, 3 and 4 rows.
  const cv::Mat region = RandomRegion(random, 10, 37, CV_16U, 0, 60000);
  const std::vector<double> one = Build(region, 0.21f, 1);
  EXPECT_EQ(Build(region, 0.21f, 2), one);
  EXPECT_EQ(Build(region, 0.21f, 3), one);
  // More threads than rows: the leading chunks are empty and the last one takes every row.
  EXPECT_EQ(Build(region, 0.21f, 12), one);
  EXPECT_EQ(Build(region, 0.21f, 0), one);
}

TEST(EdgeProfile, SixteenBitEqualsSixtyFourBitFloat) {
  datagen::Random random(6);
  const cv::Mat region16 = RandomRegion(random, 50, 40, CV_16U, 0, 65535);
  cv::Mat region64;
  region16.convertTo(region64, CV_64F);
  EXPECT_EQ(Build(region16, 0.087f), Build(region64, 0.087f));
}

class Depth : public ::testing::TestWithParam<int> {};

TEST_P(Depth, GivesTheProfileOfTheDoubleRegion) {
  datagen::Random random(7);
  const cv::Mat base = RandomRegion(random, 30, 25, CV_64F, 0, 127);
  cv::Mat region;
  base.convertTo(region, CV_MAKETYPE(GetParam(), 1));
  EXPECT_EQ(Build(region, 0.11f, 2), Build(base, 0.11f, 2));
}

INSTANTIATE_TEST_SUITE_P(EdgeProfile, Depth,
                         ::testing::Values(CV_8U, CV_8S, CV_16U, CV_16S, CV_32S, CV_32F, CV_64F));

TEST(EdgeProfile, SignedDepthsKeepNegativeValues) {
  const cv::Mat region = (cv::Mat_<signed char>(1, 2) << -100, 50);
  const std::vector<double> esf = Build(region, 0.0f);
  const std::vector<double> expected = {-100, 0, 0, 0, 50, 0, 0, 0};
  EXPECT_EQ(esf, expected);
}

TEST(EdgeProfile, MatchesTheReferenceOnRandomRegions) {
  datagen::Random random(8);
  const int depths[] = {CV_8U, CV_8S, CV_16U, CV_16S, CV_32S, CV_32F, CV_64F};
  for (int trial = 0; trial < 60; ++trial) {
    const int depth = depths[random.Int(0, 6)];
    const int rows = random.Int(1, 60);
    const int cols = random.Int(1, 50);
    const cv::Mat region = RandomRegion(random, rows, cols, depth, 0, 100);
    const float slope = static_cast<float>(random.Uniform(-0.4, 0.4));
    EdgeProfiler profiler;
    profiler.threadCount = random.Int(1, 4);
    profiler.oversampling = static_cast<float>(random.Int(1, 8));
    const std::vector<double> esf = BuildEdgeProfile(profiler, region, slope);
    std::int32_t offset = 0;
    EXPECT_EQ(esf, oracle::BuildEdgeProfile(region, slope, profiler.oversampling, offset))
        << "trial " << trial;
    EXPECT_EQ(profiler.binOffset, offset);
    EXPECT_LE(esf.size(), static_cast<std::size_t>(cols * profiler.oversampling));
  }
}

TEST(EdgeProfile, CropKeepsWidthBinsFromHalfTheExtra) {
  // 9 rows, slope 0.25, oversampling 4: off = round(-8) = -8, extra 8, width 12, skip 4.
  cv::Mat region(9, 3, CV_64F);
  for (int r = 0; r < 9; ++r) {
    for (int c = 0; c < 3; ++c) region.at<double>(r, c) = 100 * r + c;
  }
  EdgeProfiler profiler;
  const std::vector<double> esf = BuildEdgeProfile(profiler, region, 0.25f);
  EXPECT_EQ(profiler.binOffset, -8);
  ASSERT_EQ(esf.size(), 12u);
  // Bin b holds the pixels with 4c - r = b - 8; the ESF starts at bin 4 (4c - r = -4).
  // 4c - r = -4: (r=4,c=0) and (r=8,c=1) -> (400 + 801) / 2.
  EXPECT_EQ(esf[0], (400.0 + 801.0) / 2.0);
  // 4c - r = 3: (r=1,c=1) and (r=5,c=2) -> (101 + 502) / 2.
  EXPECT_EQ(esf[7], (101.0 + 502.0) / 2.0);
}

TEST(EdgeProfile, RejectsEmptyMultichannelAndHalfFloatRegions) {
  EdgeProfiler profiler;
  const auto build = [&profiler](const cv::Mat& region) {
    return [&profiler, region] { BuildEdgeProfile(profiler, region, 0.1f); };
  };
  testerrors::ExpectCvError(build(cv::Mat()), cv::Error::StsBadArg, "empty region",
                            "BuildEdgeProfile");
  testerrors::ExpectCvError(build(cv::Mat(4, 4, CV_8UC3, cv::Scalar::all(1))),
                            cv::Error::StsUnsupportedFormat, "region must have one channel",
                            "BuildEdgeProfile");
  testerrors::ExpectCvError(build(cv::Mat(4, 4, CV_16FC1, cv::Scalar::all(1))),
                            cv::Error::StsUnsupportedFormat, "unsupported region depth",
                            "BuildEdgeProfile");
}

// --- Profiles without a block of rows (the measurement's jackknife replicates) ---

std::vector<double> BuildWithout(const cv::Mat& region, float slope, cv::Range excluded,
                                 int threads = 1) {
  EdgeProfiler profiler;
  profiler.threadCount = threads;
  return BuildEdgeProfile(profiler, region, slope, excluded);
}

TEST(EdgeProfile, NoExcludedRowsIsTheWholeProfile) {
  datagen::Random random(91);
  const cv::Mat region = RandomRegion(random, 37, 23, CV_16U, 0, 4000);
  for (int threads : {1, 3}) {
    EXPECT_EQ(BuildWithout(region, 0.13f, cv::Range(0, 0), threads), Build(region, 0.13f, threads));
    // A range that ends before it starts, or lies beyond the region, excludes nothing either.
    EXPECT_EQ(BuildWithout(region, 0.13f, cv::Range(9, 4), threads), Build(region, 0.13f, threads));
    EXPECT_EQ(BuildWithout(region, 0.13f, cv::Range(37, 50), threads),
              Build(region, 0.13f, threads));
  }
}

TEST(EdgeProfile, ExcludedRowsDoNotReachTheProfile) {
  datagen::Random random(92);
  const cv::Mat region = RandomRegion(random, 40, 19, CV_64F, 0, 1000);
  cv::Mat spoiled = region.clone();
  spoiled.rowRange(12, 20).setTo(cv::Scalar(1e9));
  const std::vector<double> expected = BuildWithout(region, 0.21f, cv::Range(12, 20));
  for (int threads : {1, 2, 3, 4, 7}) {
    // The block straddles the threads' chunks; every count gives the same profile.
    EXPECT_EQ(BuildWithout(spoiled, 0.21f, cv::Range(12, 20), threads), expected) << threads;
  }
  // Not excluded, the spoiled rows show.
  EXPECT_NE(Build(spoiled, 0.21f), Build(region, 0.21f));
  // A different block gives a different profile (the rows do take part).
  EXPECT_NE(BuildWithout(region, 0.21f, cv::Range(0, 8)), expected);
}

TEST(EdgeProfile, ExcludedRowsKeepTheWholeRegionsSampling) {
  // With slope 0 the layout does not depend on the row count, so leaving out the last rows is
  // the profile of the first ones; with a slope the bins keep the whole region's layout, so the
  // profile keeps its length while the cropped region's is laid out afresh.
  datagen::Random random(93);
  const cv::Mat region = RandomRegion(random, 30, 17, CV_32F, 0, 500);
  EXPECT_EQ(BuildWithout(region, 0.0f, cv::Range(21, 30)), Build(region.rowRange(0, 21), 0.0f));
  EdgeProfiler whole;
  BuildEdgeProfile(whole, region, 0.3f);
  EdgeProfiler without;
  const std::vector<double> esf = BuildEdgeProfile(without, region, 0.3f, cv::Range(21, 30));
  EXPECT_EQ(esf.size(), whole.esf.Size());
  EXPECT_EQ(without.binOffset, whole.binOffset);
}

}  // namespace

namespace {

// --- Parameters that cannot give a profile ---

TEST(EdgeProfile, NonFiniteOrHugeSlopeAndBadOversamplingAreClearErrors) {
  const cv::Mat region(20, 30, CV_16U, cv::Scalar(100));
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const float inf = std::numeric_limits<float>::infinity();
  for (const float slope : {nan, inf, -inf}) {
    EdgeProfiler profiler;
    profiler.binOffset = 77;
    testerrors::ExpectCvError([&] { BuildEdgeProfile(profiler, region, slope); },
                              cv::Error::StsBadArg, "slope must be finite", "BuildEdgeProfile");
    EXPECT_EQ(profiler.binOffset, 77);
  }
  for (const float oversampling : {nan, inf, 0.0f, -4.0f}) {
    EdgeProfiler profiler;
    profiler.oversampling = oversampling;
    testerrors::ExpectCvError([&] { BuildEdgeProfile(profiler, region, 0.1f); },
                              cv::Error::StsBadArg, "oversampling must be finite and positive",
                              "BuildEdgeProfile");
  }
  // 19 rows x 1e6 x 4 bins of offset, or 30 columns x 1e7: refused instead of allocated.
  for (const std::pair<float, float>& slopeAndOversampling :
       {std::pair{1e6f, 4.0f}, std::pair{-3e38f, 4.0f}, std::pair{0.1f, 1e7f},
        std::pair{0.1f, 3e38f}}) {
    EdgeProfiler profiler;
    profiler.oversampling = slopeAndOversampling.second;
    testerrors::ExpectCvError(
        [&] { BuildEdgeProfile(profiler, region, slopeAndOversampling.first); },
        cv::Error::StsOutOfRange, "the profile would exceed 16777216 bins", "BuildEdgeProfile");
  }
  // Just inside the bound still works: 30 x 4 bins plus 19 x 2e5 x 4 of offset.
  EdgeProfiler profiler;
  EXPECT_EQ(BuildEdgeProfile(profiler, region, 2e5f).size(), 120u);
  // A huge thread count is one thread's work, not a thread per requested count.
  EXPECT_EQ(Build(region, 0.1f, std::numeric_limits<int>::max()), Build(region, 0.1f, 1));
  const int sizes[] = {4, 4, 4};
  testerrors::ExpectCvError(
      [&] { BuildEdgeProfile(profiler, cv::Mat(3, sizes, CV_8U, cv::Scalar(1)), 0.1f); },
      cv::Error::StsBadArg, "region must be 2-D", "BuildEdgeProfile");
}

TEST(EdgeProfile, FailedThreadStartReachesTheCallerAfterTheOthersAreJoined) {
  datagen::Random random(9);
  const cv::Mat region = RandomRegion(random, 40, 30, CV_16U, 0, 60000);
  const std::vector<double> expected = Build(region, 0.1f, 1);
  const int failedBefore = testthreads::FailedThreadStarts();
  for (const int started : {0, 1, 3}) {
    EdgeProfiler profiler;
    profiler.threadCount = 5;
    testthreads::FailThreadStartAfter(started);
    EXPECT_THROW(BuildEdgeProfile(profiler, region, 0.1f), std::system_error) << started;
    testthreads::FailThreadStartAfter(-1);
  }
  EXPECT_EQ(testthreads::FailedThreadStarts(), failedBefore + 3);
  // The process goes on, and so do profiles.
  EXPECT_EQ(Build(region, 0.1f, 5), expected);
}

}  // namespace
