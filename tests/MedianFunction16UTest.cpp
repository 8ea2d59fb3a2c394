// The 16-bit disc median: argument errors and where they leave dst, the reallocation rule, the
// disc's size and shape, the cut window at the edge with its even-count rule, and the fast body
// against the straightforward per-pixel body on random images of every shape.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <limits>
#include <opencv2/core.hpp>
#include <ostream>
#include <string>
#include <vector>

#include "CvErrors.h"
#include "DiscMedianReference.h"
#include "ImageHelpers.h"
#include "RandomImages.h"
#include "filters/FilterCosmicRay.h"
#include "filters/MedianFunction16U.h"

namespace {

using testerrors::CaptureError;
using testerrors::ExpectMedianBlurError;
using testimages::Equal;

cv::Mat Fast(const cv::Mat& src, int radius) {
  cv::Mat dst;
  CFilterCosmicRay::MedianBlur(src, dst, radius);
  return dst;
}

cv::Mat Row16(std::initializer_list<int> values) {
  cv::Mat m(1, static_cast<int>(values.size()), CV_16UC1);
  int i = 0;
  for (int v : values) m.at<std::uint16_t>(0, i++) = static_cast<std::uint16_t>(v);
  return m;
}

class BadRadius : public ::testing::TestWithParam<int> {};

TEST_P(BadRadius, IsWrongParametersAndLeavesTheDestination) {
  const cv::Mat src(8, 8, CV_16UC1, cv::Scalar(100));
  cv::Mat dst(3, 5, CV_8UC1, cv::Scalar(7));
  const uchar* before = dst.data;
  const cv::Exception e = CaptureError([&] { CFilterCosmicRay::MedianBlur(src, dst, GetParam()); });
  ExpectMedianBlurError(e, cv::Error::StsBadArg, "wrongs parameters", 90);
  EXPECT_EQ(e.code, -5);
  // dst untouched: same buffer, same size, type and contents.
  EXPECT_EQ(dst.data, before);
  EXPECT_EQ(dst.size(), cv::Size(5, 3));
  EXPECT_EQ(dst.type(), CV_8UC1);
  EXPECT_EQ(cv::countNonZero(dst != 7), 0);
}

INSTANTIATE_TEST_SUITE_P(MedianFunction16U, BadRadius, ::testing::Values(0, -1, -100));

TEST(MedianFunction16U, EmptySourceIsWrongParameters) {
  cv::Mat dst(2, 2, CV_16UC1, cv::Scalar(9));
  const uchar* before = dst.data;
  for (const cv::Mat& src : {cv::Mat(), cv::Mat(0, 5, CV_16UC1), cv::Mat(5, 0, CV_16UC1)}) {
    const cv::Exception e = CaptureError([&] { CFilterCosmicRay::MedianBlur(src, dst, 3); });
    ExpectMedianBlurError(e, -5, "wrongs parameters", 90);
  }
  EXPECT_EQ(dst.data, before);
  EXPECT_EQ(cv::countNonZero(dst != 9), 0);
}

TEST(MedianFunction16U, OtherTypesAreNotImplementedAfterReallocation) {
  const int types[] = {CV_8UC1, CV_32FC1, CV_16SC1, CV_16UC3, CV_16UC2, CV_8UC3, CV_64FC1};
  for (int type : types) {
    const cv::Mat src(6, 9, type, cv::Scalar::all(5));
    cv::Mat dst(2, 2, CV_16UC1, cv::Scalar(1));
    const uchar* before = dst.data;
    const cv::Exception e = CaptureError([&] { CFilterCosmicRay::MedianBlur(src, dst, 2); });
    ExpectMedianBlurError(e, cv::Error::StsNotImplemented, "Not impl", 106);
    EXPECT_EQ(e.code, -213);
    // dst already has the source's size and type, in a new buffer.
    EXPECT_EQ(dst.size(), src.size()) << "type " << type;
    EXPECT_EQ(dst.type(), type);
    EXPECT_NE(dst.data, before);
  }
}

TEST(MedianFunction16U, NotImplementedReusesMatchingDestination) {
  const cv::Mat src(4, 4, CV_8UC1, cv::Scalar(200));
  cv::Mat dst(4, 4, CV_8UC1, cv::Scalar(3));
  const uchar* before = dst.data;
  const cv::Exception e = CaptureError([&] { CFilterCosmicRay::MedianBlur(src, dst, 1); });
  ExpectMedianBlurError(e, -213, "Not impl", 106);
  EXPECT_EQ(dst.data, before);
  EXPECT_EQ(cv::countNonZero(dst != 3), 0);
}

TEST(MedianFunction16U, MatchingDestinationIsReusedOtherwiseReplaced) {
  const cv::Mat src(5, 7, CV_16UC1, cv::Scalar(321));
  cv::Mat matching(5, 7, CV_16UC1, cv::Scalar(0));
  const uchar* before = matching.data;
  CFilterCosmicRay::MedianBlur(src, matching, 2);
  EXPECT_EQ(matching.data, before);
  EXPECT_EQ(cv::countNonZero(matching != 321), 0);

  // A matching region of a larger image is written in place, row by row with its own step.
  cv::Mat canvas(9, 11, CV_16UC1, cv::Scalar(1));
  cv::Mat region = canvas(cv::Rect(2, 2, 7, 5));
  CFilterCosmicRay::MedianBlur(src, region, 2);
  EXPECT_EQ(region.data, canvas.ptr(2) + 2 * sizeof(std::uint16_t));
  EXPECT_EQ(cv::countNonZero(canvas(cv::Rect(2, 2, 7, 5)) != 321), 0);
  EXPECT_EQ(cv::countNonZero(canvas != 1), 7 * 5);

  for (const cv::Mat& wrong : {cv::Mat(5, 6, CV_16UC1), cv::Mat(6, 7, CV_16UC1),
                               cv::Mat(5, 7, CV_16SC1), cv::Mat(5, 7, CV_16UC2)}) {
    cv::Mat dst = wrong;
    CFilterCosmicRay::MedianBlur(src, dst, 2);
    EXPECT_NE(dst.data, wrong.data);
    EXPECT_EQ(dst.size(), src.size());
    EXPECT_EQ(dst.type(), CV_16UC1);
    EXPECT_EQ(cv::countNonZero(dst != 321), 0);
  }
}

class Radius : public ::testing::TestWithParam<int> {};

TEST_P(Radius, ConstantImageStaysConstant) {
  const int radius = GetParam();
  for (int value : {0, 1, 1234, 32767}) {
    const cv::Mat src(23, 31, CV_16UC1, cv::Scalar(value));
    const cv::Mat dst = Fast(src, radius);
    EXPECT_EQ(cv::countNonZero(dst != value), 0) << "value " << value;
    EXPECT_TRUE(Equal(oracle::DiscMedian(src, radius), dst)) << "value " << value;
  }
}

INSTANTIATE_TEST_SUITE_P(MedianFunction16U, Radius, ::testing::Values(1, 2, 3, 5, 10, 40));

TEST(MedianFunction16U, EvenCountEdgePixelLosesItsTopBit) {
  // A constant image at 40000: interior pixels keep the value, edge pixels whose cut disc holds
  // an even count come out as 40000 with the top bit cleared.
  const int value = 40000;
  const int cleared = value & 0x7FFF;  // 7232
  const cv::Mat src(5, 5, CV_16UC1, cv::Scalar(value));
  for (const cv::Mat& dst : {Fast(src, 1), oracle::DiscMedian(src, 1)}) {
    EXPECT_EQ(dst.at<std::uint16_t>(2, 2), value);    // 9 samples
    EXPECT_EQ(dst.at<std::uint16_t>(1, 1), value);    // 9 samples
    EXPECT_EQ(dst.at<std::uint16_t>(0, 0), cleared);  // corner: 4 samples
    EXPECT_EQ(dst.at<std::uint16_t>(0, 2), cleared);  // top edge: 6 samples
    EXPECT_EQ(dst.at<std::uint16_t>(3, 4), cleared);  // right edge: 6 samples
  }
  // Radius 2 at the corner: rows 0..2 of the disc, half-widths 2, 2, 1 cut to 3, 3, 2 columns:
  // 8 samples, even.
  EXPECT_EQ(Fast(src, 2).at<std::uint16_t>(0, 0), cleared);
  // Radius 2 one pixel in from the corner: half-widths 2, 2, 2, 1 cut to 4, 4, 4, 3 columns:
  // 15 samples, odd, the value itself.
  EXPECT_EQ(Fast(src, 2).at<std::uint16_t>(1, 1), value);
}

TEST(MedianFunction16U, EvenCountTakesTheEntryBeforeTheMiddleNotTheAverage) {
  // One row [10, 40, 20, 30], radius 1: windows {10,40}, {10,40,20}, {40,20,30}, {20,30}.
  // Even counts take the lower of the two middle values (short ranges are fully sorted).
  const cv::Mat src = Row16({10, 40, 20, 30});
  const cv::Mat expected = Row16({10, 20, 30, 20});
  EXPECT_TRUE(Equal(Fast(src, 1), expected));
  EXPECT_TRUE(Equal(oracle::DiscMedian(src, 1), expected));
  // The same with samples at or above 32768: the lower middle value loses its top bit.
  const cv::Mat high = Row16({40000, 50000});
  const cv::Mat highExpected = Row16({40000 & 0x7FFF, 40000 & 0x7FFF});
  EXPECT_TRUE(Equal(Fast(high, 1), highExpected));
  EXPECT_TRUE(Equal(oracle::DiscMedian(high, 1), highExpected));
}

TEST(MedianFunction16U, RadiusLargerThanTheImageUsesTheWholeImage) {
  // 3 x 4 distinct values below 32768, radius 50: every window is the whole image (12 samples,
  // even), so every pixel gets the 6th smallest value.
  cv::Mat src(3, 4, CV_16UC1);
  const int values[12] = {900, 100, 1100, 300, 700, 1200, 200, 1000, 400, 800, 600, 500};
  for (int i = 0; i < 12; ++i)
    src.at<std::uint16_t>(i / 4, i % 4) = static_cast<std::uint16_t>(values[i]);
  for (const cv::Mat& dst : {Fast(src, 50), oracle::DiscMedian(src, 50)}) {
    EXPECT_EQ(cv::countNonZero(dst != 600), 0);
  }
  // 3 x 3, radius 10: 9 samples, the true median everywhere.
  const cv::Mat odd =
      src(cv::Rect(0, 0, 3, 3)).clone();  // 900 100 1100 / 700 1200 200 / 400 800 600
  for (const cv::Mat& dst : {Fast(odd, 10), oracle::DiscMedian(odd, 10)}) {
    EXPECT_EQ(cv::countNonZero(dst != 700), 0);
  }
  // A single pixel is its own median for any radius.
  const cv::Mat one = Row16({54321});
  EXPECT_EQ(Fast(one, 7).at<std::uint16_t>(0, 0), 54321);
}

// Whether offset (dx, dy) belongs to the disc of `radius` as seen by the filter: a zero image
// with (N + 1) / 2 - 1 other expected members and the probed offset set to 1000 around the
// centre; the centre's median is 1000 exactly when the probe is counted and the disc is the
// expected one.
bool ProbeMember(int radius, int dx, int dy, const std::vector<cv::Point>& expected,
                 bool reference) {
  const int size = 2 * radius + 1;
  cv::Mat src(size, size, CV_16UC1, cv::Scalar(0));
  const int half = (static_cast<int>(expected.size()) + 1) / 2;
  int marked = 0;
  for (const cv::Point& p : expected) {
    if (marked == half - 1) break;
    if (p.x == dx && p.y == dy) continue;
    src.at<std::uint16_t>(radius + p.y, radius + p.x) = 1000;
    ++marked;
  }
  src.at<std::uint16_t>(radius + dy, radius + dx) = 1000;
  if (reference) return oracle::DiscMedianAt(src, radius, radius, radius) == 1000;
  return Fast(src, radius).at<std::uint16_t>(radius, radius) == 1000;
}

void ExpectDisc(int radius, std::size_t expectedCount) {
  // Members: distance at most radius + 0.5, i.e. 4 (dx^2 + dy^2) <= (2 radius + 1)^2.
  std::vector<cv::Point> expected;
  for (int dy = -radius; dy <= radius; ++dy) {
    for (int dx = -radius; dx <= radius; ++dx) {
      if (4 * (dx * dx + dy * dy) <= (2 * radius + 1) * (2 * radius + 1))
        expected.push_back({dx, dy});
    }
  }
  ASSERT_EQ(expected.size(), expectedCount);
  std::vector<int> halfWidths = MedianFunction_16U::DiscHalfWidths(radius);
  int count = 0;
  for (int w : halfWidths) count += 2 * w + 1;
  EXPECT_EQ(count, static_cast<int>(expectedCount));
  for (int dy = -radius; dy <= radius; ++dy) {
    for (int dx = -radius; dx <= radius; ++dx) {
      const bool member = 4 * (dx * dx + dy * dy) <= (2 * radius + 1) * (2 * radius + 1);
      EXPECT_EQ(ProbeMember(radius, dx, dy, expected, true), member) << dx << "," << dy;
      EXPECT_EQ(ProbeMember(radius, dx, dy, expected, false), member) << dx << "," << dy;
    }
  }
}

TEST(MedianFunction16U, DiscSizes) {
  ExpectDisc(1, 9);   // the full 3 x 3 square
  ExpectDisc(2, 21);  // 5 x 5 without its corners
  ExpectDisc(10, 349);
}

TEST(MedianFunction16U, RadiusTenDiscIsImageJRadiusTenPointFiveKernel) {
  // ImageJ's circular kernel of radius 10.5 keeps the offsets with dx^2 + dy^2 <= 110.25 + 1;
  // 111 is not a sum of two squares, so that is dx^2 + dy^2 <= 110, our radius-10 disc.
  const std::vector<int> halfWidths = MedianFunction_16U::DiscHalfWidths(10);
  int count = 0;
  for (int dy = -10; dy <= 10; ++dy) {
    int imageJ = 0;
    while ((imageJ + 1) * (imageJ + 1) + dy * dy <= 110) ++imageJ;
    EXPECT_EQ(halfWidths[static_cast<std::size_t>(dy + 10)], imageJ) << "dy " << dy;
    count += 2 * imageJ + 1;
  }
  EXPECT_EQ(count, 349);
  const int expectedHalfWidths[21] = {3,  5,  6,  7, 8, 9, 9, 10, 10, 10, 10,
                                      10, 10, 10, 9, 9, 8, 7, 6,  5,  3};
  for (int i = 0; i < 21; ++i)
    EXPECT_EQ(halfWidths[static_cast<std::size_t>(i)], expectedHalfWidths[i]);
}

TEST(MedianFunction16U, SameResultWithAnyNumberOfThreads) {
  // The body runs over getNumThreads() - 1 stripes: none with one thread (each row is then its
  // own stripe), one with two; every split gives the same image.
  datagen::Random rng(31);
  const cv::Mat src = testimages::RandomImage(rng, 67, 45, testimages::Values::kSmoothNoisy);
  const cv::Mat expected = oracle::DiscMedian(src, 4);
  const int previous = cv::getNumThreads();
  for (int threads : {1, 2, 3, 5}) {
    cv::setNumThreads(threads);
    const cv::Mat dst = Fast(src, 4);
    EXPECT_TRUE(Equal(dst, expected)) << threads << " threads";
  }
  cv::setNumThreads(previous);
}

TEST(MedianFunction16U, StepsTooSmallLeaveTheDestinationUnwritten) {
  const cv::Mat src(4, 6, CV_16UC1, cv::Scalar(500));
  cv::Mat dst(4, 6, CV_16UC1, cv::Scalar(77));
  const std::uint32_t rowBytes = 6 * 2;
  for (auto steps : {std::pair<std::uint32_t, std::uint32_t>{rowBytes - 1, rowBytes},
                     std::pair<std::uint32_t, std::uint32_t>{rowBytes, rowBytes - 1}}) {
    const MedianFunction_16U body(dst.data, src.data, steps.first, steps.second, 6, 4, 1, 16);
    body(cv::Range(0, 4));
    EXPECT_EQ(cv::countNonZero(dst != 77), 0);
  }
  const MedianFunction_16U nullSource(dst.data, nullptr, rowBytes, rowBytes, 6, 4, 1, 16);
  nullSource(cv::Range(0, 4));
  const MedianFunction_16U nullDestination(nullptr, src.data, rowBytes, rowBytes, 6, 4, 1, 16);
  nullDestination(cv::Range(0, 4));
  EXPECT_EQ(cv::countNonZero(dst != 77), 0);
  // Exactly twice the width is enough.
  const MedianFunction_16U body(dst.data, src.data, rowBytes, rowBytes, 6, 4, 1, 16);
  body(cv::Range(0, 4));
  EXPECT_EQ(cv::countNonZero(dst != 500), 0);
}

TEST(MedianFunction16U, RowRangeIsClampedToTheImage) {
  datagen::Random rng(5);
  const cv::Mat src = testimages::RandomImage(rng, 9, 13, testimages::Values::kUniform);
  const cv::Mat expected = oracle::DiscMedian(src, 3);
  cv::Mat dst(9, 13, CV_16UC1, cv::Scalar(0));
  const MedianFunction_16U body(dst.data, src.data, static_cast<std::uint32_t>(dst.step[0]),
                                static_cast<std::uint32_t>(src.step[0]), 13, 9, 3, 16);
  body(cv::Range(-20, 4));
  body(cv::Range(4, 100));
  EXPECT_TRUE(Equal(dst, expected));
  // Only the rows of the range are written.
  cv::Mat part(9, 13, CV_16UC1, cv::Scalar(0));
  const MedianFunction_16U partBody(part.data, src.data, static_cast<std::uint32_t>(part.step[0]),
                                    static_cast<std::uint32_t>(src.step[0]), 13, 9, 3, 16);
  partBody(cv::Range(2, 5));
  EXPECT_TRUE(Equal(part.rowRange(2, 5), expected.rowRange(2, 5)));
  EXPECT_EQ(cv::countNonZero(part.rowRange(0, 2)), 0);
  EXPECT_EQ(cv::countNonZero(part.rowRange(5, 9)), 0);
}

// Compares the fast body with the reference body on the given rows (all rows when empty).
void ExpectIdentical(const cv::Mat& src, int radius, const std::vector<int>& rows) {
  const cv::Mat fast = Fast(src, radius);
  cv::Mat reference(src.size(), CV_16UC1, cv::Scalar(0));
  if (rows.empty()) {
    oracle::DiscMedianRows(src, reference, radius, cv::Range(0, src.rows));
    ASSERT_TRUE(Equal(fast, reference)) << src.cols << "x" << src.rows << " radius " << radius;
    return;
  }
  for (int y : rows) {
    oracle::DiscMedianRows(src, reference, radius, cv::Range(y, y + 1));
    ASSERT_TRUE(Equal(fast.row(y), reference.row(y)))
        << src.cols << "x" << src.rows << " radius " << radius << " row " << y;
  }
}

TEST(MedianFunction16U, FastBodyEqualsReferenceOnRandomImages) {
  datagen::Random rng(20240917);
  // The reference body costs about one square root per window pixel; keep the total bounded.
  const int cases =
      testimages::ForEachDiscCase(rng, 100, 1, 3e6, [](int, const cv::Mat& src, int radius) {
        ExpectIdentical(src, radius, {});
        return !HasFatalFailure();
      });
  EXPECT_EQ(cases, 100);
}

class BorderRadius : public ::testing::TestWithParam<int> {};

// Members of the disc of `radius` around (x, y) that lie inside a cols x rows image, counted with
// the integer form of the membership test.
int CutDiscCount(int x, int y, int cols, int rows, int radius) {
  int n = 0;
  for (int yy = std::max(y - radius, 0); yy <= std::min(y + radius, rows - 1); ++yy) {
    for (int xx = std::max(x - radius, 0); xx <= std::min(x + radius, cols - 1); ++xx) {
      const int dx = xx - x;
      const int dy = yy - y;
      if (4 * (dx * dx + dy * dy) <= (2 * radius + 1) * (2 * radius + 1)) ++n;
    }
  }
  return n;
}

// Cut discs with an odd count come from the sliding histogram and those with an even count from
// the gathered selection: every pixel of every side length from 1 to past the diameter, so that
// corners, discs cut on two opposite sides, radii larger than the image and one-pixel-wide images
// all occur, with values across the whole range.
TEST_P(BorderRadius, FastBodyEqualsReferenceAtEveryBorderConfiguration) {
  const int radius = GetParam();
  datagen::Random rng(1117 + static_cast<std::uint64_t>(radius));
  long oddCut = 0;
  long evenCut = 0;
  const int diameter = 2 * radius + 1;
  for (int cols :
       {1, 2, 3, radius, radius + 1, diameter - 1, diameter, diameter + 1, diameter + 3}) {
    for (int rows : {1, 2, radius + 1, diameter, diameter + 2}) {
      const auto model =
          static_cast<testimages::Values>((cols + rows + radius) % testimages::kValueModels);
      const cv::Mat src = testimages::RandomImage(rng, rows, cols, model);
      ExpectIdentical(src, radius, {});
      if (HasFatalFailure()) return;
      const int full = CutDiscCount(radius, radius, diameter, diameter, radius);
      for (int y = 0; y < rows; ++y) {
        for (int x = 0; x < cols; ++x) {
          const int n = CutDiscCount(x, y, cols, rows, radius);
          if (n != full) ++(n % 2 == 1 ? oddCut : evenCut);
        }
      }
    }
  }
  // Both kinds occur at every radius (from 18 odd and 262 even cut discs at radius 1 to 2716 and
  // 2768 at radius 9; over 10000 of each in all).
  EXPECT_GT(oddCut, 10);
  EXPECT_GT(evenCut, 10);
}

INSTANTIATE_TEST_SUITE_P(MedianFunction16U, BorderRadius, ::testing::Range(1, 10));

TEST(MedianFunction16U, SlidingMediansOverPartRowsEqualsReference) {
  // The sliding body started and stopped at any column of any row, including the image edges.
  datagen::Random rng(2029);
  DiscHistogram hist;
  for (int c = 0; c < 40; ++c) {
    const int cols = rng.Int(1, 60);
    const int rows = rng.Int(1, 60);
    const int radius = rng.Int(1, 25);
    const cv::Mat src = testimages::RandomImage(
        rng, rows, cols, static_cast<testimages::Values>(c % testimages::kValueModels));
    const cv::Mat reference = oracle::DiscMedian(src, radius);
    const MedianFunction_16U body(nullptr, src.data, 0, static_cast<std::uint32_t>(src.step[0]),
                                  src.cols, src.rows, radius, 16);
    const std::vector<int> halfWidths = MedianFunction_16U::DiscHalfWidths(radius);
    std::vector<unsigned short> scratch(static_cast<std::size_t>(2 * radius + 1) *
                                        (2 * radius + 1));
    for (int y = 0; y < rows; ++y) {
      const int first = rng.Int(0, cols - 1);
      const int last = rng.Int(first, cols - 1);
      std::vector<unsigned short> out(static_cast<std::size_t>(last - first + 1));
      body.SlidingMedians(y, first, last, halfWidths.data(), hist, scratch.data(), out.data());
      for (int x = first; x <= last; ++x) {
        ASSERT_EQ(out[x - first], reference.at<std::uint16_t>(y, x))
            << cols << "x" << rows << " radius " << radius << " at " << x << "," << y << " from "
            << first << " to " << last;
      }
    }
  }
}

// Large images: full checks where cheap; rows chosen around the borders and in the middle where
// not.
struct LargeCase {
  int cols, rows, radius;
};

void PrintTo(const LargeCase& c, std::ostream* out) {
  *out << c.cols << "x" << c.rows << " radius " << c.radius;
}

class LargeImage : public ::testing::TestWithParam<LargeCase> {};

TEST_P(LargeImage, FastBodyEqualsReference) {
  const LargeCase c = GetParam();
  datagen::Random rng(99 + static_cast<std::uint64_t>(c.cols + 7 * c.rows + 31 * c.radius));
  // One value model per shape, drawn at random.
  const auto model = static_cast<testimages::Values>(rng.Int(0, testimages::kValueModels - 1));
  const cv::Mat src = testimages::RandomImage(rng, c.rows, c.cols, model);
  std::vector<int> rows;
  if (1.0 * c.cols * c.rows * std::min(2 * c.radius + 1, c.cols) *
          std::min(2 * c.radius + 1, c.rows) >
      2e7) {
    for (int y : {0, 1, c.radius - 1, c.radius, c.radius + 1, c.rows / 2, c.rows - 2 - c.radius,
                  c.rows - 1 - c.radius, c.rows - c.radius, c.rows - 1}) {
      if (y >= 0 && y < c.rows) rows.push_back(y);
    }
  }
  ExpectIdentical(src, c.radius, rows);
}

INSTANTIATE_TEST_SUITE_P(MedianFunction16U, LargeImage,
                         ::testing::Values(LargeCase{300, 300, 1}, LargeCase{300, 1, 40},
                                           LargeCase{1, 300, 40}, LargeCase{81, 81, 40},
                                           LargeCase{300, 300, 8}, LargeCase{257, 300, 17}));

}  // namespace

namespace {

TEST(MedianFunction16U, RadiusBeyondTheImageCostsNoMoreThanTheImage) {
  // Radii of 20000, 2^30 and INT_MAX on a 16 x 16 image are the radius-22 disc (22 > the
  // diagonal of 21.2), computed with scratch and work bounded by the image.
  datagen::Random rng(1017);
  const cv::Mat src = testimages::RandomImage(rng, 16, 16, testimages::Values::kUniform);
  const cv::Mat before = src.clone();
  const cv::Mat covering = oracle::DiscMedian(src, 22);
  for (const int radius : {22, 20000, 40000, 1 << 30, std::numeric_limits<int>::max()}) {
    EXPECT_TRUE(Equal(Fast(src, radius), covering)) << radius;
  }
  EXPECT_TRUE(Equal(src, before));
  // A long row: the disc reaches only along the row.
  const cv::Mat row = testimages::RandomImage(rng, 1, 200, testimages::Values::kHigh);
  const cv::Mat rowCovering = oracle::DiscMedian(row, 199);
  EXPECT_TRUE(Equal(Fast(row, 1 << 30), rowCovering));
  EXPECT_TRUE(Equal(Fast(row.t(), std::numeric_limits<int>::max()), rowCovering.t()));
  // The cosmic-ray filter's pruned path takes the same bound.
  cv::Mat spots = src.clone();
  const CFilterCosmicRay huge(1 << 30, 100);
  const CFilterCosmicRay bounded(22, 100);
  cv::Mat a;
  cv::Mat b;
  huge.Process(spots, a, cv::Mat());
  bounded.ProcessReference(spots, b, cv::Mat());
  EXPECT_TRUE(Equal(a, b));
}

TEST(MedianFunction16U, BoundedRadiusIsTheImageDiagonalRoundedUp) {
  EXPECT_EQ(MedianFunction_16U::BoundedRadius(20000, 16, 16), 22);
  EXPECT_EQ(MedianFunction_16U::BoundedRadius(10, 16, 16), 10);
  EXPECT_EQ(MedianFunction_16U::BoundedRadius(1 << 30, 1, 200), 199);
  EXPECT_EQ(MedianFunction_16U::BoundedRadius(1 << 30, 1, 1), 1);
  EXPECT_EQ(MedianFunction_16U::BoundedRadius(std::numeric_limits<int>::max(), 3, 4), 4);
  EXPECT_EQ(MedianFunction_16U::ScratchSize(1 << 30, 16, 16), 256u);
  EXPECT_EQ(MedianFunction_16U::ScratchSize(2, 16, 16), 25u);
}

TEST(MedianFunction16U, DiscHalfWidthsOfLargeRadiiFollowTheMembershipTest) {
  for (const int radius : {37, 500, 1999}) {
    const std::vector<int> halfWidths = MedianFunction_16U::DiscHalfWidths(radius);
    for (int dy = -radius; dy <= radius; ++dy) {
      // The largest dx whose offset is a member, by the membership test itself.
      int dx = 0;
      while (dx < radius && 4.0 * ((dx + 1.0) * (dx + 1.0) + 1.0 * dy * dy) <=
                                (2.0 * radius + 1) * (2.0 * radius + 1)) {
        ++dx;
      }
      ASSERT_EQ(halfWidths[static_cast<std::size_t>(dy + radius)], dx) << radius << " " << dy;
    }
  }
}

}  // namespace

namespace {

TEST(MedianFunction16U, SelectMedianOfNoSampleIsAnErrorNotAReadBeforeTheBuffer) {
  unsigned short samples[3] = {5, 1, 9};
  for (const int count : {0, -1}) {
    const cv::Exception e =
        CaptureError([&] { MedianFunction_16U::SelectMedian(samples + 1, count); });
    EXPECT_EQ(e.code, cv::Error::StsBadArg);
    EXPECT_EQ(e.err, "the median needs at least one sample");
    EXPECT_EQ(e.func, "MedianFunction_16U::SelectMedian");
  }
  EXPECT_EQ(samples[0], 5);
  EXPECT_EQ(MedianFunction_16U::SelectMedian(samples, 3), 5);
  unsigned short one = 7;
  EXPECT_EQ(MedianFunction_16U::SelectMedian(&one, 1), 7);
}

}  // namespace
