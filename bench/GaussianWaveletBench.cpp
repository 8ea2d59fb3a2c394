// Gaussian blur (2-D and separable paths, sigma 2 and 7) and the wavelet decomposition with its
// structure extraction on a 2048 x 2048 16-bit frame, each next to OpenCV doing the same
// smoothing in the same run: cv::GaussianBlur and cv::sepFilter2D with the blur's own kernel, and
// seven cv::sepFilter2D passes with the wavelet's dilated kernels. The ratios follow the table.
//   gaussian_wavelet_bench [--benchmark_filter=...]
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <string>
#include <vector>

#include "Random.h"
#include "RatioReporter.h"
#include "filters/GaussianBlur.h"
#include "filters/Wavelet.h"

namespace {

constexpr int kSize = 2048;
const std::vector<double> kB3 = {0.0625, 0.25, 0.375, 0.25, 0.0625};

// Sparse fluorescence-like spots on a smooth background with shot and read noise, below 32768.
const cv::Mat& Frame() {
  static const cv::Mat frame = [] {
    datagen::Random rng(4242);
    cv::Mat signal(kSize, kSize, CV_64F);
    for (int y = 0; y < kSize; ++y) {
      for (int x = 0; x < kSize; ++x) signal.at<double>(y, x) = 300.0 + 0.1 * x + 0.05 * y;
    }
    for (int i = 0; i < 600; ++i) {
      const int cx = rng.Int(0, kSize - 1);
      const int cy = rng.Int(0, kSize - 1);
      const double width = rng.Uniform(0.8, 4.5);
      const double amplitude = std::exp(rng.Uniform(std::log(150.0), std::log(2500.0)));
      const int r = static_cast<int>(std::ceil(4.0 * width));
      for (int y = std::max(cy - r, 0); y <= std::min(cy + r, kSize - 1); ++y) {
        for (int x = std::max(cx - r, 0); x <= std::min(cx + r, kSize - 1); ++x) {
          const double d2 = (x - cx) * (x - cx) + (y - cy) * (y - cy);
          signal.at<double>(y, x) += amplitude * std::exp(-0.5 * d2 / (width * width));
        }
      }
    }
    cv::Mat image(kSize, kSize, CV_16UC1);
    for (int y = 0; y < kSize; ++y) {
      for (int x = 0; x < kSize; ++x) {
        const double v = signal.at<double>(y, x);
        const double sigma = std::sqrt(9.0 + v / 4.0);
        image.at<std::uint16_t>(y, x) = static_cast<std::uint16_t>(
            std::clamp(std::lround(v + sigma * rng.Normal()), 0L, 32767L));
      }
    }
    return image;
  }();
  return frame;
}

void Blur(benchmark::State& state, bool separable) {
  const CGaussianBlur blur(static_cast<int>(state.range(0)));
  cv::Mat dst;
  for (auto _ : state) {
    blur.Apply(Frame(), dst, separable);
    benchmark::DoNotOptimize(dst.data);
  }
}
BENCHMARK_CAPTURE(Blur, TwoD, false)->Arg(2)->Arg(7)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(Blur, Separable, true)
    ->Arg(2)
    ->Arg(7)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

// OpenCV's Gaussian blur of the same size and sigma.
void OpenCvGaussianBlur(benchmark::State& state) {
  const int sigma = static_cast<int>(state.range(0));
  const int taps = CGaussianBlur(sigma).RowKernel().cols;
  cv::Mat dst;
  for (auto _ : state) {
    cv::GaussianBlur(Frame(), dst, cv::Size(taps, taps), sigma, sigma, cv::BORDER_REFLECT_101);
    benchmark::DoNotOptimize(dst.data);
  }
}
BENCHMARK(OpenCvGaussianBlur)->Arg(2)->Arg(7)->Unit(benchmark::kMillisecond)->UseRealTime();

// OpenCV's separable filter with the blur's own taps, normalised.
void OpenCvSepFilter(benchmark::State& state) {
  const CGaussianBlur blur(static_cast<int>(state.range(0)));
  const cv::Mat taps = blur.RowKernel() / cv::sum(blur.RowKernel())[0];
  cv::Mat dst;
  for (auto _ : state) {
    cv::sepFilter2D(Frame(), dst, CV_16U, taps, taps, cv::Point(-1, -1), 0.0,
                    cv::BORDER_REFLECT_101);
    benchmark::DoNotOptimize(dst.data);
  }
}
BENCHMARK(OpenCvSepFilter)->Arg(2)->Arg(7)->Unit(benchmark::kMillisecond)->UseRealTime();

void WaveletDecompose(benchmark::State& state) {
  CWavelet wavelet(kB3, 4.0f);
  for (auto _ : state) {
    wavelet.Decompose(Frame(), 0, cv::Mat());
    benchmark::DoNotOptimize(wavelet.Details().back().data);
  }
}
BENCHMARK(WaveletDecompose)->Unit(benchmark::kMillisecond)->UseRealTime();

void WaveletDecomposeAndExtract(benchmark::State& state) {
  CWavelet wavelet(kB3, 4.0f);
  const cv::Mat mask = cv::Mat::ones(Frame().size(), CV_8U);
  cv::Mat out;
  for (auto _ : state) {
    wavelet.Decompose(Frame(), 0, cv::Mat());
    wavelet.ExtractStructures(out, 0, 3.0f, mask, cv::Mat());
    benchmark::DoNotOptimize(out.data);
  }
}
BENCHMARK(WaveletDecomposeAndExtract)->Unit(benchmark::kMillisecond)->UseRealTime();

// The decomposition's smoothing alone as OpenCV's separable filter: seven levels in signed
// 16-bit with the kernel dilated at each level, and the subtraction.
void OpenCvSepFilterSevenLevels(benchmark::State& state) {
  std::vector<cv::Mat> kernels;
  std::vector<double> taps = kB3;
  for (int level = 0; level < CWavelet::kLevels; ++level) {
    kernels.push_back(cv::Mat(taps, true));
    std::vector<double> dilated;
    for (size_t i = 0; i < taps.size(); ++i) {
      if (i > 0) dilated.push_back(0.0);
      dilated.push_back(taps[i]);
    }
    taps = dilated;
  }
  cv::Mat current, smooth, detail;
  for (auto _ : state) {
    Frame().convertTo(current, CV_16S);
    for (const cv::Mat& kernel : kernels) {
      cv::sepFilter2D(current, smooth, CV_16S, kernel, kernel, cv::Point(-1, -1), 0.0,
                      cv::BORDER_REFLECT_101);
      cv::subtract(current, smooth, detail, cv::noArray(), CV_16S);
      std::swap(current, smooth);
    }
    benchmark::DoNotOptimize(detail.data);
  }
}
BENCHMARK(OpenCvSepFilterSevenLevels)->Unit(benchmark::kMillisecond)->UseRealTime();

// Before the benchmarks: the thread count, and the frame rendered so that no timing pays for it.
void Prepare() {
  std::printf("OpenCV threads: %d\n", cv::getNumThreads());
  Frame();
}

void PrintRatios(const ombrix_bench::CRatioReporter& reporter) {
  std::printf("\nOur time over OpenCV's in the same run, 2048 x 2048 16-bit (lower is faster):\n");
  for (const char* sigma : {"2", "7"}) {
    const std::string s(sigma);
    reporter.PrintRatio("Apply 2-D, sigma " + s + " / cv::GaussianBlur",
                        "Blur/TwoD/" + s + "/real_time", "OpenCvGaussianBlur/" + s + "/real_time");
    reporter.PrintRatio("Apply separable, sigma " + s + " / cv::sepFilter2D",
                        "Blur/Separable/" + s + "/real_time",
                        "OpenCvSepFilter/" + s + "/real_time");
    reporter.PrintRatio("Apply separable, sigma " + s + " / cv::GaussianBlur",
                        "Blur/Separable/" + s + "/real_time",
                        "OpenCvGaussianBlur/" + s + "/real_time");
  }
  reporter.PrintRatio("Decompose / 7 levels of cv::sepFilter2D", "WaveletDecompose/real_time",
                      "OpenCvSepFilterSevenLevels/real_time");
  reporter.PrintRatio("Decompose + ExtractStructures / 7 sepFilter2D",
                      "WaveletDecomposeAndExtract/real_time",
                      "OpenCvSepFilterSevenLevels/real_time");
}

}  // namespace

int main(int argc, char** argv) {
  return ombrix_bench::RunBenchmarksWithRatios(argc, argv, 48, Prepare, PrintRatios);
}
