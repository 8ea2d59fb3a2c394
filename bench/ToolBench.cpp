// Speed of the ombrix tool's two file-bound paths on files on disk, against reading the same files
// in the same run. The temporal-noise stream over 64 frames of 2048 x 2048 16-bit TIFFs: two
// passes over the files as the tool streams them (CTemporalNoiseStream fed by the tool's
// FrameReader, the next one or two frames decoded on other threads while the current one is
// added, every file hashed in pass 1); the reference reads every file once. The cosmic-ray filter
// over a folder of 16 frames (read, filter, write the cleaned frame) through the tool's
// ForEachFile with one worker and with one worker per core, OpenCV itself on one thread.
// The CPU column is the processor time of the whole process (every thread): on a machine shared
// with other work it still shows the work done where the wall time does not.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <deque>
#include <filesystem>
#include <future>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <string>
#include <thread>
#include <vector>

#include "FrameReader.h"
#include "ParallelFiles.h"
#include "Random.h"
#include "RatioReporter.h"
#include "SensorFrames.h"
#include "filters/FilterCosmicRay.h"
#include "stack/TemporalNoiseStream.h"

namespace {

constexpr int kSide = 2048;
constexpr int kNoiseFrames = 64;
constexpr int kCleanFrames = 16;
constexpr int kCosmicRayHits = 2000;
constexpr int kRadius = 3;
constexpr int kThreshold = 100;
const std::vector<int> kUncompressedTiff = {cv::IMWRITE_TIFF_COMPRESSION, 1};

// The frames on disk, in a folder of their own that goes with the program (half a gigabyte).
struct Files {
  std::filesystem::path folder;
  std::vector<std::string> noise, clean, cleaned;
  void Remove() {
    std::error_code ignored;
    if (!folder.empty()) std::filesystem::remove_all(folder, ignored);
    folder.clear();
  }
  ~Files() { Remove(); }
};

Files& TheFiles() {
  static Files files;
  return files;
}

cv::Mat Read(const std::string& path) { return cv::imread(path, cv::IMREAD_UNCHANGED); }

void BM_ReadNoiseFrames(benchmark::State& state) {
  for (auto _ : state) {
    for (const std::string& path : TheFiles().noise) {
      const cv::Mat frame = Read(path);
      if (frame.empty()) state.SkipWithError("cannot read a frame");
      benchmark::DoNotOptimize(frame.data);
    }
  }
}
BENCHMARK(BM_ReadNoiseFrames)
    ->Unit(benchmark::kMillisecond)
    ->MeasureProcessCPUTime()
    ->UseRealTime();

// Argument: how many frames the tool's FrameReader decodes ahead while the current one is added
// (the tool uses ombrix_tool::NoiseReadAhead(), 2 on two cores). Pass 1 also hashes every file,
// as the tool does for results.json.
void BM_NoiseStream(benchmark::State& state) {
  const auto ahead = static_cast<std::size_t>(state.range(0));
  for (auto _ : state) {
    CTemporalNoiseStream stream;
    try {
      ombrix_tool::FrameReader(TheFiles().noise, ahead, true)
          .ForEach(
              [&](std::size_t, const cv::Mat& f, const std::string&) { stream.AddSumFrame(f); });
      ombrix_tool::FrameReader(TheFiles().noise, ahead, false)
          .ForEach([&](std::size_t, const cv::Mat& f, const std::string&) {
            stream.AddDeviationFrame(f);
          });
    } catch (const std::exception& e) {
      state.SkipWithError(e.what());
      break;
    }
    const cv::Mat deviation = stream.StandardDeviation();
    benchmark::DoNotOptimize(deviation.data);
  }
}
BENCHMARK(BM_NoiseStream)
    ->Arg(1)
    ->Arg(2)
    ->Unit(benchmark::kMillisecond)
    ->MeasureProcessCPUTime()
    ->UseRealTime();

void BM_ReadCleanFrames(benchmark::State& state) {
  for (auto _ : state) {
    for (const std::string& path : TheFiles().clean) {
      const cv::Mat frame = Read(path);
      if (frame.empty()) state.SkipWithError("cannot read a frame");
      benchmark::DoNotOptimize(frame.data);
    }
  }
}
BENCHMARK(BM_ReadCleanFrames)
    ->Unit(benchmark::kMillisecond)
    ->MeasureProcessCPUTime()
    ->UseRealTime();

// Argument: the number of workers of the tool's ForEachFile, each taking the next file until none
// is left.
void BM_CleanFolder(benchmark::State& state) {
  const int workers = static_cast<int>(state.range(0));
  const int openCvThreads = cv::getNumThreads();
  cv::setNumThreads(1);  // the parallelism is over files
  const CFilterCosmicRay filter(kRadius, kThreshold);
  const Files& files = TheFiles();
  for (auto _ : state) {
    std::atomic<bool> failed{false};
    ombrix_tool::ForEachFile(
        files.clean.size(),
        [&](std::size_t i) {
          const cv::Mat frame = Read(files.clean[i]);
          cv::Mat cleaned;
          if (frame.empty()) {
            failed = true;
            return;
          }
          filter.Process(frame, cleaned, cv::Mat());
          if (!cv::imwrite(files.cleaned[i], cleaned, kUncompressedTiff)) failed = true;
        },
        static_cast<std::size_t>(workers));
    if (failed) {
      state.SkipWithError("cannot read or write a frame");
      break;
    }
  }
  cv::setNumThreads(openCvThreads);
}
BENCHMARK(BM_CleanFolder)
    ->Arg(1)
    ->Arg(2)
    ->Unit(benchmark::kMillisecond)
    ->MeasureProcessCPUTime()
    ->UseRealTime();

// Before the benchmarks: the frames written, so that no timing pays for it (they stay in the
// page cache: the figures are for files the system has cached, as right after a capture).
void Prepare() {
  Files& files = TheFiles();
  files.folder = std::filesystem::temp_directory_path() /
                 ("ombrix-tool-bench-" + std::to_string(static_cast<long>(::getpid())));
  std::filesystem::create_directories(files.folder / "noise");
  std::filesystem::create_directories(files.folder / "clean");
  std::filesystem::create_directories(files.folder / "cleaned");
  datagen::Random random(1200);
  for (int k = 0; k < kNoiseFrames; ++k) {
    char name[32];
    std::snprintf(name, sizeof name, "frame%03d.tif", k);
    files.noise.push_back((files.folder / "noise" / name).string());
    cv::imwrite(files.noise.back(), ombrix_bench::RandomSensorFrame(random, kSide),
                kUncompressedTiff);
  }
  for (int k = 0; k < kCleanFrames; ++k) {
    // A dark frame: level 2000 with 8 random bits (sigma about 74) and bright hits; about half
    // its pixels lie more than the threshold above their disc's minimum, as on the suite's frames.
    cv::Mat frame = ombrix_bench::RandomSensorFrame(random, kSide);
    frame = (frame - 2000) / 8 + 2000;
    for (int h = 0; h < kCosmicRayHits; ++h) {
      frame.at<std::uint16_t>(random.Int(0, kSide - 1), random.Int(0, kSide - 1)) =
          static_cast<std::uint16_t>(random.Int(8000, 60000));
    }
    char name[32];
    std::snprintf(name, sizeof name, "frame%03d.tif", k);
    files.clean.push_back((files.folder / "clean" / name).string());
    files.cleaned.push_back((files.folder / "cleaned" / name).string());
    cv::imwrite(files.clean.back(), frame, kUncompressedTiff);
  }
  std::printf("OpenCV threads: %d, hardware threads: %u, frames in %s\n", cv::getNumThreads(),
              std::thread::hardware_concurrency(), files.folder.string().c_str());
}

void PrintRatios(const ombrix_bench::CRatioReporter& reporter) {
  std::printf("\nThe tool's file-bound paths against reading their files, same run:\n");
  // clang-format off
  const char* const ratios[][3] = {
      {"noise stream, 2 frames ahead / reading once", "BM_NoiseStream/2/process_time/real_time",
       "BM_ReadNoiseFrames/process_time/real_time"},
      {"  same, 1 frame ahead / reading once", "BM_NoiseStream/1/process_time/real_time",
       "BM_ReadNoiseFrames/process_time/real_time"},
      {"clean 16 frames, 1 worker / 2 workers", "BM_CleanFolder/1/process_time/real_time",
       "BM_CleanFolder/2/process_time/real_time"},
      {"clean 16 frames, 2 workers / reading them", "BM_CleanFolder/2/process_time/real_time",
       "BM_ReadCleanFrames/process_time/real_time"}};
  // clang-format on
  for (const auto& ratio : ratios) reporter.PrintRatio(ratio[0], ratio[1], ratio[2]);
}

}  // namespace

int main(int argc, char** argv) {
  const int code = ombrix_bench::RunBenchmarksWithRatios(argc, argv, 44, Prepare, PrintRatios);
  TheFiles().Remove();
  return code;
}
