// Target detection on the 2048 x 1536 chart "FTM.tif" (rendered here exactly as the data set
// writes it) and on the 16-bit 2000 x 1500 chart of "FTM2.tif", next to the OpenCV floor of the
// same run: Canny (30, 50) and contour retrieval alone, which every detection at that working size
// pays. The ratios are printed after the table.
//   target_detection_bench [--benchmark_filter=...]
#include <benchmark/benchmark.h>

#include <cstdio>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <string>
#include <utility>
#include <vector>

#include "MtfChart.h"
#include "MtfChartLayouts.h"
#include "RatioReporter.h"
#include "mtf/TargetDetection.h"

namespace {

const cv::Mat& Chart8() {
  static const cv::Mat chart = datagen::RenderQuantisedChart(
      datagen::FtmLayout(), datagen::kFtmSigma, datagen::FtmQuantisation());
  return chart;
}

const cv::Mat& Chart16() {
  static const cv::Mat chart = datagen::RenderQuantisedChart(
      datagen::Ftm2Layout(), datagen::kFtm2Sigma, datagen::Ftm2Quantisation());
  return chart;
}

TargetDetectionSettings MeasurementSettings(int workingSize) {
  TargetDetectionSettings settings;
  settings.workingSize = workingSize;
  settings.minimumAngle = -180.0f;
  settings.maximumAngle = 180.0f;
  return settings;
}

void Detect(benchmark::State& state, const cv::Mat& (*chart)(), int workingSize) {
  const cv::Mat& image = chart();
  TargetDetectionSettings settings = MeasurementSettings(workingSize);
  std::vector<ContourRecord> targets;
  for (auto _ : state) {
    DetectTargets(settings, targets, image);
    benchmark::DoNotOptimize(targets.data());
  }
  state.counters["targets"] = static_cast<double>(targets.size());
}
BENCHMARK_CAPTURE(Detect, Chart8, &Chart8, 2048)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(Detect, Chart8Automatic, &Chart8, 0)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK_CAPTURE(Detect, Chart16, &Chart16, 2048)->Unit(benchmark::kMillisecond)->UseRealTime();

// The floor: edges and contour retrieval of the same 8-bit picture, nothing else.
void CannyAndContours(benchmark::State& state) {
  const cv::Mat& image = Chart8();
  cv::Mat edges;
  std::vector<std::vector<cv::Point>> contours;
  std::vector<cv::Vec4i> hierarchy;
  for (auto _ : state) {
    cv::Canny(image, edges, 30.0, 50.0, 3, false);
    cv::findContours(edges, contours, hierarchy, cv::RETR_TREE, cv::CHAIN_APPROX_SIMPLE);
    benchmark::DoNotOptimize(contours.data());
  }
  state.counters["contours"] = static_cast<double>(contours.size());
}
BENCHMARK(CannyAndContours)->Unit(benchmark::kMillisecond)->UseRealTime();

// Before the benchmarks: the inputs rendered, so that no timing pays for it.
void Prepare() {
  Chart8();
  Chart16();
}

void PrintRatios(const ombrix_bench::CRatioReporter& reporter) {
  std::printf("\nDetection time over Canny + findContours of the same 2048 x 1536 chart:\n");
  for (const auto& [what, chart] :
       {std::pair{"full size (workingSize 2048), 8-bit", "Chart8"},
        std::pair{"automatic reduction (workingSize 0), 8-bit", "Chart8Automatic"},
        std::pair{"full size, 16-bit 2000 x 1500 (with stretch)", "Chart16"}}) {
    reporter.PrintRatio(what, "Detect/" + std::string(chart) + "/real_time",
                        "CannyAndContours/real_time");
  }
}

}  // namespace

int main(int argc, char** argv) {
  return ombrix_bench::RunBenchmarksWithRatios(argc, argv, 46, Prepare, PrintRatios);
}
