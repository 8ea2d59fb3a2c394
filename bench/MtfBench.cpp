// The slanted-edge MTF measurement: the full target measurement of the 2048 x 1536 chart of
// "FTM.tif" (rendered here with the same layout and blur) next to the target detection it starts
// with, and the edge profile with 1 and 2 threads next to its straightforward single-threaded form.
// The ratios are printed after the table.
//   mtf_bench [--benchmark_filter=...]
#include <benchmark/benchmark.h>

#include <cstdio>
#include <opencv2/core.hpp>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "EdgeProfileReference.h"
#include "MtfChart.h"
#include "MtfChartLayouts.h"
#include "RatioReporter.h"
#include "SlantedEdge.h"
#include "mtf/MtfMeasurement.h"

namespace {

const cv::Mat& Chart() {
  static const cv::Mat chart = [] {
    cv::Mat image = 30.0 + 190.0 * datagen::RenderChart(datagen::FtmLayout(), datagen::kFtmSigma);
    datagen::AddNoise(image, 0.7, 99);
    cv::Mat out;
    image.convertTo(out, CV_8U);
    return out;
  }();
  return chart;
}

// A slanted edge the size of a large region (2048 rows, 512 columns) and of a chart target's side
// region (240 x 150), as 16-bit.
cv::Mat Edge(int rows, int cols) {
  datagen::SlantedEdge edge;
  edge.rows = rows;
  edge.cols = cols;
  edge.angleDegrees = 5.0;
  edge.sigma = 1.4;
  edge.dark = 2000.0;
  edge.bright = 12000.0;
  edge.noise = 20.0;
  return datagen::RenderSlantedEdge16U(edge);
}

const cv::Mat& LargeEdge() {
  static const cv::Mat edge = Edge(2048, 512);
  return edge;
}

const cv::Mat& SideEdge() {
  static const cv::Mat edge = Edge(240, 150);
  return edge;
}

void MeasureTargets(benchmark::State& state) {
  CMtfMeasurement measurement;
  MtfTargetMap targets;
  for (auto _ : state) {
    targets = measurement.MeasureTargets(Chart());
    benchmark::DoNotOptimize(targets.size());
  }
  int edges = 0;
  for (const auto& entry : targets) edges += static_cast<int>(entry.second.edges.size());
  state.counters["targets"] = static_cast<double>(targets.size());
  state.counters["edges"] = edges;
  state.counters["meanEfficiency"] = CMtfMeasurement::MeanEfficiency(targets);
}
BENCHMARK(MeasureTargets)->Unit(benchmark::kMillisecond)->UseRealTime();

void DetectTargetsOnly(benchmark::State& state) {
  TargetDetectionSettings settings;
  settings.minimumAngle = -180.0f;
  settings.maximumAngle = 180.0f;
  std::vector<ContourRecord> targets;
  for (auto _ : state) {
    DetectTargets(settings, targets, Chart());
    benchmark::DoNotOptimize(targets.data());
  }
  state.counters["targets"] = static_cast<double>(targets.size());
}
BENCHMARK(DetectTargetsOnly)->Unit(benchmark::kMillisecond)->UseRealTime();

void MeasureSideRegion(benchmark::State& state) {
  CMtfMeasurement measurement;
  MtfResult result;
  for (auto _ : state) {
    measurement.MeasureRegion(SideEdge(), result);
    benchmark::DoNotOptimize(result.cutFrequency);
  }
}
BENCHMARK(MeasureSideRegion)->Unit(benchmark::kMicrosecond)->UseRealTime();

// The edge profile of a region with the given worker threads; 0 threads is the straightforward
// form.
void Profile(benchmark::State& state, const cv::Mat& (*region)(), int threads) {
  const cv::Mat& edge = region();
  EdgeProfiler profiler;
  profiler.threadCount = threads;
  std::int32_t offset = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(threads == 0
                                 ? oracle::BuildEdgeProfile(edge, 0.0875f, 4.0f, offset).data()
                                 : BuildEdgeProfile(profiler, edge, 0.0875f).data());
  }
}

// ProfileLarge1, ProfileLarge2, ProfileLargeReference and the same for the side region.
void RegisterProfiles() {
  const std::tuple<const char*, const cv::Mat& (*)(), benchmark::TimeUnit> regions[] = {
      {"Large", &LargeEdge, benchmark::kMillisecond}, {"Side", &SideEdge, benchmark::kMicrosecond}};
  for (const auto& [name, region, unit] : regions) {
    for (const auto& [suffix, threads] : {std::pair{"1", 1}, {"2", 2}, {"Reference", 0}}) {
      benchmark::RegisterBenchmark(("Profile" + std::string(name) + suffix).c_str(), Profile,
                                   region, threads)
          ->Unit(unit)
          ->UseRealTime();
    }
  }
}

// Before the benchmarks: the inputs rendered, so that no timing pays for it.
void Prepare() {
  Chart();
  LargeEdge();
  SideEdge();
  RegisterProfiles();
}

void PrintRatios(const ombrix_bench::CRatioReporter& reporter) {
  std::printf("\nRatios (same process):\n");
  reporter.PrintRatio("target measurement / detection alone (2048 x 1536)",
                      "MeasureTargets/real_time", "DetectTargetsOnly/real_time");
  reporter.PrintRatio("profile 2048 x 512, 1 thread / reference", "ProfileLarge1/real_time",
                      "ProfileLargeReference/real_time");
  reporter.PrintRatio("profile 2048 x 512, 2 threads / 1 thread", "ProfileLarge2/real_time",
                      "ProfileLarge1/real_time");
  reporter.PrintRatio("profile 240 x 150, 1 thread / reference", "ProfileSide1/real_time",
                      "ProfileSideReference/real_time");
  reporter.PrintRatio("profile 240 x 150, 2 threads / 1 thread", "ProfileSide2/real_time",
                      "ProfileSide1/real_time");
}

}  // namespace

int main(int argc, char** argv) {
  return ombrix_bench::RunBenchmarksWithRatios(argc, argv, 52, Prepare, PrintRatios);
}
