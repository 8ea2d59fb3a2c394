// Speed of the processing plug-in's scenario bodies as the suite runs them (library loaded from
// the suite's folder, data read from UnitTestData). The reference is reading the same files with
// cv::imread in the same process; the counter x_read is a body's time over that reference.
#include <benchmark/benchmark.h>

#include <chrono>
#include <filesystem>
#include <iostream>
#include <iterator>
#include <memory>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <string>
#include <vector>

#include "DataFolder.h"
#include "FactoryCollection.h"
#include "Platform.h"
#include "PluginScenarios.h"

namespace {

// The data folder as the suite finds it; the scenarios run on the module beside the suite.
const std::string& Data() {
  static const std::string folder = FindDataFolder();
  return folder;
}

// Seconds to read every TIFF file of a scenario folder (darks and raw frames), best of five.
double ReadSeconds(const std::string& subfolder) {
  std::vector<cv::String> files;
  cv::glob(Data() + subfolder + OMBRIX_SEP "*.tif", files, false);
  double best = 1e300;
  for (int run = 0; run < 5; ++run) {
    const auto start = std::chrono::steady_clock::now();
    for (const auto& file : files) benchmark::DoNotOptimize(cv::imread(file, cv::IMREAD_UNCHANGED));
    best = std::min(
        best, std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
  }
  return best;
}

template <class Body>
void RunAgainstRead(benchmark::State& state, const std::vector<std::string>& subfolders,
                    Body body) {
  double reference = 0.0;
  for (const auto& subfolder : subfolders) reference += ReadSeconds(subfolder);
  double total = 0.0;
  for (auto _ : state) {
    const auto start = std::chrono::steady_clock::now();
    body();
    total += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  }
  state.counters["read_ms"] = reference * 1e3;
  state.counters["x_read"] = total / static_cast<double>(state.iterations()) / reference;
}

void BM_DarkChamberBody(benchmark::State& state, const std::string& subfolder) {
  RunAgainstRead(state, {subfolder}, [&] {
    benchmark::DoNotOptimize(
        scenarios::DarkChamberBody(OMBRIX_PROCESSING_MODULE, Data() + subfolder));
  });
}

void BM_LightSourceBody(benchmark::State& state, const std::string& subfolder) {
  RunAgainstRead(state, {subfolder}, [&] {
    benchmark::DoNotOptimize(
        scenarios::LightSourceBody(OMBRIX_PROCESSING_MODULE, Data() + subfolder));
  });
}

void BM_LightSourceAllTen(benchmark::State& state) {
  const std::vector<std::string> folders(std::begin(scenarios::kLightSourceFolders),
                                         std::end(scenarios::kLightSourceFolders));
  RunAgainstRead(state, folders, [&] {
    for (const auto& folder : folders) {
      benchmark::DoNotOptimize(
          scenarios::LightSourceBody(OMBRIX_PROCESSING_MODULE, Data() + folder));
    }
  });
}

void BM_TechnicianApproach(benchmark::State& state) {
  const std::string first = Data() + scenarios::kTechnicianCharts[0];
  const std::string second = Data() + scenarios::kTechnicianCharts[1];
  if (cv::imread(first, cv::IMREAD_UNCHANGED).empty() ||
      cv::imread(second, cv::IMREAD_UNCHANGED).empty()) {
    state.SkipWithError("FTM.tif or TestEntreeFTM.tif is missing");
    return;
  }
  double reference = 1e300;
  for (int run = 0; run < 5; ++run) {
    const auto start = std::chrono::steady_clock::now();
    benchmark::DoNotOptimize(cv::imread(first, cv::IMREAD_UNCHANGED));
    benchmark::DoNotOptimize(cv::imread(second, cv::IMREAD_UNCHANGED));
    reference = std::min(
        reference, std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
  }
  double total = 0.0;
  for (auto _ : state) {
    const auto start = std::chrono::steady_clock::now();
    benchmark::DoNotOptimize(scenarios::TechnicianBody(OMBRIX_PROCESSING_MODULE, Data()));
    total += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  }
  state.counters["read_ms"] = reference * 1e3;
  state.counters["x_read"] = total / static_cast<double>(state.iterations()) / reference;
}

void BM_DetectionPTC(benchmark::State& state, bool nominal) {
  RunAgainstRead(state, {"ValidationAlgo1"}, [&] {
    benchmark::DoNotOptimize(
        scenarios::DetectionBody(OMBRIX_PROCESSING_MODULE, Data() + scenarios::kValidationFolder,
                                 "PTC.tif", ValidationAlgoParameters(nominal)));
  });
}

// The three stack methods together; the reference is loading and unloading the library alone.
void BM_StackMethods(benchmark::State& state) {
  double reference = 1e300;
  for (int run = 0; run < 20; ++run) {
    const auto start = std::chrono::steady_clock::now();
    CFactoryCollection collection;
    benchmark::DoNotOptimize(scenarios::MakeProcessingPlugin(collection, OMBRIX_PROCESSING_MODULE));
    reference = std::min(
        reference, std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
  }
  double total = 0.0;
  for (auto _ : state) {
    const auto start = std::chrono::steady_clock::now();
    for (const auto scenario :
         {scenarios::StackScenario::kMinimum, scenarios::StackScenario::kAverage8U,
          scenarios::StackScenario::kAverage32F}) {
      benchmark::DoNotOptimize(scenarios::StackBody(OMBRIX_PROCESSING_MODULE, scenario).data);
    }
    total += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  }
  state.counters["load_ms"] = reference * 1e3;
  state.counters["x_load"] = total / static_cast<double>(state.iterations()) / reference;
}

}  // namespace

BENCHMARK_CAPTURE(BM_DarkChamberBody, DarkChamber, std::string("DarkChamber"))
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_DarkChamberBody, DarkChamber2, std::string("DarkChamber2"))
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_DarkChamberBody, DarkChamberFail, std::string("DarkChamberFail"))
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_LightSourceBody, QT7M21013H, std::string("QT7M21013H"))
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_DetectionPTC, Nominal, true)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_DetectionPTC, Control, false)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_LightSourceAllTen)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_TechnicianApproach)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_StackMethods)->Unit(benchmark::kMillisecond);

// The scenarios load "./OmbrixProcessing.so" and find UnitTestData relative to the working
// directory, so the benchmark runs from the suite's folder like the suite does.
int main(int argc, char** argv) {
  std::filesystem::current_path(OMBRIX_BENCH_SUITE_DIR);
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
