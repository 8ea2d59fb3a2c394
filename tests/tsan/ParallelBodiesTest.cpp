// Every thread of ours under ThreadSanitizer: the disc median and the cosmic-ray filter through
// OpenCV's parallel loop (run on CStdThreadBackend, several thread counts), the temporal noise and
// its stream, and the edge profile with 2 to 8 threads. Each result is also held against the
// one-thread result, so a race that changes a value fails even without the sanitizer.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <opencv2/core.hpp>
#include <set>
#include <thread>
#include <vector>

#include "StdThreadBackend.h"
#include "filters/FilterCosmicRay.h"
#include "mtf/EdgeProfile.h"
#include "stack/TemporalNoise.h"
#include "stack/TemporalNoiseStream.h"

namespace {

cv::Mat Random16U(int rows, int cols, int seed) {
  cv::RNG rng(static_cast<std::uint64_t>(seed));
  cv::Mat m(rows, cols, CV_16UC1);
  rng.fill(m, cv::RNG::UNIFORM, 0, 65536);
  // A few bright outliers for the cosmic-ray filter.
  for (int i = 0; i < 20; ++i)
    m.at<unsigned short>(rng.uniform(0, rows), rng.uniform(0, cols)) = 65000;
  return m;
}

bool Same(const cv::Mat& a, const cv::Mat& b) {
  return a.size() == b.size() && a.type() == b.type() && cv::norm(a, b, cv::NORM_INF) == 0.0;
}

TEST(ParallelBodies, TheBackendRunsOpenCvLoopsOnItsOwnThreads) {
  EXPECT_EQ(cv::getNumThreads(), 4);
  std::atomic<int> calls{0};
  cv::parallel_for_(
      cv::Range(0, 100), [&calls](const cv::Range& r) { calls += r.size(); }, 100);
  EXPECT_EQ(calls.load(), 100);
}

TEST(ParallelBodies, DiscMedianAndCosmicRayFilterWithSeveralThreadCounts) {
  const cv::Mat src = Random16U(61, 47, 3);
  cv::setNumThreads(1);
  cv::Mat median1;
  CFilterCosmicRay::MedianBlur(src, median1, 4);
  cv::Mat filtered1;
  CFilterCosmicRay(6, 100).Process(src, filtered1, cv::Mat());
  for (const int threads : {2, 3, 4, 8}) {
    cv::setNumThreads(threads);
    cv::Mat median;
    CFilterCosmicRay::MedianBlur(src, median, 4);
    EXPECT_TRUE(Same(median, median1)) << threads;
    cv::Mat filtered;
    cv::Mat replaced;
    CFilterCosmicRay(6, 100).Process(src, filtered, cv::Mat(), replaced);
    EXPECT_TRUE(Same(filtered, filtered1)) << threads;
  }
  cv::setNumThreads(4);
}

TEST(ParallelBodies, TemporalNoiseAndItsStream) {
  CTemporalNoise noise;
  CTemporalNoiseStream stream;
  std::vector<cv::Mat> frames;
  for (int k = 0; k < 6; ++k) frames.push_back(Random16U(30, 37, 10 + k));
  for (const cv::Mat& frame : frames) {
    noise.AddImage(frame);
    stream.AddSumFrame(frame);
  }
  for (const cv::Mat& frame : frames) stream.AddDeviationFrame(frame);
  const cv::Mat a =
      noise.Compute(std::bind(&CTemporalNoise::StandardDeviation, &noise, std::placeholders::_1));
  const cv::Mat b =
      noise.Compute(std::bind(&CTemporalNoise::StandardDeviation, &noise, std::placeholders::_1));
  EXPECT_TRUE(Same(a, b));
  EXPECT_TRUE(Same(stream.StandardDeviation(), CTemporalNoiseStream::StandardDeviationOf(frames)));
  const cv::Mat streamed = stream.StandardDeviation();
  ASSERT_EQ(streamed.size(), a.size());
  // The stream covers every pixel; the nine runs leave the last (pixels mod 9) at 0.
  const int covered = (a.rows * a.cols) / 9 * 9;
  for (int i = 0; i < covered; ++i) {
    const float expected = a.at<float>(i / a.cols, i % a.cols);
    EXPECT_NEAR(streamed.at<float>(i / a.cols, i % a.cols), expected, 1e-3f * (1.0f + expected));
  }
}

TEST(ParallelBodies, EdgeProfileWithTwoToEightThreads) {
  const cv::Mat region = Random16U(64, 40, 21);
  EdgeProfiler one;
  const std::vector<double> expected = BuildEdgeProfile(one, region, 0.12f);
  for (int threads = 2; threads <= 8; ++threads) {
    EdgeProfiler profiler;
    profiler.threadCount = threads;
    EXPECT_EQ(BuildEdgeProfile(profiler, region, 0.12f), expected) << threads;
  }
}

}  // namespace

int main(int argc, char** argv) {
  // Installed before any other OpenCV call, as the backend interface requires.
  cv::parallel::setParallelForBackend(std::make_shared<CStdThreadBackend>(4));
  cv::setNumThreads(4);
  ::testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
