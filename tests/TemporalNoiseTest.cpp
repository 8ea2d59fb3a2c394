// The temporal-noise engine: the frame checks of AddImage, the sample standard deviation, the nine
// fixed runs of Compute with their uncovered tail, identity with the straightforward loop, and the
// noise image of the generated TemporalNoise set held against the sensor model it was drawn from.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "Random.h"
#include "TemporalNoiseModel.h"
#include "TemporalNoiseReference.h"
#include "ThrownMessage.h"
#include "stack/TemporalNoise.h"

namespace {

using Values = std::vector<unsigned short>;

const char* const kChannelMessage = "Only single channel images are supported";
const char* const kDimensionMessage = "All images needs to have the save image dimension";
const char* const kTypeMessage = "All images needs to have the save image type";

CTemporalNoise::Statistic BoundStandardDeviation(const CTemporalNoise& noise) {
  return std::bind(&CTemporalNoise::StandardDeviation, &noise, std::placeholders::_1);
}

cv::Mat RandomFrame(datagen::Random& random, int rows, int cols, int lo, int hi) {
  cv::Mat frame(rows, cols, CV_16U);
  for (int y = 0; y < rows; ++y) {
    for (int x = 0; x < cols; ++x) frame.at<unsigned short>(y, x) = random.Int(lo, hi);
  }
  return frame;
}

// The std::invalid_argument message that call throws, or "" when it throws nothing.
std::string InvalidArgumentMessage(const std::function<void()>& call) {
  return testerrors::ThrownMessage<std::invalid_argument>(call);
}

bool BitwiseEqual(const cv::Mat& a, const cv::Mat& b) {
  if (a.size() != b.size() || a.type() != b.type()) return false;
  for (int y = 0; y < a.rows; ++y) {
    if (std::memcmp(a.ptr(y), b.ptr(y), a.cols * a.elemSize()) != 0) return false;
  }
  return true;
}

// --- AddImage ---

TEST(TemporalNoise, ThreeChannelsRefusedOnEmptySeries) {
  CTemporalNoise noise;
  const cv::Mat color(4, 5, CV_16UC3, cv::Scalar::all(7));
  EXPECT_EQ(InvalidArgumentMessage([&] { noise.AddImage(color); }), kChannelMessage);
  EXPECT_TRUE(noise.Images().empty());
}

TEST(TemporalNoise, OtherDimensionsRefused) {
  CTemporalNoise noise;
  const cv::Mat first(4, 5, CV_16U, cv::Scalar(1));
  noise.AddImage(first);
  EXPECT_EQ(InvalidArgumentMessage([&] { noise.AddImage(cv::Mat(5, 4, CV_16U)); }),
            kDimensionMessage);
  EXPECT_EQ(InvalidArgumentMessage([&] { noise.AddImage(cv::Mat(4, 6, CV_16U)); }),
            kDimensionMessage);
  EXPECT_EQ(InvalidArgumentMessage([&] { noise.AddImage(cv::Mat(3, 5, CV_16U)); }),
            kDimensionMessage);
  ASSERT_EQ(noise.Images().size(), 1u);
  EXPECT_EQ(noise.Images()[0].data, first.data);
}

TEST(TemporalNoise, SameDimensionsOtherDepthRefused) {
  CTemporalNoise noise;
  const cv::Mat first(4, 5, CV_16U, cv::Scalar(1));
  noise.AddImage(first);
  for (const int type : {CV_8U, CV_16S, CV_32F}) {
    EXPECT_EQ(InvalidArgumentMessage([&] { noise.AddImage(cv::Mat(4, 5, type)); }), kTypeMessage);
  }
  ASSERT_EQ(noise.Images().size(), 1u);
  EXPECT_EQ(noise.Images()[0].data, first.data);
}

TEST(TemporalNoise, ChecksRunChannelsThenDimensionsThenType) {
  CTemporalNoise noise;
  noise.AddImage(cv::Mat(4, 5, CV_16U, cv::Scalar(1)));
  // Wrong in every respect: the channel check speaks first.
  EXPECT_EQ(InvalidArgumentMessage([&] { noise.AddImage(cv::Mat(2, 2, CV_8UC3)); }),
            kChannelMessage);
  // Wrong size and depth: the dimension check comes before the type check.
  EXPECT_EQ(InvalidArgumentMessage([&] { noise.AddImage(cv::Mat(2, 2, CV_8U)); }),
            kDimensionMessage);
  EXPECT_EQ(noise.Images().size(), 1u);
}

TEST(TemporalNoise, AddedFrameSharesPixelData) {
  CTemporalNoise noise;
  cv::Mat frame(3, 3, CV_16U, cv::Scalar(5));
  noise.AddImage(frame);
  noise.AddImage(frame.clone());
  frame.at<unsigned short>(1, 1) = 9;
  EXPECT_EQ(noise.Images()[0].at<unsigned short>(1, 1), 9);
  EXPECT_EQ(noise.Images()[1].at<unsigned short>(1, 1), 5);
}

// --- StandardDeviation ---

TEST(TemporalNoise, StandardDeviationOfOneTwoThreeIsOne) {
  CTemporalNoise noise;
  Values values{1, 2, 3};
  EXPECT_EQ(noise.StandardDeviation(values), 1.0f);
  Values pair{10, 20};
  EXPECT_FLOAT_EQ(noise.StandardDeviation(pair), std::sqrt(50.0f));
}

TEST(TemporalNoise, StandardDeviationOfOneValueIsNaN) {
  CTemporalNoise noise;
  Values one{42};
  EXPECT_TRUE(std::isnan(noise.StandardDeviation(one)));
}

TEST(TemporalNoise, StandardDeviationAccumulatesInSinglePrecision) {
  CTemporalNoise noise;
  datagen::Random random(41);
  int differsFromDouble = 0;
  for (int trial = 0; trial < 2000; ++trial) {
    // Every other trial uses long runs of bright values, whose running sum passes 2^24 and rounds.
    const bool bright = trial % 2 == 1;
    Values values(static_cast<std::size_t>(bright ? random.Int(250, 400) : random.Int(2, 40)));
    for (auto& v : values) v = static_cast<unsigned short>(random.Int(bright ? 60000 : 0, 65535));
    float sum = 0.0f;
    for (const auto v : values) sum += static_cast<float>(v);
    const float mean = sum / static_cast<float>(values.size());
    float squares = 0.0f;
    for (const auto v : values) {
      const float d = static_cast<float>(v) - mean;
      squares += d * d;
    }
    const float single = std::sqrt(squares / (static_cast<float>(values.size()) - 1.0f));
    double dsum = 0.0;
    for (const auto v : values) dsum += v;
    const double dmean = dsum / values.size();
    double dsquares = 0.0;
    for (const auto v : values) dsquares += (v - dmean) * (v - dmean);
    const float viaDouble = static_cast<float>(std::sqrt(dsquares / (values.size() - 1)));
    const Values copy = values;
    ASSERT_EQ(noise.StandardDeviation(values), single) << "trial " << trial;
    ASSERT_EQ(values, copy);
    if (single != viaDouble) ++differsFromDouble;
  }
  // The test data must be able to tell single from double accumulation.
  EXPECT_GT(differsFromDouble, 100);
}

// --- Compute ---

TEST(TemporalNoise, EmptySeriesComputeReusesTheTypeMessage) {
  const CTemporalNoise noise;
  EXPECT_EQ(InvalidArgumentMessage([&] { noise.Compute(BoundStandardDeviation(noise)); }),
            kTypeMessage);
}

TEST(TemporalNoise, ResultHasTheFramesSizeAndFloatType) {
  CTemporalNoise noise;
  datagen::Random random(3);
  for (int k = 0; k < 3; ++k) noise.AddImage(RandomFrame(random, 6, 12, 0, 100));
  const cv::Mat result = noise.Compute(BoundStandardDeviation(noise));
  EXPECT_EQ(result.rows, 6);
  EXPECT_EQ(result.cols, 12);
  EXPECT_EQ(result.type(), CV_32FC1);
}

TEST(TemporalNoise, LastPixelsBeyondTheNineRunsStayZero) {
  // 7 x 11 = 77 pixels: nine runs of 8 cover 72, the last 5 of the bottom row are never computed.
  CTemporalNoise noise;
  datagen::Random random(5);
  for (int k = 0; k < 4; ++k) noise.AddImage(RandomFrame(random, 7, 11, 0, 1000));
  const cv::Mat result =
      noise.Compute([](Values& values) { return static_cast<float>(values[0]) + 1.0f; });
  const cv::Mat& first = noise.Images()[0];
  for (int p = 0; p < 77; ++p) {
    const int y = p / 11, x = p % 11;
    const float expected = p < 72 ? first.at<unsigned short>(y, x) + 1.0f : 0.0f;
    EXPECT_EQ(result.at<float>(y, x), expected) << "pixel " << p;
  }
}

TEST(TemporalNoise, FewerThanNinePixelsGiveAllZero) {
  CTemporalNoise noise;
  noise.AddImage(cv::Mat(2, 4, CV_16U, cv::Scalar(1)));
  noise.AddImage(cv::Mat(2, 4, CV_16U, cv::Scalar(9)));
  std::atomic<int> calls{0};
  const cv::Mat result = noise.Compute([&](Values&) {
    ++calls;
    return 1.0f;
  });
  EXPECT_EQ(calls.load(), 0);
  ASSERT_EQ(result.size(), cv::Size(4, 2));
  EXPECT_EQ(cv::countNonZero(result), 0);
}

TEST(TemporalNoise, TwoIdenticalFramesGiveZeroEverywhere) {
  CTemporalNoise noise;
  datagen::Random random(7);
  const cv::Mat frame = RandomFrame(random, 30, 33, 0, 65535);
  noise.AddImage(frame);
  noise.AddImage(frame.clone());
  const cv::Mat result = noise.Compute(BoundStandardDeviation(noise));
  EXPECT_EQ(cv::countNonZero(result), 0);
  double lo = 1.0, hi = 1.0;
  cv::minMaxIdx(result, &lo, &hi);
  EXPECT_EQ(lo, 0.0);
  EXPECT_EQ(hi, 0.0);
}

TEST(TemporalNoise, ComputeTwiceWithDifferentStatistics) {
  CTemporalNoise noise;
  datagen::Random random(11);
  for (int k = 0; k < 5; ++k) noise.AddImage(RandomFrame(random, 9, 10, 0, 5000));
  const cv::Mat deviation = noise.Compute(BoundStandardDeviation(noise));
  const cv::Mat maximum = noise.Compute([](Values& values) {
    return static_cast<float>(*std::max_element(values.begin(), values.end()));
  });
  const cv::Mat again = noise.Compute(BoundStandardDeviation(noise));
  EXPECT_EQ(noise.Images().size(), 5u);
  EXPECT_TRUE(BitwiseEqual(deviation, again));
  for (int y = 0; y < 9; ++y) {
    for (int x = 0; x < 10; ++x) {
      Values values;
      unsigned short top = 0;
      for (const cv::Mat& frame : noise.Images()) {
        values.push_back(frame.at<unsigned short>(y, x));
        top = std::max(top, values.back());
      }
      EXPECT_EQ(maximum.at<float>(y, x), static_cast<float>(top));
      EXPECT_EQ(deviation.at<float>(y, x), noise.StandardDeviation(values));
    }
  }
}

TEST(TemporalNoise, WorkersSeeValuesInTheOrderFramesWereAdded) {
  // Frame k holds 1000 k + (pixel index mod 1000); the statistic fails loudly on a wrong order.
  constexpr int kRows = 13, kCols = 17, kFrames = 12;
  CTemporalNoise noise;
  for (int k = 0; k < kFrames; ++k) {
    cv::Mat frame(kRows, kCols, CV_16U);
    for (int p = 0; p < kRows * kCols; ++p) {
      frame.at<unsigned short>(p / kCols, p % kCols) = 1000 * k + p % 1000;
    }
    noise.AddImage(frame);
  }
  const cv::Mat result = noise.Compute([](Values& values) {
    if (values.size() != static_cast<std::size_t>(kFrames)) return -1.0f;
    for (std::size_t k = 0; k < values.size(); ++k) {
      if (values[k] / 1000 != static_cast<int>(k) || values[k] % 1000 != values[0]) return -2.0f;
    }
    return static_cast<float>(values[0]);
  });
  const int covered = kRows * kCols / 9 * 9;
  for (int p = 0; p < kRows * kCols; ++p) {
    const float expected = p < covered ? static_cast<float>(p % 1000) : 0.0f;
    EXPECT_EQ(result.at<float>(p / kCols, p % kCols), expected) << "pixel " << p;
  }
}

TEST(TemporalNoise, EachOfNineWorkersTakesOneContiguousRun) {
  constexpr int kRows = 20, kCols = 23;  // 460 pixels: runs of 51, 1 pixel left over
  CTemporalNoise noise;
  for (int k = 0; k < 2; ++k) {
    cv::Mat frame(kRows, kCols, CV_16U);
    for (int p = 0; p < kRows * kCols; ++p) frame.at<unsigned short>(p / kCols, p % kCols) = p;
    noise.AddImage(frame);
  }
  std::vector<std::thread::id> worker(kRows * kCols);
  noise.Compute([&](Values& values) {
    worker[values[0]] = std::this_thread::get_id();  // each pixel is written by one call only
    return 0.0f;
  });
  const int chunk = kRows * kCols / 9;
  std::set<std::thread::id> distinct;
  for (int t = 0; t < 9; ++t) {
    const std::thread::id id = worker[t * chunk];
    EXPECT_NE(id, std::thread::id());
    EXPECT_NE(id, std::this_thread::get_id());
    for (int p = t * chunk; p < (t + 1) * chunk; ++p) EXPECT_EQ(worker[p], id) << "pixel " << p;
    distinct.insert(id);
  }
  EXPECT_EQ(distinct.size(), 9u);
  EXPECT_EQ(worker[9 * chunk], std::thread::id());
}

TEST(TemporalNoise, ComputeEqualsTheStraightforwardLoopOnRandomData) {
  datagen::Random random(2024);
  const std::vector<std::function<float(Values&)>> mutating = {
      // Sorts in place: the next pixel must still see its own values in frame order.
      [](Values& values) {
        std::sort(values.begin(), values.end());
        return static_cast<float>(values[values.size() / 2]) + 0.5f * values.front();
      },
      // Shrinks the vector: the next pixel must still see all K values.
      [](Values& values) {
        const float first = values.front();
        const float last = values.back();
        values.resize(1);
        return first * 3.0f + last;
      },
  };
  // Fixed shapes cover the eight-by-eight gathering and its edges (frames and run widths that are
  // not multiples of 8, runs longer than one block of columns); random shapes follow.
  std::vector<std::array<int, 3>> shapes = {{1, 1, 2},   {3, 3, 3},    {40, 50, 32},  {70, 90, 17},
                                            {61, 83, 9}, {1, 2000, 8}, {128, 128, 16}};
  for (int trial = 0; trial < 6; ++trial) {
    shapes.push_back({random.Int(1, 70), random.Int(1, 90), random.Int(2, 40)});
  }
  for (const auto& shape : shapes) {
    const int rows = shape[0], cols = shape[1], frames = shape[2];
    CTemporalNoise noise;
    for (int k = 0; k < frames; ++k) noise.AddImage(RandomFrame(random, rows, cols, 0, 65535));
    const CTemporalNoise::Statistic deviation = BoundStandardDeviation(noise);
    EXPECT_TRUE(BitwiseEqual(noise.Compute(deviation), oracle::TemporalNoise(noise, deviation)))
        << rows << " x " << cols << " x " << frames;
    for (const auto& statistic : mutating) {
      EXPECT_TRUE(BitwiseEqual(noise.Compute(statistic), oracle::TemporalNoise(noise, statistic)))
          << rows << " x " << cols << " x " << frames;
    }
  }
}

TEST(TemporalNoise, EmptyStatisticEndsTheProcessFromAWorker) {
  // std::bad_function_call leaves a worker's thread function, which terminates the process.
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  CTemporalNoise noise;
  noise.AddImage(cv::Mat(3, 3, CV_16U, cv::Scalar(1)));
  noise.AddImage(cv::Mat(3, 3, CV_16U, cv::Scalar(2)));
  EXPECT_DEATH(noise.Compute(CTemporalNoise::Statistic()), "");
  // The straightforward loop calls on the caller's thread, where the exception can be caught.
  EXPECT_THROW(oracle::TemporalNoise(noise, CTemporalNoise::Statistic()), std::bad_function_call);
}

TEST(TemporalNoise, OtherDepthsAreHandedOverAsSixteenBitValues) {
  const auto first = [](Values& values) { return static_cast<float>(values[0]); };
  CTemporalNoise signed16;
  signed16.AddImage(cv::Mat(3, 3, CV_16S, cv::Scalar(-2)));
  signed16.AddImage(cv::Mat(3, 3, CV_16S, cv::Scalar(7)));
  const cv::Mat raw = signed16.Compute(first);
  EXPECT_EQ(raw.at<float>(1, 1), 65534.0f);  // the raw bits of -2
  EXPECT_TRUE(BitwiseEqual(raw, oracle::TemporalNoise(signed16, first)));

  CTemporalNoise bytes;
  bytes.AddImage(cv::Mat(3, 3, CV_8U, cv::Scalar(1)));
  bytes.AddImage(cv::Mat(3, 3, CV_8U, cv::Scalar(2)));
  bytes.AddImage(cv::Mat(3, 3, CV_8U, cv::Scalar(3)));
  const cv::Mat deviation = bytes.Compute(BoundStandardDeviation(bytes));
  EXPECT_EQ(cv::countNonZero(deviation != 1.0f), 0);
  EXPECT_TRUE(BitwiseEqual(deviation, oracle::TemporalNoise(bytes, BoundStandardDeviation(bytes))));

  CTemporalNoise floats;
  floats.AddImage(cv::Mat(3, 3, CV_32F, cv::Scalar(-5.0)));
  floats.AddImage(cv::Mat(3, 3, CV_32F, cv::Scalar(70000.0)));
  const auto sum = [](Values& values) { return static_cast<float>(values[0] + values[1]); };
  const cv::Mat saturated = floats.Compute(sum);
  EXPECT_EQ(saturated.at<float>(2, 2), 65535.0f);  // 0 + 65535
  EXPECT_TRUE(BitwiseEqual(saturated, oracle::TemporalNoise(floats, sum)));
}

TEST(TemporalNoise, ReferenceLoopComputesThePerPixelStatistic) {
  // The oracle itself, checked against values gathered here pixel by pixel.
  datagen::Random random(99);
  CTemporalNoise noise;
  for (int k = 0; k < 6; ++k) noise.AddImage(RandomFrame(random, 5, 8, 0, 300));
  const cv::Mat reference = oracle::TemporalNoise(noise, BoundStandardDeviation(noise));
  for (int p = 0; p < 40; ++p) {
    Values values;
    for (const cv::Mat& frame : noise.Images()) {
      values.push_back(frame.at<unsigned short>(p / 8, p % 8));
    }
    const float expected = p < 36 ? noise.StandardDeviation(values) : 0.0f;
    EXPECT_EQ(reference.at<float>(p / 8, p % 8), expected) << "pixel " << p;
  }
}

// --- The generated TemporalNoise set against its sensor model ---

class TemporalNoiseData : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    std::vector<cv::String> files;
    cv::glob(std::string(OMBRIX_TEST_DATA_DIR) + "TemporalNoise/RawNoise_*.tif", files, false);
    frames_ = new std::vector<cv::Mat>;
    for (const auto& file : files) frames_->push_back(cv::imread(file, cv::IMREAD_UNCHANGED));
    noise_ = new CTemporalNoise;
    for (const cv::Mat& frame : *frames_) noise_->AddImage(frame);
    image_ = new cv::Mat(noise_->Compute(BoundStandardDeviation(*noise_)));
  }
  static void TearDownTestSuite() {
    delete image_;
    delete noise_;
    delete frames_;
  }

  static std::vector<cv::Mat>* frames_;
  static CTemporalNoise* noise_;
  static cv::Mat* image_;
};

std::vector<cv::Mat>* TemporalNoiseData::frames_ = nullptr;
CTemporalNoise* TemporalNoiseData::noise_ = nullptr;
cv::Mat* TemporalNoiseData::image_ = nullptr;

namespace model = datagen::temporal_noise;

TEST_F(TemporalNoiseData, FramesAreTheModelsSeries) {
  ASSERT_EQ(frames_->size(), static_cast<std::size_t>(model::kFrames));
  for (const cv::Mat& frame : *frames_) {
    ASSERT_EQ(frame.type(), CV_16UC1);
    ASSERT_EQ(frame.size(), cv::Size(model::kCols, model::kRows));
    double lo = 0.0, hi = 0.0;
    cv::minMaxIdx(frame, &lo, &hi);
    EXPECT_GT(lo, 1000.0);  // far from the clip at 0
    EXPECT_LT(hi, 5000.0);
  }
}

TEST_F(TemporalNoiseData, MeasuredNoiseFollowsTheTrueNoiseMap) {
  ASSERT_EQ(frames_->size(), static_cast<std::size_t>(model::kFrames));
  // Per pixel s / se has mean c4 and variance 1 - c4^2 whatever se is; a noise image that does
  // not follow the model's map shifts the mean and widens the spread.
  const double c4 = model::C4(model::kFrames);
  const int covered = model::kRows * model::kCols / 9 * 9;
  double sum = 0.0, sumSquares = 0.0;
  for (int p = 0; p < covered; ++p) {
    const int y = p / model::kCols, x = p % model::kCols;
    const double ratio = image_->at<float>(y, x) / model::EffectiveSigma(x, y);
    sum += ratio;
    sumSquares += ratio * ratio;
  }
  const double mean = sum / covered;
  const double variance = sumSquares / covered - mean * mean;
  const double expectedVariance = 1.0 - c4 * c4;
  const double standardError = std::sqrt(expectedVariance / covered);
  EXPECT_NEAR(mean, c4, 5.0 * standardError);
  // The relative error of a variance estimate over n normal-like values is about sqrt(2 / n).
  EXPECT_NEAR(variance / expectedVariance, 1.0, 5.0 * std::sqrt(2.0 / covered) + 0.01);
}

TEST_F(TemporalNoiseData, RegionStatisticMatchesPlainDoubleArithmetic) {
  ASSERT_EQ(frames_->size(), static_cast<std::size_t>(model::kFrames));
  const cv::Rect region(model::kRegionX, model::kRegionY, model::kRegionSize, model::kRegionSize);
  cv::Scalar mean, deviation;
  cv::meanStdDev((*image_)(region), mean, deviation);

  // The same statistic straight from the frames in double precision.
  const int n = model::kFrames;
  double sum = 0.0, sumSquares = 0.0;
  for (int y = region.y; y < region.y + region.height; ++y) {
    for (int x = region.x; x < region.x + region.width; ++x) {
      double s1 = 0.0;
      for (const cv::Mat& frame : *frames_) s1 += frame.at<unsigned short>(y, x);
      const double m = s1 / n;
      double s2 = 0.0;
      for (const cv::Mat& frame : *frames_) {
        const double d = frame.at<unsigned short>(y, x) - m;
        s2 += d * d;
      }
      const double s = std::sqrt(s2 / (n - 1));
      sum += s;
      sumSquares += s * s;
    }
  }
  const double count = static_cast<double>(region.area());
  const double regionMean = sum / count;
  const double regionStd = std::sqrt(sumSquares / count - regionMean * regionMean);
  EXPECT_NEAR(mean[0], regionMean, 1e-5 * regionMean);
  EXPECT_NEAR(deviation[0], regionStd, 1e-4 * regionStd);

  // And both agree with the model's expectation within its sampling error.
  const model::RegionExpectation expected = model::ExpectedRegionStatistic();
  EXPECT_NEAR(regionStd, expected.expectedStd, 5.0 * expected.samplingError);
  EXPECT_NEAR(regionMean, expected.c4 * expected.meanSigma, 0.35);
  EXPECT_EQ(static_cast<int>(deviation[0]), 17);
}

}  // namespace

namespace {

TEST(TemporalNoise, EmptyOrThreeDimensionalFramesAreRefusedWhenAdded) {
  const char* const kEmptyMessage = "Frames must be non-empty two-dimensional images";
  const int sizes[] = {2, 3, 4};
  for (const bool seriesEmpty : {true, false}) {
    CTemporalNoise noise;
    if (!seriesEmpty) noise.AddImage(cv::Mat(4, 5, CV_16U, cv::Scalar(1)));
    const std::size_t before = noise.Images().size();
    EXPECT_EQ(InvalidArgumentMessage([&] { noise.AddImage(cv::Mat()); }), kEmptyMessage);
    EXPECT_EQ(InvalidArgumentMessage([&] { noise.AddImage(cv::Mat(0, 5, CV_16U)); }),
              kEmptyMessage);
    EXPECT_EQ(InvalidArgumentMessage([&] { noise.AddImage(cv::Mat(3, sizes, CV_16U)); }),
              kEmptyMessage);
    EXPECT_EQ(noise.Images().size(), before);
  }
  // The channel check still speaks first.
  CTemporalNoise noise;
  EXPECT_EQ(InvalidArgumentMessage([&] { noise.AddImage(cv::Mat(0, 0, CV_16UC3)); }),
            kChannelMessage);
}

TEST(TemporalNoise, ExceptionOfTheStatisticReachesTheCallerOfCompute) {
  CTemporalNoise noise;
  for (int k = 0; k < 3; ++k) noise.AddImage(cv::Mat(6, 6, CV_16U, cv::Scalar(k)));
  std::atomic<int> calls{0};
  const CTemporalNoise::Statistic throwing = [&calls](Values& values) -> float {
    ++calls;
    if (values.size() == 3) throw std::runtime_error("statistic failed");
    return 0.0f;
  };
  try {
    noise.Compute(throwing);
    ADD_FAILURE() << "no exception reached the caller";
  } catch (const std::runtime_error& e) {
    EXPECT_STREQ(e.what(), "statistic failed");
  }
  // Every worker ran until its first failure; the series can still be computed.
  EXPECT_EQ(calls.load(), CTemporalNoise::kWorkers);
  const cv::Mat result =
      noise.Compute(std::bind(&CTemporalNoise::StandardDeviation, &noise, std::placeholders::_1));
  EXPECT_EQ(result.at<float>(0, 0), 1.0f);
  // The exception keeps its own type.
  const CTemporalNoise::Statistic outOfRange = [](Values&) -> float {
    throw std::out_of_range("one pixel");
  };
  EXPECT_THROW(noise.Compute(outOfRange), std::out_of_range);
}

}  // namespace
