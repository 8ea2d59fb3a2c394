// Speed of the processing plug-in's scenario bodies as the suite runs them (library loaded from
// the suite's folder, data read from UnitTestData). The reference is reading the same files with
// cv::imread in the same process; the counter x_read is a body's time over that reference.
#include <benchmark/benchmark.h>

#include <chrono>
#include <filesystem>
#include <iostream>
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

struct Folder {
  std::string m_dataFolder;
};

const Folder& Data() {
  static const Folder folder{FindDataFolder()};
  return folder;
}

// Seconds to read every TIFF file of a scenario folder (darks and raw frames), best of five.
double ReadSeconds(const std::string& subfolder) {
  std::vector<cv::String> files;
  cv::glob(Data().m_dataFolder + subfolder + OMBRIX_SEP "*.tif", files, false);
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
  RunAgainstRead(state, {subfolder},
                 [&] { benchmark::DoNotOptimize(scenarios::DarkChamberBody(Data(), subfolder)); });
}

void BM_LightSourceBody(benchmark::State& state, const std::string& subfolder) {
  RunAgainstRead(state, {subfolder},
                 [&] { benchmark::DoNotOptimize(scenarios::LightSourceBody(Data(), subfolder)); });
}

void BM_LightSourceAllTen(benchmark::State& state) {
  const std::vector<std::string> folders = {"QT7M21013G", "QT7M21013F", "QT7M21013E", "QT7M21013D",
                                            "QT7M21013B", "QT7M21013A", "QT7M21010A", "QT7M21013C",
                                            "QT7M21010B", "QT7M21013H"};
  RunAgainstRead(state, folders, [&] {
    for (const auto& folder : folders) {
      benchmark::DoNotOptimize(scenarios::LightSourceBody(Data(), folder));
    }
  });
}

void BM_TechnicianApproach(benchmark::State& state) {
  const std::string first = Data().m_dataFolder + OMBRIX_SEP "FTM.tif";
  const std::string second = Data().m_dataFolder + OMBRIX_SEP "TestEntreeFTM.tif";
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
    CFactoryCollection collection;
    std::shared_ptr<IOmbrixProcessing> plugin = scenarios::MakeProcessingPlugin(collection);
    cv::Mat image = cv::imread(first, cv::IMREAD_UNCHANGED);
    benchmark::DoNotOptimize(plugin->ComputeMtf(image));
    image = cv::imread(second, cv::IMREAD_UNCHANGED);
    benchmark::DoNotOptimize(plugin->ComputeMtf(image));
    plugin.reset();
    total += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  }
  state.counters["read_ms"] = reference * 1e3;
  state.counters["x_read"] = total / static_cast<double>(state.iterations()) / reference;
}

// The detection sequence of the VerifAlgo methods (its body lives with that class in the suite;
// this is the same call sequence): parameters, dark frames, one frame at 150 s, mode 2, detection.
int DetectionSequence(const std::string& image, bool nominal) {
  CFactoryCollection collection;
  std::shared_ptr<IOmbrixProcessing> plugin = scenarios::MakeProcessingPlugin(collection);
  if (!plugin) return -1;
  const AlgoParameters parameters{3, 100, 2, 1000, 2, 3.2f, 800, 0x00050046u, nominal};
  plugin->SetAlgoParameters(parameters);
  const std::string folder = Data().m_dataFolder + "ValidationAlgo1";
  if (!plugin->LoadDarkFrames(folder + OMBRIX_SEP "Black_150s.tif",
                              folder + OMBRIX_SEP "Black_1s.tif", std::string())) {
    return -1;
  }
  plugin->BeginImage();
  ExposedImage frame;
  frame.image = cv::imread(folder + OMBRIX_SEP + image, cv::IMREAD_UNCHANGED);
  frame.exposure = 150.0f;
  plugin->PushImage(frame);
  plugin->SetAlgorithmMode(2);
  std::vector<DetectedObject> objects;
  cv::Mat labels, mask;
  plugin->DetectObjects(objects, labels, mask, 2, true);
  return static_cast<int>(objects.size());
}

void BM_DetectionPTC(benchmark::State& state, bool nominal) {
  RunAgainstRead(state, {"ValidationAlgo1"},
                 [&] { benchmark::DoNotOptimize(DetectionSequence("PTC.tif", nominal)); });
}

// The three stack methods together; the reference is loading and unloading the library alone.
void BM_StackMethods(benchmark::State& state) {
  std::vector<cv::Mat> eight, eightTens, floats;
  for (int i = 0; i < 10; ++i) {
    eight.push_back(cv::Mat(3, 3, CV_8UC1, cv::Scalar(i)));
    eightTens.push_back(cv::Mat(3, 3, CV_8UC1, cv::Scalar(10 * i)));
    floats.push_back(cv::Mat(3, 3, CV_32FC1, cv::Scalar(i)));
  }
  double reference = 1e300;
  for (int run = 0; run < 20; ++run) {
    const auto start = std::chrono::steady_clock::now();
    CFactoryCollection collection;
    benchmark::DoNotOptimize(scenarios::MakeProcessingPlugin(collection));
    reference = std::min(
        reference, std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
  }
  double total = 0.0;
  for (auto _ : state) {
    const auto start = std::chrono::steady_clock::now();
    for (const auto* images : {&eight, &eightTens, &floats}) {
      CFactoryCollection collection;
      std::shared_ptr<IOmbrixProcessing> plugin = scenarios::MakeProcessingPlugin(collection);
      cv::Mat result;
      if (images == &eight) {
        plugin->StackMinimum(result, *images);
      } else {
        plugin->StackAverage(result, *images);
      }
      benchmark::DoNotOptimize(result.data);
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
