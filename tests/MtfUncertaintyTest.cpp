// The 95 % intervals of MTF50 and the cut frequency: the jackknife arithmetic, the figures they
// are built around, the single-edge and target measurements, and their coverage of the true MTF
// on noisy synthetic slanted edges (Gaussian PSF, square pixel aperture, known truth) with the
// conditions where the measurement's own bias takes the truth outside them. Prints the tables.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <map>
#include <opencv2/imgcodecs.hpp>
#include <string>
#include <tuple>
#include <vector>

#include "CvErrors.h"
#include "Random.h"
#include "SlantedEdge.h"
#include "mtf/MtfUncertainty.h"

namespace {

using testerrors::ExpectCvError;

// Regions of 128 columns across the edge by 256 rows along it, the size of the suite's single
// edges and of the edge regions on a chart's middle-sized targets.
constexpr int kAcross = 128;
constexpr int kAlong = 256;
constexpr double kDark = 0.1;
constexpr double kBright = 0.9;

// One noise-free rendering per case, shared by the tests of this file.
const cv::Mat& CleanEdge(double sigma, double angle, bool darkFirst, bool horizontal) {
  static std::map<std::tuple<double, double, bool, bool>, cv::Mat> cache;
  const auto key = std::make_tuple(sigma, angle, darkFirst, horizontal);
  auto found = cache.find(key);
  if (found == cache.end()) {
    // Rows, columns, tilt, PSF width, dark and bright levels, polarity, orientation; no noise.
    const datagen::SlantedEdge edge{kAlong, kAcross, angle,     sigma,
                                    kDark,  kBright, darkFirst, horizontal};
    found = cache.emplace(key, datagen::RenderSlantedEdge(edge)).first;
  }
  return found->second;
}

// Gaussian noise of fraction x the edge contrast.
cv::Mat WithNoise(const cv::Mat& clean, double fraction, std::uint64_t seed) {
  return datagen::AddGaussianNoise(clean, fraction * (kBright - kDark), seed);
}

// Coverage and mean relative width of a group of intervals.
struct Tally {
  int count = 0;
  int covered = 0;
  double widths = 0.0;  // sum of (upper - lower) / truth
  void Add(const MtfInterval& interval, double truth) {
    ASSERT_TRUE(interval.Available());
    ++count;
    if (interval.lower <= truth && truth <= interval.upper) ++covered;
    widths += (interval.upper - interval.lower) / truth;
  }
  double Coverage() const { return count == 0 ? 0.0 : static_cast<double>(covered) / count; }
  double MeanWidthPercent() const { return count == 0 ? 0.0 : 100.0 * widths / count; }
};

struct FigureTallies {
  Tally mtf50;
  Tally cut;
};

// Measures one noisy edge and adds its two intervals to the tallies.
void MeasureInto(double sigma, double angle, int index, double noise, std::uint64_t seed,
                 std::vector<FigureTallies*> tallies) {
  const bool darkFirst = index % 2 == 0;
  const bool horizontal = index % 3 == 1;
  const cv::Mat image = WithNoise(CleanEdge(sigma, angle, darkFirst, horizontal), noise, seed);
  CMtfMeasurement measurement;
  CMtfUncertainty uncertainty;
  MtfResult result;
  MtfEdgeUncertainty intervals;
  ASSERT_TRUE(uncertainty.MeasureRegion(measurement, image, result, intervals));
  ASSERT_EQ(intervals.groups, 10);
  const double true50 = datagen::SlantedEdgeTrueCrossing(sigma, 0.5);
  const double trueCut = datagen::SlantedEdgeTrueCrossing(sigma, 0.1);
  for (FigureTallies* t : tallies) {
    t->mtf50.Add(intervals.mtf50, true50);
    t->cut.Add(intervals.cutFrequency, trueCut);
  }
}

const std::vector<double> kAngles = {3.0, 5.0, 7.5, 10.0, -4.0, -8.0};

void PrintRow(const char* label, const FigureTallies& t) {
  std::printf(" %-18s %4d   %6.1f %%  %7.2f %%   %6.1f %%  %7.2f %%\n", label, t.mtf50.count,
              100.0 * t.mtf50.Coverage(), t.mtf50.MeanWidthPercent(), 100.0 * t.cut.Coverage(),
              t.cut.MeanWidthPercent());
}

void PrintHeader() {
  std::printf(" %-18s %4s   %-20s   %-20s\n", "", "n", "MTF50 cover / width", "cut cover / width");
}

// --- The jackknife arithmetic ---

TEST(MtfUncertainty, JackknifeStandardErrorOfKnownValues) {
  // Mean 2.5, squared deviations 5: sqrt(3 / 4 x 5).
  EXPECT_DOUBLE_EQ(CMtfUncertainty::JackknifeStandardError({1.0, 2.0, 3.0, 4.0}), std::sqrt(3.75));
  EXPECT_EQ(CMtfUncertainty::JackknifeStandardError({0.3, 0.3, 0.3}), 0.0);
  EXPECT_EQ(CMtfUncertainty::JackknifeStandardError({0.3}), -1.0);
  EXPECT_EQ(CMtfUncertainty::JackknifeStandardError({}), -1.0);
  EXPECT_EQ(CMtfUncertainty::JackknifeStandardError({0.3, std::nan(""), 0.2}), -1.0);
}

TEST(MtfUncertainty, JackknifeOfAMeanIsTheClassicalStandardError) {
  // For the mean of G equal groups, the leave-one-group-out means give exactly the standard
  // error of the mean computed from the group means: s / sqrt(G).
  datagen::Random random(5);
  for (int trial = 0; trial < 20; ++trial) {
    const int g = random.Int(3, 16);
    const int size = random.Int(1, 9);
    std::vector<double> groupMeans;
    double total = 0.0;
    for (int k = 0; k < g; ++k) {
      double sum = 0.0;
      for (int i = 0; i < size; ++i) sum += random.Normal();
      groupMeans.push_back(sum / size);
      total += sum;
    }
    std::vector<double> leaveOneOut;
    double meanOfMeans = 0.0;
    for (int k = 0; k < g; ++k) {
      leaveOneOut.push_back((total - groupMeans[k] * size) / ((g - 1) * size));
      meanOfMeans += groupMeans[k] / g;
    }
    double squares = 0.0;
    for (const double m : groupMeans) squares += (m - meanOfMeans) * (m - meanOfMeans);
    const double classical = std::sqrt(squares / (g - 1) / g);
    EXPECT_NEAR(CMtfUncertainty::JackknifeStandardError(leaveOneOut), classical, 1e-12 * classical)
        << "trial " << trial;
  }
}

TEST(MtfUncertainty, StudentQuantilesMatchTheTables) {
  EXPECT_NEAR(CMtfUncertainty::StudentQuantile(0.975, 1), 12.7062, 1e-4);
  EXPECT_NEAR(CMtfUncertainty::StudentQuantile(0.975, 4), 2.776445, 1e-6);
  EXPECT_NEAR(CMtfUncertainty::StudentQuantile(0.975, 9), 2.262157, 1e-6);
  EXPECT_NEAR(CMtfUncertainty::StudentQuantile(0.975, 30), 2.042272, 1e-6);
  EXPECT_NEAR(CMtfUncertainty::StudentQuantile(0.95, 9), 1.833113, 1e-6);
  EXPECT_NEAR(CMtfUncertainty::StudentQuantile(0.5, 5), 0.0, 1e-12);
  ExpectCvError([] { CMtfUncertainty::StudentQuantile(1.0, 9); }, cv::Error::StsOutOfRange,
                "p must lie in (0, 1) and the degrees of freedom be >= 1",
                "CMtfUncertainty::StudentQuantile");
  ExpectCvError([] { CMtfUncertainty::StudentQuantile(0.9, 0); }, cv::Error::StsOutOfRange,
                "p must lie in (0, 1) and the degrees of freedom be >= 1",
                "CMtfUncertainty::StudentQuantile");
}

TEST(MtfUncertainty, MtfAtAndSlopeReadTheCorrectedCurve) {
  MtfResult result;
  // A straight MTF 1 - 2 f sampled every 0.05 cycles per pixel, up to 0.5.
  for (int i = 0; i <= 10; ++i) {
    result.frequencies.values.push_back(0.05 * i);
    result.mtfCopy.values.push_back(1.0 - 2.0 * 0.05 * i);
  }
  EXPECT_NEAR(CMtfUncertainty::MtfAt(result, 0.125), 0.75, 1e-12);
  EXPECT_NEAR(CMtfUncertainty::MtfAt(result, 0.0), 1.0, 1e-12);
  EXPECT_NEAR(CMtfUncertainty::MtfAt(result, 0.5), 0.0, 1e-12);
  EXPECT_EQ(CMtfUncertainty::MtfAt(result, 0.51), -1.0);
  EXPECT_EQ(CMtfUncertainty::MtfAt(result, -0.01), -1.0);
  for (int halfWidth : {1, 3, 6, 20}) {
    EXPECT_NEAR(CMtfUncertainty::MtfSlope(result, 0.22, halfWidth), -2.0, 1e-9) << halfWidth;
  }
  // The window is the samples around the frequency: a bend outside it does not count.
  result.mtfCopy.values[9] = 0.5;
  result.mtfCopy.values[10] = 0.5;
  EXPECT_NEAR(CMtfUncertainty::MtfSlope(result, 0.22, 3), -2.0, 1e-9);
  EXPECT_GT(CMtfUncertainty::MtfSlope(result, 0.22, 6), -2.0);
  EXPECT_EQ(CMtfUncertainty::MtfSlope(MtfResult(), 0.2, 3), 0.0);
}

// --- The figures and the measurements ---

TEST(MtfUncertainty, EstimatesAreTheMeasurementsOwnFigures) {
  const cv::Mat image = WithNoise(CleanEdge(1.2, 5.0, true, false), 0.01, 11);
  CMtfMeasurement measurement;
  MtfResult expected;
  ASSERT_TRUE(measurement.MeasureRegion(image, expected));
  const std::vector<double> esfBefore = measurement.profiler.esf.values;
  CMtfUncertainty uncertainty;
  MtfResult result;
  MtfEdgeUncertainty intervals;
  ASSERT_TRUE(uncertainty.MeasureRegion(measurement, image, result, intervals));
  EXPECT_EQ(result.mtfCopy.values, expected.mtfCopy.values);
  EXPECT_EQ(result.cutFrequency, expected.cutFrequency);
  EXPECT_EQ(intervals.mtf50.estimate, MtfCrossing(expected, 0.5));
  EXPECT_EQ(intervals.cutFrequency.estimate, static_cast<double>(expected.cutFrequency));
  EXPECT_EQ(intervals.groups, 10);
  EXPECT_EQ(intervals.tQuantile, CMtfUncertainty::StudentQuantile(0.975, 9));
  for (const MtfInterval* i : {&intervals.mtf50, &intervals.cutFrequency}) {
    ASSERT_TRUE(i->Available());
    EXPECT_GT(i->standardError, 0.0);
    EXPECT_LT(i->mtfSlope, 0.0);
    EXPECT_DOUBLE_EQ(i->standardError, i->mtfStandardError / -i->mtfSlope);
    EXPECT_DOUBLE_EQ(i->lower, i->estimate - intervals.tQuantile * i->standardError);
    EXPECT_DOUBLE_EQ(i->upper, i->estimate + intervals.tQuantile * i->standardError);
  }
  // The caller's measurement object is left as it was.
  EXPECT_EQ(measurement.profiler.esf.values, esfBefore);
}

TEST(MtfUncertainty, ReplicatesLeaveOutOneBlockOfRowsEach) {
  // The interval's MTF error is the jackknife of the ten leave-one-block-out measurements.
  const cv::Mat image = WithNoise(CleanEdge(1.0, -4.0, false, true), 0.02, 12);
  CMtfMeasurement measurement;
  CMtfUncertainty uncertainty;
  MtfResult result;
  MtfEdgeUncertainty intervals;
  ASSERT_TRUE(uncertainty.MeasureRegion(measurement, image, result, intervals));
  cv::Mat prepared;
  ASSERT_TRUE(measurement.PrepareRegion(image, prepared));
  ASSERT_EQ(prepared.rows, kAlong);
  std::vector<double> at50;
  for (int k = 0; k < 10; ++k) {
    MtfResult replicate;
    ASSERT_TRUE(measurement.MeasurePrepared(
        prepared, cv::Range(k * kAlong / 10, (k + 1) * kAlong / 10), replicate));
    at50.push_back(CMtfUncertainty::MtfAt(replicate, intervals.mtf50.estimate));
  }
  EXPECT_DOUBLE_EQ(intervals.mtf50.mtfStandardError, CMtfUncertainty::JackknifeStandardError(at50));
  EXPECT_DOUBLE_EQ(intervals.mtf50.mtfSlope,
                   CMtfUncertainty::MtfSlope(result, intervals.mtf50.estimate, 6));
}

TEST(MtfUncertainty, SingleEdgeOfAnImageOrOfItsEdgeRegion) {
  const cv::Mat edge = WithNoise(CleanEdge(1.5, 5.0, true, false), 0.01, 13);
  cv::Mat image(400, 300, CV_64F, cv::Scalar(0.5));
  edge.copyTo(image(cv::Rect(100, 80, kAcross, kAlong)));
  CMtfMeasurement measurement;
  CMtfUncertainty uncertainty;
  MtfResult direct;
  MtfEdgeUncertainty directIntervals;
  ASSERT_TRUE(uncertainty.MeasureEdge(measurement, edge, direct, directIntervals));
  measurement.edgeRegion[0] = 100;
  measurement.edgeRegion[1] = 80;
  measurement.edgeRegion[2] = kAcross;
  measurement.edgeRegion[3] = kAlong;
  MtfResult viaRegion;
  MtfEdgeUncertainty regionIntervals;
  ASSERT_TRUE(uncertainty.MeasureEdge(measurement, image, viaRegion, regionIntervals));
  EXPECT_EQ(viaRegion.mtfCopy.values, direct.mtfCopy.values);
  EXPECT_EQ(regionIntervals.mtf50.lower, directIntervals.mtf50.lower);
  EXPECT_EQ(regionIntervals.cutFrequency.upper, directIntervals.cutFrequency.upper);
  // A region reaching outside the image, an empty image, no edge: false, outputs untouched.
  measurement.edgeRegion[2] = 250;
  MtfResult untouched;
  untouched.cutFrequency = 7.0f;
  MtfEdgeUncertainty none;
  none.groups = 99;
  EXPECT_FALSE(uncertainty.MeasureEdge(measurement, image, untouched, none));
  EXPECT_FALSE(uncertainty.MeasureEdge(CMtfMeasurement(), cv::Mat(), untouched, none));
  EXPECT_FALSE(uncertainty.MeasureEdge(CMtfMeasurement(), cv::Mat(50, 50, CV_8U, cv::Scalar(9)),
                                       untouched, none));
  EXPECT_EQ(untouched.cutFrequency, 7.0f);
  EXPECT_EQ(none.groups, 99);
}

TEST(MtfUncertainty, ShortRegionsGetFewerBlocksAndNoneUnderThree) {
  CMtfMeasurement measurement;
  CMtfUncertainty uncertainty;
  MtfResult result;
  MtfEdgeUncertainty intervals;
  // 40 rows along the edge: 5 blocks of 8 rows, t with 4 degrees of freedom.
  const cv::Mat forty =
      WithNoise(CleanEdge(1.0, 8.0, true, false), 0.01, 14)(cv::Rect(44, 100, 40, 40));
  ASSERT_TRUE(uncertainty.MeasureRegion(measurement, forty, result, intervals));
  EXPECT_EQ(intervals.groups, 5);
  EXPECT_NEAR(intervals.tQuantile, 2.776445, 1e-6);
  EXPECT_TRUE(intervals.mtf50.Available());
  // 23 rows: 2 blocks, no interval; the figures are still measured.
  const cv::Mat short23 = forty(cv::Rect(8, 8, 23, 23));
  ASSERT_TRUE(uncertainty.MeasureRegion(measurement, short23, result, intervals));
  EXPECT_EQ(intervals.groups, 0);
  EXPECT_FALSE(intervals.mtf50.Available());
  EXPECT_FALSE(intervals.cutFrequency.Available());
  EXPECT_EQ(intervals.mtf50.estimate, MtfCrossing(result, 0.5));
  EXPECT_EQ(intervals.mtf50.lower, -1.0);
  EXPECT_EQ(intervals.mtf50.upper, -1.0);
}

TEST(MtfUncertainty, AFigureTheMeasurementLacksHasNoInterval) {
  // A perfect step: the MTF never falls to 0.1 (nor 0.5), so both figures are -1.
  cv::Mat step(256, 128, CV_64F, cv::Scalar(0.1));
  step.colRange(64, 128).setTo(cv::Scalar(0.9));
  CMtfUncertainty uncertainty;
  MtfResult result;
  MtfEdgeUncertainty intervals;
  ASSERT_TRUE(uncertainty.MeasureRegion(CMtfMeasurement(), step, result, intervals));
  EXPECT_EQ(result.cutFrequency, -1.0f);
  EXPECT_EQ(intervals.cutFrequency.estimate, -1.0);
  EXPECT_FALSE(intervals.cutFrequency.Available());
  EXPECT_EQ(intervals.cutFrequency.lower, -1.0);
}

TEST(MtfUncertainty, BadSettingsRaiseClearErrors) {
  const cv::Mat image = CleanEdge(1.0, 5.0, true, false);
  // Every operation checks the settings before anything else and names itself.
  const auto expectRefused = [&image](const CMtfUncertainty& u, const char* message) {
    const CMtfMeasurement measurement;
    MtfResult result;
    MtfEdgeUncertainty intervals;
    ExpectCvError([&] { u.MeasureRegion(measurement, image, result, intervals); },
                  cv::Error::StsOutOfRange, message, "CMtfUncertainty::MeasureRegion");
    ExpectCvError([&] { u.MeasureEdge(measurement, image, result, intervals); },
                  cv::Error::StsOutOfRange, message, "CMtfUncertainty::MeasureEdge");
    ExpectCvError([&] { u.MeasureTargets(measurement, image, MtfTargetMap()); },
                  cv::Error::StsOutOfRange, message, "CMtfUncertainty::MeasureTargets");
  };
  CMtfUncertainty u;
  u.groups = 2;
  expectRefused(u, "groups must be at least 3");
  u.groups = 10;
  u.minimumGroupRows = 0;
  expectRefused(u, "minimumGroupRows must be at least 1");
  u.minimumGroupRows = 8;
  for (double confidence : {0.0, 1.0, std::nan("")}) {
    u.confidence = confidence;
    expectRefused(u, "confidence must lie in (0, 1)");
  }
  u.confidence = 0.95;
  u.slopeHalfWidth = 0;
  expectRefused(u, "slopeHalfWidth must be at least 1");
}

TEST(MtfUncertainty, EveryEdgeOfEveryTargetOfAChart) {
  // FTM.tif: five targets, blur sigma 1.41 px (recorded in FTM.txt), where the measurement's own
  // bias is below 0.1 %: every interval holds the truth.
  const cv::Mat chart =
      cv::imread(std::string(OMBRIX_TEST_DATA_DIR) + "FTM.tif", cv::IMREAD_UNCHANGED);
  ASSERT_FALSE(chart.empty());
  CMtfMeasurement measurement;
  const MtfTargetMap targets = measurement.MeasureTargets(chart);
  ASSERT_EQ(targets.size(), 5u);
  CMtfUncertainty uncertainty;
  const MtfTargetUncertainty all = uncertainty.MeasureTargets(measurement, chart, targets);
  ASSERT_EQ(all.size(), targets.size());
  const double true50 = datagen::SlantedEdgeTrueCrossing(1.41, 0.5);
  const double trueCut = datagen::SlantedEdgeTrueCrossing(1.41, 0.1);
  FigureTallies tally;
  for (const auto& [number, target] : targets) {
    const std::vector<MtfEdgeUncertainty>& edges = all.at(number);
    ASSERT_EQ(edges.size(), target.edges.size());
    ASSERT_EQ(edges.size(), 4u);
    for (std::size_t i = 0; i < edges.size(); ++i) {
      EXPECT_EQ(edges[i].mtf50.estimate, MtfCrossing(target.edges[i].result, 0.5));
      EXPECT_EQ(edges[i].cutFrequency.estimate,
                static_cast<double>(target.edges[i].result.cutFrequency));
      EXPECT_EQ(edges[i].groups, 10);
      tally.mtf50.Add(edges[i].mtf50, true50);
      tally.cut.Add(edges[i].cutFrequency, trueCut);
    }
  }
  PrintHeader();
  PrintRow("FTM.tif", tally);
  EXPECT_EQ(tally.mtf50.covered, 20);
  EXPECT_EQ(tally.cut.covered, 20);
  // Printed for the record: the cleaner charts, where the bias shows (FTM2.tif: sigma 1.2, 16-bit
  // with noise 0.27 % of the contrast; TestEntreeFTM.tif: sigma 1.8141 and regions down to 45 x 71
  // pixels, whose window raises MTF50 by about 2 %).
  for (const auto& [file, sigma] :
       {std::make_pair("FTM2.tif", 1.2), std::make_pair("TestEntreeFTM.tif", 1.8141)}) {
    const cv::Mat other =
        cv::imread(std::string(OMBRIX_TEST_DATA_DIR) + file, cv::IMREAD_UNCHANGED);
    ASSERT_FALSE(other.empty()) << file;
    const MtfTargetMap found = measurement.MeasureTargets(other);
    const MtfTargetUncertainty intervals = uncertainty.MeasureTargets(measurement, other, found);
    FigureTallies t;
    for (const auto& [number, target] : found) {
      for (const MtfEdgeUncertainty& e : intervals.at(number)) {
        t.mtf50.Add(e.mtf50, datagen::SlantedEdgeTrueCrossing(sigma, 0.5));
        t.cut.Add(e.cutFrequency, datagen::SlantedEdgeTrueCrossing(sigma, 0.1));
      }
    }
    PrintRow(file, t);
    EXPECT_EQ(t.mtf50.count, 20) << file;
  }
  // Edges of another image, or no targets: no interval, nothing measured.
  MtfTargetMap moved = targets;
  moved.begin()->second.edges[0].region.x = chart.cols - 10;
  const MtfTargetUncertainty outside = uncertainty.MeasureTargets(measurement, chart, moved);
  EXPECT_FALSE(outside.begin()->second[0].mtf50.Available());
  EXPECT_TRUE(outside.begin()->second[1].mtf50.Available());
  EXPECT_TRUE(uncertainty.MeasureTargets(measurement, chart, MtfTargetMap()).empty());
  EXPECT_TRUE(uncertainty.MeasureTargets(measurement, cv::Mat(), targets).empty());
}

// --- Coverage of the truth ---

// The claim: on 128 x 256 regions with PSF sigma 0.75 to 2 px (MTF50 0.09 to 0.23 cycles per
// pixel), tilts of 3 to 10 degrees either way, both polarities and orientations, and Gaussian
// noise of 1 % to 3 % of the edge contrast, the 95 % intervals hold the true MTF50 and cut
// frequency in 90 % to 99 % of cases. Per noise level 240 edges: 4 sigmas x 6 tilts x 10 draws.
class Coverage : public ::testing::TestWithParam<double> {};

TEST_P(Coverage, CoversTheTrueFiguresOfNoisyEdges) {
  const double noise = GetParam();
  std::map<double, FigureTallies> bySigma;
  FigureTallies all;
  for (double sigma : {0.75, 1.0, 1.5, 2.0}) {
    for (std::size_t a = 0; a < kAngles.size(); ++a) {
      for (int draw = 0; draw < 10; ++draw) {
        const std::uint64_t seed = 100000 * static_cast<std::uint64_t>(100 * noise) +
                                   1000 * static_cast<std::uint64_t>(4 * sigma) + 10 * a + draw;
        MeasureInto(sigma, kAngles[a], static_cast<int>(a), noise, seed, {&bySigma[sigma], &all});
      }
    }
  }
  PrintHeader();
  for (const auto& [sigma, t] : bySigma) {
    char label[32];
    std::snprintf(label, sizeof(label), "noise %.0f%% s %.2f", 100.0 * noise, sigma);
    PrintRow(label, t);
  }
  PrintRow("all", all);
  EXPECT_EQ(all.mtf50.count, 240);
  EXPECT_GE(all.mtf50.Coverage(), 0.90);
  EXPECT_LE(all.mtf50.Coverage(), 0.99);
  EXPECT_GE(all.cut.Coverage(), 0.90);
  EXPECT_LE(all.cut.Coverage(), 0.99);
}

INSTANTIATE_TEST_SUITE_P(MtfUncertainty, Coverage, ::testing::Values(0.01, 0.02, 0.03));

// The intervals follow the noise: four times less noise, about four times narrower.
TEST(MtfUncertainty, IntervalsAreNarrowerOnCleanEdgesThanOnNoisyOnes) {
  std::map<double, FigureTallies> byNoise;
  for (double noise : {0.0025, 0.01, 0.03}) {
    for (double sigma : {1.0, 1.5}) {
      for (std::size_t a = 0; a < 3; ++a) {
        for (int draw = 0; draw < 3; ++draw) {
          MeasureInto(sigma, kAngles[a], static_cast<int>(a), noise,
                      9000 + static_cast<std::uint64_t>(10000 * noise) + 10 * a + draw,
                      {&byNoise[noise]});
        }
      }
    }
  }
  PrintHeader();
  for (const auto& [noise, t] : byNoise) {
    char label[32];
    std::snprintf(label, sizeof(label), "noise %.2f%%", 100.0 * noise);
    PrintRow(label, t);
  }
  const FigureTallies& clean = byNoise[0.0025];
  const FigureTallies& middle = byNoise[0.01];
  const FigureTallies& noisy = byNoise[0.03];
  for (const auto& [low, high, ratio] :
       {std::make_tuple(&clean, &middle, 4.0), std::make_tuple(&middle, &noisy, 3.0)}) {
    const double r50 = high->mtf50.MeanWidthPercent() / low->mtf50.MeanWidthPercent();
    const double rCut = high->cut.MeanWidthPercent() / low->cut.MeanWidthPercent();
    EXPECT_GT(r50, 0.7 * ratio);
    EXPECT_LT(r50, 1.4 * ratio);
    EXPECT_GT(rCut, 0.7 * ratio);
    EXPECT_LT(rCut, 1.4 * ratio);
  }
}

// Where noise is low and the measurement's own bias is not (sharp edges: the profile's quarter-
// pixel bins lower MTF50 by 0.75 % at sigma 0.5; soft edges in a 128-pixel region: the window
// raises it by 0.37 % at sigma 2.5), the narrow intervals miss the truth: the bias is not in them.
TEST(MtfUncertainty, MeasurementBiasIsNotInTheIntervalOfCleanEdges) {
  for (double sigma : {0.5, 2.5}) {
    FigureTallies t;
    for (std::size_t a = 0; a < kAngles.size(); ++a) {
      MeasureInto(sigma, kAngles[a], static_cast<int>(a), 0.0025, 7000 + 10 * a, {&t});
    }
    char label[32];
    std::snprintf(label, sizeof(label), "noise 0.25%% s %.2f", sigma);
    PrintHeader();
    PrintRow(label, t);
    EXPECT_LE(t.mtf50.Coverage(), 0.5) << sigma;
  }
}

}  // namespace
