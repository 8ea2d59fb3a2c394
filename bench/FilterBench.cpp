// Disc median and cosmic-ray filter on a 2048 x 2048 16-bit sensor-like frame, each next to its
// straightforward form in the same run; the ratios are printed after the table.
//   filter_bench [--benchmark_filter=...]
//   filter_bench --write_frame=<file.tif>
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <string>

#include "DiscMedianReference.h"
#include "Random.h"
#include "RatioReporter.h"
#include "filters/FilterCosmicRay.h"

namespace {

constexpr int kSize = 2048;

// Smooth structure, read noise (sigma 12) with a little shot noise, and 2000 bright outliers.
const cv::Mat& Frame() {
  static const cv::Mat frame = [] {
    datagen::Random rng(8675309);
    cv::Mat image(kSize, kSize, CV_16UC1);
    for (int y = 0; y < kSize; ++y) {
      auto* row = image.ptr<std::uint16_t>(y);
      for (int x = 0; x < kSize; ++x) {
        const double u = (x - 900.0) / 500.0;
        const double v = (y - 1200.0) / 400.0;
        const double signal =
            2000.0 + 0.5 * x + 0.3 * y + 12000.0 * std::exp(-0.5 * (u * u + v * v));
        const double sigma = std::sqrt(12.0 * 12.0 + signal / 50.0);
        row[x] = static_cast<std::uint16_t>(
            std::clamp(std::lround(signal + sigma * rng.Normal()), 0L, 65535L));
      }
    }
    for (int i = 0; i < 2000; ++i) {
      auto& p = image.at<std::uint16_t>(rng.Int(0, kSize - 1), rng.Int(0, kSize - 1));
      p = static_cast<std::uint16_t>(
          std::min(65535.0, p + std::exp(rng.Uniform(std::log(150.0), std::log(20000.0)))));
    }
    return image;
  }();
  return frame;
}

// The straightforward per-pixel body, run over the same stripes as the filter's own body.
class ReferenceBody : public cv::ParallelLoopBody {
 public:
  ReferenceBody(const cv::Mat& src, cv::Mat& dst, int radius)
      : src_(src), dst_(dst), radius_(radius) {}
  void operator()(const cv::Range& rows) const override {
    oracle::DiscMedianRows(src_, dst_, radius_, rows);
  }

 private:
  const cv::Mat& src_;
  cv::Mat& dst_;
  int radius_;
};

void DiscMedian(benchmark::State& state) {
  const cv::Mat& src = Frame();
  cv::Mat dst;
  for (auto _ : state) {
    CFilterCosmicRay::MedianBlur(src, dst, static_cast<int>(state.range(0)));
    benchmark::DoNotOptimize(dst.data);
  }
}
BENCHMARK(DiscMedian)->Arg(10)->Arg(3)->Unit(benchmark::kMillisecond)->UseRealTime();

void DiscMedianReference(benchmark::State& state) {
  const cv::Mat& src = Frame();
  cv::Mat dst(src.size(), CV_16UC1);
  const ReferenceBody body(src, dst, static_cast<int>(state.range(0)));
  for (auto _ : state) {
    cv::parallel_for_(cv::Range(0, src.rows), body, static_cast<double>(cv::getNumThreads() - 1));
    benchmark::DoNotOptimize(dst.data);
  }
}
BENCHMARK(DiscMedianReference)
    ->Arg(10)
    ->Arg(3)
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

// The filter, or its straightforward form (full disc median by the fast body, difference, map,
// copy).
void CosmicRay(benchmark::State& state, bool straightforward) {
  const cv::Mat& src = Frame();
  const CFilterCosmicRay filter(static_cast<int>(state.range(0)), 100);
  cv::Mat dst;
  for (auto _ : state) {
    if (straightforward) {
      filter.ProcessReference(src, dst, cv::Mat());
    } else {
      filter.Process(src, dst, cv::Mat());
    }
    benchmark::DoNotOptimize(dst.data);
  }
}
BENCHMARK_CAPTURE(CosmicRay, Pruned, false)
    ->Arg(10)
    ->Arg(3)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK_CAPTURE(CosmicRay, Straightforward, true)
    ->Arg(10)
    ->Arg(3)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

// Before the benchmarks: how many stripes the disc median runs.
void Prepare() {
  std::printf("OpenCV threads: %d (the disc median runs %d stripe(s))\n", cv::getNumThreads(),
              std::max(cv::getNumThreads() - 1, 1));
}

void PrintRatios(const ombrix_bench::CRatioReporter& reporter) {
  std::printf("\nSpeed-up over the straightforward form, same run, 2048 x 2048:\n");
  reporter.PrintRatio("disc median radius 10 (reference body)",
                      "DiscMedianReference/10/iterations:1/real_time", "DiscMedian/10/real_time");
  reporter.PrintRatio("disc median radius 3 (reference body)",
                      "DiscMedianReference/3/iterations:1/real_time", "DiscMedian/3/real_time");
  reporter.PrintRatio("cosmic-ray radius 10, threshold 100",
                      "CosmicRay/Straightforward/10/real_time", "CosmicRay/Pruned/10/real_time");
  reporter.PrintRatio("cosmic-ray radius 3, threshold 100", "CosmicRay/Straightforward/3/real_time",
                      "CosmicRay/Pruned/3/real_time");
}

}  // namespace

int main(int argc, char** argv) {
  // filter_bench --write_frame=<file.tif> writes the benchmark frame (e.g. to time ImageJ on it).
  const std::string writeFrame = "--write_frame=";
  if (argc == 2 && std::string(argv[1]).rfind(writeFrame, 0) == 0) {
    const std::string path = std::string(argv[1]).substr(writeFrame.size());
    return cv::imwrite(path, Frame(), {cv::IMWRITE_TIFF_COMPRESSION, 1}) ? 0 : 1;
  }
  return ombrix_bench::RunBenchmarksWithRatios(argc, argv, 44, Prepare, PrintRatios);
}
