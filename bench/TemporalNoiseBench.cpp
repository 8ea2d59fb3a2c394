// Speed of CTemporalNoise::Compute on 32 frames of 2048 x 2048, measured in the same process as
// its references: the straightforward single-threaded loop (the tests' oracle) and one memcpy of a
// buffer the size of the whole stack into memory already touched (the memory-traffic floor).
// Compute's counters give the ratios, whether its image equals the loop's bit for bit, and its
// peak memory beyond the stack and the result. The last benchmark writes the TemporalNoise set.
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <opencv2/core.hpp>

#if defined(__GLIBC__)
#include <malloc.h>
#endif
#include <string>
#include <vector>

#include "DataSet.h"
#include "Random.h"
#include "SensorFrames.h"
#include "TemporalNoiseReference.h"
#include "stack/TemporalNoise.h"

namespace {

constexpr int kFrames = 32;
constexpr int kSide = 2048;

using Clock = std::chrono::steady_clock;

struct Series {
  CTemporalNoise noise;
  std::size_t stackBytes = 0;
  std::size_t resultBytes = 0;
  cv::Mat reference;  // the straightforward loop's image, once it has run
};

Series& TheSeries() {
  static Series* series = [] {
    auto* s = new Series;
    datagen::Random random(20480);
    for (int k = 0; k < kFrames; ++k)
      s->noise.AddImage(ombrix_bench::RandomSensorFrame(random, kSide));
    s->stackBytes = static_cast<std::size_t>(kFrames) * kSide * kSide * sizeof(std::uint16_t);
    s->resultBytes = static_cast<std::size_t>(kSide) * kSide * sizeof(float);
    return s;
  }();
  return *series;
}

CTemporalNoise::Statistic Deviation(const CTemporalNoise& noise) {
  return std::bind(&CTemporalNoise::StandardDeviation, &noise, std::placeholders::_1);
}

// Seconds per run of the references, for Compute's ratios.
double g_memcpySeconds = 0.0;
double g_memcpyFreshSeconds = 0.0;
double g_referenceSeconds = 0.0;

long StatusKiB(const char* field) {
  std::ifstream status("/proc/self/status");
  std::string line;
  const std::string prefix = std::string(field) + ":";
  while (std::getline(status, line)) {
    if (line.compare(0, prefix.size(), prefix) == 0) return std::stol(line.substr(prefix.size()));
  }
  return -1;
}

// Resets the peak resident size so that VmHWM afterwards is the peak of what follows (Linux).
bool ResetPeak() {
  std::ofstream clear("/proc/self/clear_refs");
  clear << "5";
  clear.flush();
  return static_cast<bool>(clear);
}

bool BitwiseEqual(const cv::Mat& a, const cv::Mat& b) {
  if (a.size() != b.size() || a.type() != b.type() || !a.isContinuous() || !b.isContinuous()) {
    return false;
  }
  return std::memcmp(a.data, b.data, a.total() * a.elemSize()) == 0;
}

void BM_StackMemcpy(benchmark::State& state) {
  const std::size_t bytes = TheSeries().stackBytes;
  std::vector<std::uint8_t> source(bytes, 1);
  std::vector<std::uint8_t> target(bytes, 0);
  double seconds = 0.0;
  for (auto _ : state) {
    const auto start = Clock::now();
    std::memcpy(target.data(), source.data(), bytes);
    benchmark::ClobberMemory();
    seconds += std::chrono::duration<double>(Clock::now() - start).count();
  }
  g_memcpySeconds = seconds / static_cast<double>(state.iterations());
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * bytes));
}
BENCHMARK(BM_StackMemcpy)->Unit(benchmark::kMillisecond)->MinTime(1.0);

// The same copy into memory allocated just before it, as Compute's stack is: on top of the traffic
// it pays the first-touch page faults.
void BM_StackMemcpyFreshTarget(benchmark::State& state) {
  const std::size_t bytes = TheSeries().stackBytes;
  std::vector<std::uint8_t> source(bytes, 1);
  double seconds = 0.0;
  for (auto _ : state) {
    const auto start = Clock::now();
    std::unique_ptr<std::uint8_t[]> target(new std::uint8_t[bytes]);
    std::memcpy(target.get(), source.data(), bytes);
    benchmark::DoNotOptimize(target.get());
    benchmark::ClobberMemory();
    target.reset();
    seconds += std::chrono::duration<double>(Clock::now() - start).count();
  }
  g_memcpyFreshSeconds = seconds / static_cast<double>(state.iterations());
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * bytes));
}
BENCHMARK(BM_StackMemcpyFreshTarget)->Unit(benchmark::kMillisecond)->MinTime(1.0);

void BM_ReferenceLoop(benchmark::State& state) {
  Series& series = TheSeries();
  double seconds = 0.0;
  for (auto _ : state) {
    const auto start = Clock::now();
    series.reference = oracle::TemporalNoise(series.noise, Deviation(series.noise));
    seconds += std::chrono::duration<double>(Clock::now() - start).count();
  }
  g_referenceSeconds = seconds / static_cast<double>(state.iterations());
}
BENCHMARK(BM_ReferenceLoop)->Unit(benchmark::kMillisecond)->Iterations(3);

void BM_Compute(benchmark::State& state) {
  Series& series = TheSeries();
  // Peak memory of one call beyond what is resident before it.
  long peakExtraKiB = -1;
#if defined(__GLIBC__)
  malloc_trim(0);  // return freed heap pages, so that resident size counts live data only
#endif
  if (ResetPeak()) {
    const long before = StatusKiB("VmRSS");
    const cv::Mat result = series.noise.Compute(Deviation(series.noise));
    peakExtraKiB = StatusKiB("VmHWM") - before;
  }
  cv::Mat image;
  double seconds = 0.0;
  const std::clock_t cpuStart = std::clock();
  for (auto _ : state) {
    image.release();
    const auto start = Clock::now();
    image = series.noise.Compute(Deviation(series.noise));
    seconds += std::chrono::duration<double>(Clock::now() - start).count();
  }
  const double perRun = seconds / static_cast<double>(state.iterations());
  // Processor time of all threads per run: a figure that a busy machine inflates less than time.
  state.counters["cpu_ms_all_threads"] = 1000.0 * static_cast<double>(std::clock() - cpuStart) /
                                         CLOCKS_PER_SEC / static_cast<double>(state.iterations());
  if (!series.reference.empty()) {
    state.counters["identical"] = BitwiseEqual(image, series.reference) ? 1.0 : 0.0;
  }
  if (g_referenceSeconds > 0.0) state.counters["speedup_vs_loop"] = g_referenceSeconds / perRun;
  if (g_memcpySeconds > 0.0) state.counters["x_memcpy"] = perRun / g_memcpySeconds;
  if (g_memcpyFreshSeconds > 0.0) {
    state.counters["x_memcpy_fresh"] = perRun / g_memcpyFreshSeconds;
  }
  const double mib = 1024.0 * 1024.0;
  state.counters["stack_MiB"] = series.stackBytes / mib;
  state.counters["result_MiB"] = series.resultBytes / mib;
  if (peakExtraKiB >= 0) {
    state.counters["peak_extra_MiB"] = peakExtraKiB / 1024.0;
    state.counters["beyond_stack_result_MiB"] =
        peakExtraKiB / 1024.0 - (series.stackBytes + series.resultBytes) / mib;
  }
}
BENCHMARK(BM_Compute)->Unit(benchmark::kMillisecond)->MinTime(2.0);

void BM_GenerateTemporalNoiseSet(benchmark::State& state) {
  const auto found = datagen::Registry().find("TemporalNoise");
  if (found == datagen::Registry().end()) {
    state.SkipWithError("TemporalNoise set not registered");
    return;
  }
  const std::filesystem::path folder =
      std::filesystem::temp_directory_path() / "ombrix_temporal_noise_bench";
  for (auto _ : state) {
    datagen::Output out(folder);
    found->second(out);
    state.counters["files"] = static_cast<double>(out.Written().size());
  }
  std::filesystem::remove_all(folder);
}
BENCHMARK(BM_GenerateTemporalNoiseSet)->Unit(benchmark::kMillisecond)->Iterations(3);

}  // namespace

BENCHMARK_MAIN();
