// Speed of the spot detection on the ValidationAlgo1 spot field (512 x 512), measured in the same
// process as its reference: a bare OpenCV pipeline (cv::GaussianBlur, a fixed threshold and
// cv::connectedComponentsWithStats) on the same frame, which has no cosmic-ray step, no robust
// statistics and no contours. The counters give each stage's time over the reference's. The
// detection sequence of the plug-in object (dark frames, push, detect) is measured against reading
// its three files.
#include <benchmark/benchmark.h>

#include <chrono>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <string>
#include <vector>

#include "CosmicRayCleaner.h"
#include "OmbrixProcessing.h"
#include "PluginScenarios.h"
#include "RobustStatistics.h"
#include "SpotDetector.h"

namespace {

const std::string kFolder =
    std::string(OMBRIX_BENCH_DATA_DIR) + OMBRIX_SEP + scenarios::kValidationFolder;

using Clock = std::chrono::steady_clock;

const cv::Mat& Frame() {
  static const cv::Mat frame = [] {
    cv::Mat raw, dark;
    cv::imread(kFolder + OMBRIX_SEP "PTC.tif", cv::IMREAD_UNCHANGED).convertTo(raw, CV_32F);
    cv::imread(kFolder + scenarios::kLongDarkFile, cv::IMREAD_UNCHANGED).convertTo(dark, CV_32F);
    return cv::Mat(raw - dark);
  }();
  return frame;
}

// Mean seconds of one call of fn over a fixed number of runs.
template <class Fn>
double Seconds(Fn fn, int runs) {
  const auto start = Clock::now();
  for (int i = 0; i < runs; ++i) fn();
  return std::chrono::duration<double>(Clock::now() - start).count() / runs;
}

int ReferencePipeline(const cv::Mat& frame) {
  cv::Mat smoothed, binary, labels, stats, centroids;
  cv::GaussianBlur(frame, smoothed, cv::Size(0, 0), 2.0);
  cv::threshold(smoothed, binary, 190.0, 255.0, cv::THRESH_BINARY);
  binary.convertTo(binary, CV_8U);
  return cv::connectedComponentsWithStats(binary, labels, stats, centroids, 8, CV_32S) - 1;
}

double ReferenceSeconds() {
  static const double seconds = [] {
    ReferencePipeline(Frame());
    return Seconds([] { benchmark::DoNotOptimize(ReferencePipeline(Frame())); }, 20);
  }();
  return seconds;
}

void BM_ReferencePipeline(benchmark::State& state) {
  const cv::Mat& frame = Frame();
  for (auto _ : state) benchmark::DoNotOptimize(ReferencePipeline(frame));
}

void BM_Detect(benchmark::State& state) {
  const cv::Mat& frame = Frame();
  CSpotDetector detector;
  detector.Configure(CSpotDetector::DefaultParameters(state.range(0) != 0));
  std::vector<DetectedObject> objects;
  cv::Mat labels, mask;
  for (auto _ : state) detector.Detect(frame, objects, labels, mask, 2, true);
  state.counters["objects"] = static_cast<double>(objects.size());
  state.counters["over_reference"] =
      Seconds([&] { detector.Detect(frame, objects, labels, mask, 2, true); }, 5) /
      ReferenceSeconds();
}

void BM_RemoveCosmicRays(benchmark::State& state) {
  const cv::Mat& frame = Frame();
  double background = 0.0, noise = 0.0;
  CRobustStatistics::OfImage(frame, background, noise);
  cv::Mat cleaned;
  const auto clean = [&] { return CCosmicRayCleaner::Clean(frame, background, 3, 100, cleaned); };
  int replaced = 0;
  for (auto _ : state) replaced = clean();
  state.counters["replaced"] = replaced;
  state.counters["over_reference"] = Seconds(clean, 5) / ReferenceSeconds();
}

void BM_RobustStatistics(benchmark::State& state) {
  const cv::Mat& frame = Frame();
  double background = 0.0, noise = 0.0;
  const auto statistics = [&] { CRobustStatistics::OfImage(frame, background, noise); };
  for (auto _ : state) statistics();
  state.counters["over_reference"] = Seconds(statistics, 10) / ReferenceSeconds();
}

// The detection sequence of a VerifAlgo method on the plug-in object itself (no library load),
// against reading its three files.
int DetectionSequence() {
  COmbrixProcessing plugin;
  return scenarios::RunDetectionSequence(plugin, kFolder, "PTC.tif", ValidationAlgoParameters(true))
      .Count();
}

void ReadFiles() {
  for (const char* name :
       {scenarios::kLongDarkFile, scenarios::kShortDarkFile, OMBRIX_SEP "PTC.tif"}) {
    benchmark::DoNotOptimize(cv::imread(kFolder + name, cv::IMREAD_UNCHANGED).data);
  }
}

void BM_DetectionSequence(benchmark::State& state) {
  int count = 0;
  for (auto _ : state) count = DetectionSequence();
  state.counters["objects"] = count;
  ReadFiles();
  state.counters["over_reading"] =
      Seconds([] { DetectionSequence(); }, 3) / Seconds([] { ReadFiles(); }, 10);
}

}  // namespace

BENCHMARK(BM_ReferencePipeline)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Detect)->Arg(1)->Arg(0)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_RemoveCosmicRays)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_RobustStatistics)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_DetectionSequence)->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
