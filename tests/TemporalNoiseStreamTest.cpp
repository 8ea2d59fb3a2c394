// The two-pass temporal-noise stream: bit-for-bit identity with CTemporalNoise::Compute on every
// pixel Compute covers (the TemporalNoise set, odd sizes, long series whose float sums round,
// other depths, views), the tail pixels Compute leaves at 0 against a straightforward per-pixel
// computation, and the checks and messages of both passes.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <functional>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <stdexcept>
#include <string>
#include <vector>

#include "Random.h"
#include "stack/TemporalNoise.h"
#include "stack/TemporalNoiseStream.h"

namespace {

using Values = std::vector<unsigned short>;

const char* const kChannelMessage = "Only single channel images are supported";
const char* const kDimensionMessage = "All images needs to have the save image dimension";
const char* const kTypeMessage = "All images needs to have the save image type";

// What the call threw: "invalid_argument: <message>", "logic_error: <message>", or "".
std::string Thrown(const std::function<void()>& call) {
  try {
    call();
  } catch (const std::invalid_argument& e) {
    return std::string("invalid_argument: ") + e.what();
  } catch (const std::logic_error& e) {
    return std::string("logic_error: ") + e.what();
  }
  return "";
}

cv::Mat RandomFrame(datagen::Random& random, int rows, int cols, int lo, int hi) {
  cv::Mat frame(rows, cols, CV_16U);
  for (int y = 0; y < rows; ++y) {
    for (int x = 0; x < cols; ++x) frame.at<unsigned short>(y, x) = random.Int(lo, hi);
  }
  return frame;
}

cv::Mat ComputeWithCTemporalNoise(const std::vector<cv::Mat>& frames) {
  CTemporalNoise noise;
  for (const cv::Mat& frame : frames) noise.AddImage(frame);
  return noise.Compute(
      std::bind(&CTemporalNoise::StandardDeviation, &noise, std::placeholders::_1));
}

// Pixels (row-major) that CTemporalNoise::Compute hands to its nine workers.
int Covered(const cv::Mat& image) { return image.rows * image.cols / 9 * 9; }

bool SameBits(float a, float b) { return std::memcmp(&a, &b, sizeof(float)) == 0; }

// Number of covered pixels whose bits differ between the two images.
int CoveredDifferences(const cv::Mat& stream, const cv::Mat& compute) {
  int differences = 0;
  for (int p = 0; p < Covered(compute); ++p) {
    const int y = p / compute.cols, x = p % compute.cols;
    if (!SameBits(stream.at<float>(y, x), compute.at<float>(y, x))) ++differences;
  }
  return differences;
}

// One pixel's values over the series, converted as CV_16U with saturation.
Values PixelValues(const std::vector<cv::Mat>& frames, int y, int x) {
  Values values;
  for (const cv::Mat& frame : frames) {
    if (frame.elemSize() == 2) {
      values.push_back(frame.at<unsigned short>(y, x));
    } else {
      cv::Mat sample;
      frame(cv::Rect(x, y, 1, 1)).convertTo(sample, CV_16U);
      values.push_back(sample.at<unsigned short>(0, 0));
    }
  }
  return values;
}

// The sample standard deviation as written: in-order float sum, float mean, in-order float sum of
// the squared deviations, divisor n - 1.
float StraightforwardDeviation(const Values& values) {
  const float n = static_cast<float>(values.size());
  float sum = 0.0f;
  for (const unsigned short v : values) sum += static_cast<float>(v);
  const float mean = sum / n;
  float squares = 0.0f;
  for (const unsigned short v : values) {
    const float d = static_cast<float>(v) - mean;
    squares += d * d;
  }
  return std::sqrt(squares / (n - 1.0f));
}

double DoubleDeviation(const Values& values) {
  double sum = 0.0;
  for (const unsigned short v : values) sum += v;
  const double mean = sum / values.size();
  double squares = 0.0;
  for (const unsigned short v : values) squares += (v - mean) * (v - mean);
  return std::sqrt(squares / (values.size() - 1.0));
}

// The stream's image of the frames against Compute on the covered pixels and against the
// straightforward computation on the tail (which Compute leaves at 0).
void ExpectMatchesComputeAndTail(const std::vector<cv::Mat>& frames, const std::string& what) {
  const cv::Mat stream = CTemporalNoiseStream::StandardDeviationOf(frames);
  const cv::Mat compute = ComputeWithCTemporalNoise(frames);
  ASSERT_EQ(stream.size(), compute.size()) << what;
  ASSERT_EQ(stream.type(), CV_32FC1) << what;
  EXPECT_EQ(CoveredDifferences(stream, compute), 0) << what;
  for (int p = Covered(compute); p < compute.rows * compute.cols; ++p) {
    const int y = p / compute.cols, x = p % compute.cols;
    EXPECT_EQ(compute.at<float>(y, x), 0.0f) << what << " pixel " << p;
    const float expected = StraightforwardDeviation(PixelValues(frames, y, x));
    EXPECT_TRUE(SameBits(stream.at<float>(y, x), expected))
        << what << " tail pixel " << p << ": " << stream.at<float>(y, x) << " vs " << expected;
  }
}

// --- Identity with CTemporalNoise ---

TEST(TemporalNoiseStream, EqualsComputeBitForBitOnTheTemporalNoiseSet) {
  std::vector<cv::String> files;
  cv::glob(std::string(OMBRIX_TEST_DATA_DIR) + "TemporalNoise/RawNoise_*.tif", files, false);
  ASSERT_EQ(files.size(), 32u);
  std::vector<cv::Mat> frames;
  CTemporalNoiseStream stream;
  // Frames are read again for pass 2, as a tool streaming from files does.
  for (const auto& file : files) stream.AddSumFrame(cv::imread(file, cv::IMREAD_UNCHANGED));
  for (const auto& file : files) {
    frames.push_back(cv::imread(file, cv::IMREAD_UNCHANGED));
    stream.AddDeviationFrame(frames.back());
  }
  const cv::Mat image = stream.StandardDeviation();
  const cv::Mat compute = ComputeWithCTemporalNoise(frames);
  ASSERT_EQ(image.size(), cv::Size(1200, 1200));
  ASSERT_EQ(Covered(compute), 1200 * 1200);  // no tail on this set
  EXPECT_EQ(CoveredDifferences(image, compute), 0);
  // Not a constant image: the noise map of the set spans a range of values.
  double lo = 0.0, hi = 0.0;
  cv::minMaxIdx(image, &lo, &hi);
  EXPECT_GT(lo, 0.0);
  EXPECT_GT(hi, 2.0 * lo);
}

TEST(TemporalNoiseStream, OddSizesMatchComputeAndTheTailIsComputed) {
  datagen::Random random(77);
  // Pixel counts with every remainder mod 9, fewer than 9 pixels, single rows and columns.
  std::vector<std::vector<int>> shapes = {{7, 11, 4},  {2, 4, 3},   {1, 1, 2}, {1, 8, 5},
                                          {8, 1, 6},   {13, 17, 9}, {3, 3, 2}, {5, 7, 33},
                                          {10, 10, 2}, {31, 29, 16}};
  for (int trial = 0; trial < 8; ++trial) {
    shapes.push_back({random.Int(1, 40), random.Int(1, 40), random.Int(2, 24)});
  }
  for (const auto& shape : shapes) {
    std::vector<cv::Mat> frames;
    for (int k = 0; k < shape[2]; ++k)
      frames.push_back(RandomFrame(random, shape[0], shape[1], 0, 65535));
    ExpectMatchesComputeAndTail(frames, std::to_string(shape[0]) + " x " +
                                            std::to_string(shape[1]) + " x " +
                                            std::to_string(shape[2]));
  }
}

TEST(TemporalNoiseStream, TailPixelsAreTheSampleDeviationOfTheirValues) {
  // 7 x 11 = 77 pixels, the last 5 beyond Compute's nine runs; values chosen so the deviations
  // are known exactly: pixel p holds p, p + 2, p + 4 over three frames, deviation 2.
  std::vector<cv::Mat> frames;
  for (int k = 0; k < 3; ++k) {
    cv::Mat frame(7, 11, CV_16U);
    for (int p = 0; p < 77; ++p) frame.at<unsigned short>(p / 11, p % 11) = 100 * p + 2 * k;
    frames.push_back(frame);
  }
  const cv::Mat stream = CTemporalNoiseStream::StandardDeviationOf(frames);
  const cv::Mat compute = ComputeWithCTemporalNoise(frames);
  for (int p = 0; p < 77; ++p) {
    EXPECT_EQ(stream.at<float>(p / 11, p % 11), 2.0f) << "pixel " << p;
    EXPECT_EQ(compute.at<float>(p / 11, p % 11), p < 72 ? 2.0f : 0.0f) << "pixel " << p;
  }
}

TEST(TemporalNoiseStream, LongSeriesWhoseFloatSumsRoundStillMatch) {
  // 300 bright frames: past 256 values the running float sum passes 2^24 and rounds, so the order
  // and precision of every addition show in the result.
  datagen::Random random(300);
  std::vector<cv::Mat> frames;
  for (int k = 0; k < 300; ++k) frames.push_back(RandomFrame(random, 5, 7, 60000, 65535));
  ExpectMatchesComputeAndTail(frames, "300 frames of 5 x 7");
  // The data can tell single from double accumulation.
  const cv::Mat stream = CTemporalNoiseStream::StandardDeviationOf(frames);
  int differsFromDouble = 0;
  for (int p = 0; p < 35; ++p) {
    const Values values = PixelValues(frames, p / 7, p % 7);
    const double exact = DoubleDeviation(values);
    const float value = stream.at<float>(p / 7, p % 7);
    if (value != static_cast<float>(exact)) ++differsFromDouble;
    EXPECT_NEAR(value, exact, 1e-3 * exact) << "pixel " << p;
  }
  EXPECT_GT(differsFromDouble, 5);
}

TEST(TemporalNoiseStream, EightBitFloatAndSignedFramesAreReadAsComputeReadsThem) {
  datagen::Random random(8);
  for (const int type : {CV_8U, CV_8S, CV_16S, CV_32S, CV_32F, CV_64F}) {
    std::vector<cv::Mat> frames;
    for (int k = 0; k < 6; ++k) {
      cv::Mat frame(9, 14, type);
      for (int y = 0; y < frame.rows; ++y) {
        for (int x = 0; x < frame.cols; ++x) {
          // Negative values, values above 65535 and halves exercise saturation and rounding.
          const double value = random.Uniform(-300.0, 70000.0);
          const double v = (x + y) % 3 == 0 ? std::floor(value) + 0.5 : value;
          switch (type) {
            case CV_8U:
              frame.at<unsigned char>(y, x) = cv::saturate_cast<unsigned char>(v / 200.0);
              break;
            case CV_8S:
              frame.at<signed char>(y, x) = cv::saturate_cast<signed char>(v / 200.0 - 100.0);
              break;
            case CV_16S:
              frame.at<short>(y, x) = cv::saturate_cast<short>(v - 35000.0);
              break;
            case CV_32S:
              frame.at<int>(y, x) = cv::saturate_cast<int>(v);
              break;
            case CV_32F:
              frame.at<float>(y, x) = static_cast<float>(v);
              break;
            default:
              frame.at<double>(y, x) = v;
          }
        }
      }
      frames.push_back(frame);
    }
    ExpectMatchesComputeAndTail(frames, "type " + std::to_string(type));
  }
  // A signed 16-bit -2 is read as its raw bits, 65534, as Compute reads it.
  const std::vector<cv::Mat> signedFrames = {cv::Mat(2, 2, CV_16S, cv::Scalar(-2)),
                                             cv::Mat(2, 2, CV_16S, cv::Scalar(0))};
  const float rawBits = StraightforwardDeviation({65534, 0});
  EXPECT_EQ(CTemporalNoiseStream::StandardDeviationOf(signedFrames).at<float>(1, 1), rawBits);
}

TEST(TemporalNoiseStream, ViewsOfLargerImagesGiveTheSameImageAsTheirCopies) {
  datagen::Random random(12);
  std::vector<cv::Mat> views;
  std::vector<cv::Mat> copies;
  for (int k = 0; k < 5; ++k) {
    const cv::Mat big = RandomFrame(random, 40, 50, 0, 65535);
    views.push_back(big(cv::Rect(3, 5, 21, 17)));
    copies.push_back(views.back().clone());
  }
  ASSERT_FALSE(views[0].isContinuous());
  const cv::Mat fromViews = CTemporalNoiseStream::StandardDeviationOf(views);
  const cv::Mat fromCopies = CTemporalNoiseStream::StandardDeviationOf(copies);
  EXPECT_EQ(cv::norm(fromViews, fromCopies, cv::NORM_INF), 0.0);
  ExpectMatchesComputeAndTail(copies, "copies");
}

TEST(TemporalNoiseStream, SameImageWithOneThreadOrSeveral) {
  datagen::Random random(21);
  std::vector<cv::Mat> frames;
  for (int k = 0; k < 7; ++k) frames.push_back(RandomFrame(random, 123, 45, 0, 4000));
  const int threads = cv::getNumThreads();
  cv::setNumThreads(1);
  const cv::Mat single = CTemporalNoiseStream::StandardDeviationOf(frames);
  cv::setNumThreads(4);
  const cv::Mat several = CTemporalNoiseStream::StandardDeviationOf(frames);
  cv::setNumThreads(threads);
  EXPECT_EQ(std::memcmp(single.data, several.data, single.total() * sizeof(float)), 0);
}

TEST(TemporalNoiseStream, OneFrameGivesNaNAndIdenticalFramesZero) {
  const cv::Mat frame(3, 4, CV_16U, cv::Scalar(1234));
  const cv::Mat one = CTemporalNoiseStream::StandardDeviationOf({frame});
  for (int p = 0; p < 12; ++p) EXPECT_TRUE(std::isnan(one.at<float>(p / 4, p % 4))) << p;
  const cv::Mat two = CTemporalNoiseStream::StandardDeviationOf({frame, frame.clone()});
  EXPECT_EQ(cv::countNonZero(two), 0);
}

TEST(TemporalNoiseStream, KeepsNoFrameAndCountsBothPasses) {
  cv::Mat frame(6, 6, CV_16U, cv::Scalar(10));
  CTemporalNoiseStream stream;
  stream.AddSumFrame(frame);
  stream.AddSumFrame(frame);
  // Memory stays two float images whatever the series: no frame is held.
  EXPECT_EQ(frame.u->refcount, 1);
  EXPECT_EQ(stream.SumFrames(), 2);
  EXPECT_EQ(stream.DeviationFrames(), 0);
  stream.AddDeviationFrame(frame);
  EXPECT_EQ(stream.DeviationFrames(), 1);
  EXPECT_EQ(frame.u->refcount, 1);
}

// --- Checks and messages ---

TEST(TemporalNoiseStream, FramesAreCheckedWithTheMessagesOfAddImage) {
  CTemporalNoiseStream stream;
  EXPECT_EQ(Thrown([&] { stream.AddSumFrame(cv::Mat(4, 5, CV_16UC3)); }),
            std::string("invalid_argument: ") + kChannelMessage);
  stream.AddSumFrame(cv::Mat(4, 5, CV_16U, cv::Scalar(1)));
  // Channels first, then dimensions, then type, as AddImage checks them; pass 2 frames are held
  // against the first frame of pass 1.
  struct Refused {
    bool secondPass;
    cv::Mat frame;
    const char* message;
  };
  const Refused refused[] = {{false, cv::Mat(2, 2, CV_8UC3), kChannelMessage},
                             {false, cv::Mat(5, 4, CV_16U), kDimensionMessage},
                             {false, cv::Mat(2, 2, CV_8U), kDimensionMessage},
                             {false, cv::Mat(4, 5, CV_16S), kTypeMessage},
                             {true, cv::Mat(4, 6, CV_16U), kDimensionMessage},
                             {true, cv::Mat(4, 5, CV_32F), kTypeMessage},
                             {true, cv::Mat(4, 5, CV_16UC2), kChannelMessage}};
  for (const Refused& r : refused) {
    const std::string thrown = Thrown([&] {
      if (r.secondPass) {
        stream.AddDeviationFrame(r.frame);
      } else {
        stream.AddSumFrame(r.frame);
      }
    });
    EXPECT_EQ(thrown, std::string("invalid_argument: ") + r.message)
        << (r.secondPass ? "pass 2, " : "pass 1, ") << r.frame.size() << " type " << r.frame.type();
  }
  // Nothing refused was counted.
  EXPECT_EQ(stream.SumFrames(), 1);
  EXPECT_EQ(stream.DeviationFrames(), 0);
}

TEST(TemporalNoiseStream, EmptyAndThreeDimensionalFramesAreRefused) {
  const std::string message = "invalid_argument: Frames must be non-empty two-dimensional images";
  CTemporalNoiseStream stream;
  EXPECT_EQ(Thrown([&] { stream.AddSumFrame(cv::Mat()); }), message);
  const int sizes[3] = {2, 3, 4};
  EXPECT_EQ(Thrown([&] { stream.AddSumFrame(cv::Mat(3, sizes, CV_16U, cv::Scalar(0))); }), message);
  EXPECT_EQ(stream.SumFrames(), 0);
  // Still a fresh stream: the next good frame sets the size.
  stream.AddSumFrame(cv::Mat(2, 2, CV_16U, cv::Scalar(3)));
  stream.AddDeviationFrame(cv::Mat(2, 2, CV_16U, cv::Scalar(3)));
  EXPECT_EQ(stream.StandardDeviation().size(), cv::Size(2, 2));
}

TEST(TemporalNoiseStream, PassesMustComeInOrderWithTheSameCount) {
  const cv::Mat a(3, 3, CV_16U, cv::Scalar(1));
  const cv::Mat b(3, 3, CV_16U, cv::Scalar(3));
  CTemporalNoiseStream stream;
  EXPECT_EQ(Thrown([&] { stream.StandardDeviation(); }), "logic_error: No frames were added");
  EXPECT_EQ(Thrown([&] { stream.AddDeviationFrame(a); }),
            "logic_error: The second pass needs the frames of the first pass");
  stream.AddSumFrame(a);
  stream.AddSumFrame(b);
  EXPECT_EQ(Thrown([&] { stream.StandardDeviation(); }),
            "invalid_argument: The second pass has fewer frames than the first");
  stream.AddDeviationFrame(a);
  EXPECT_EQ(Thrown([&] { stream.AddSumFrame(a); }), "logic_error: The first pass is over");
  EXPECT_EQ(Thrown([&] { stream.StandardDeviation(); }),
            "invalid_argument: The second pass has fewer frames than the first");
  stream.AddDeviationFrame(b);
  EXPECT_EQ(Thrown([&] { stream.AddDeviationFrame(a); }),
            "invalid_argument: The second pass has more frames than the first");
  // The refused calls changed nothing: the deviation of 1 and 3 is sqrt(2).
  EXPECT_EQ(stream.SumFrames(), 2);
  EXPECT_EQ(stream.DeviationFrames(), 2);
  const cv::Mat image = stream.StandardDeviation();
  EXPECT_EQ(image.at<float>(2, 2), std::sqrt(2.0f));
  EXPECT_EQ(Thrown([] { CTemporalNoiseStream::StandardDeviationOf({}); }),
            "logic_error: No frames were added");
}

}  // namespace
