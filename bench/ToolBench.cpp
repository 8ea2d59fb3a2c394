// Speed of the ombrix tool's two file-bound paths on files on disk, against reading the same files
// in the same run.
// - Temporal noise over 64 frames of 2048 x 2048 16-bit TIFFs: the whole `ombrix noise` command
//   (both passes, every file hashed, the map, pictures, plots and report written), and its stream
//   alone (CTemporalNoiseStream fed by the tool's FrameReader, the next frames read, hashed and
//   decoded on other threads while the current one is added); the reference reads every file once
//   with cv::imread. SHA-256 of every file, which results.json records, is timed on its own too.
//   Each is timed on files in the page cache (warm) and on files dropped from it before every
//   iteration (cold), as frames copied from the instrument and not read since are.
// - The cosmic-ray filter over a folder of 16 frames (read, filter, write the cleaned frame)
//   through the tool's ForEachFile with one worker and with one worker per core, OpenCV itself on
//   one thread.
// The CPU column is the processor time of the whole process (every thread): on a machine shared
// with other work it still shows the work done where the wall time does not.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <filesystem>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <string>
#include <thread>
#include <vector>

#include "FrameReader.h"
#include "NoiseCommand.h"
#include "ParallelFiles.h"
#include "Random.h"
#include "RatioReporter.h"
#include "SensorFrames.h"
#include "Sha256.h"
#include "filters/FilterCosmicRay.h"
#include "stack/TemporalNoiseStream.h"

namespace {

constexpr int kSide = 2048;
constexpr int kNoiseFrames = 64;
const std::vector<int> kUncompressedTiff = {cv::IMWRITE_TIFF_COMPRESSION, 1};

// The cosmic-ray folder: a dark frame per file with bright hits, cleaned with the suite's radius
// and threshold.
struct CleanFolder {
  int frames = 16;
  int hits = 2000;
  int radius = 3;
  int threshold = 100;
};
const CleanFolder kClean;

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

enum class Cache { kWarm, kCold };

// Drops the files' pages from the page cache (they were synced when written), so that their next
// read comes from the disk.
void Evict(const std::vector<std::string>& paths) {
  for (const std::string& path : paths) {
    const int fd = ::open(path.c_str(), O_RDONLY);
    if (fd < 0) continue;
    ::posix_fadvise(fd, 0, 0, POSIX_FADV_DONTNEED);
    ::close(fd);
  }
}

void StartIteration(benchmark::State& state, Cache cache, const std::vector<std::string>& paths) {
  if (cache == Cache::kWarm) return;
  state.PauseTiming();
  Evict(paths);
  state.ResumeTiming();
}

void BM_ReadFrames(benchmark::State& state, std::vector<std::string> Files::*list, Cache cache) {
  const std::vector<std::string>& paths = TheFiles().*list;
  for (auto _ : state) {
    StartIteration(state, cache, paths);
    for (const std::string& path : paths) {
      const cv::Mat frame = cv::imread(path, cv::IMREAD_UNCHANGED);
      if (frame.empty()) state.SkipWithError("cannot read a frame");
      benchmark::DoNotOptimize(frame.data);
    }
  }
}
BENCHMARK_CAPTURE(BM_ReadFrames, noise_warm, &Files::noise, Cache::kWarm)
    ->Unit(benchmark::kMillisecond)
    ->MeasureProcessCPUTime()
    ->UseRealTime();
BENCHMARK_CAPTURE(BM_ReadFrames, noise_cold, &Files::noise, Cache::kCold)
    ->Unit(benchmark::kMillisecond)
    ->MeasureProcessCPUTime()
    ->UseRealTime();
BENCHMARK_CAPTURE(BM_ReadFrames, clean_warm, &Files::clean, Cache::kWarm)
    ->Unit(benchmark::kMillisecond)
    ->MeasureProcessCPUTime()
    ->UseRealTime();

void BM_HashNoiseFiles(benchmark::State& state) {
  for (auto _ : state) {
    for (const std::string& path : TheFiles().noise) {
      benchmark::DoNotOptimize(ombrix_tool::Sha256OfFile(path));
    }
  }
}
BENCHMARK(BM_HashNoiseFiles)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime()->UseRealTime();

// Argument: how many frames the tool's FrameReader reads ahead while the current one is added
// (the tool uses ombrix_tool::NoiseReadAhead(), 2 on two cores). Pass 1 also hashes every file,
// as the tool does for results.json.
void BM_NoiseStream(benchmark::State& state, Cache cache) {
  const auto ahead = static_cast<std::size_t>(state.range(0));
  for (auto _ : state) {
    StartIteration(state, cache, TheFiles().noise);
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
BENCHMARK_CAPTURE(BM_NoiseStream, warm, Cache::kWarm)
    ->Arg(1)
    ->Arg(2)
    ->Unit(benchmark::kMillisecond)
    ->MeasureProcessCPUTime()
    ->UseRealTime();

// The whole command as `ombrix noise FOLDER --quiet --force --out DIR` runs it.
void BM_NoiseCommand(benchmark::State& state, Cache cache) {
  ombrix_tool::NoiseOptions options;
  options.frames = TheFiles().noise;
  ombrix_tool::CommonOptions common;
  common.out = (TheFiles().folder / "noise-run").string();
  common.force = true;
  common.quiet = true;
  for (auto _ : state) {
    StartIteration(state, cache, TheFiles().noise);
    try {
      if (ombrix_tool::RunNoise(options, common) != 0) state.SkipWithError("noise failed");
    } catch (const std::exception& e) {
      state.SkipWithError(e.what());
      break;
    }
  }
}
BENCHMARK_CAPTURE(BM_NoiseCommand, warm, Cache::kWarm)
    ->Unit(benchmark::kMillisecond)
    ->MeasureProcessCPUTime()
    ->UseRealTime();
BENCHMARK_CAPTURE(BM_NoiseCommand, cold, Cache::kCold)
    ->Unit(benchmark::kMillisecond)
    ->MeasureProcessCPUTime()
    ->UseRealTime();

// Argument: the number of workers of the tool's ForEachFile, each taking the next file until none
// is left.
void BM_CleanFolder(benchmark::State& state) {
  const int workers = static_cast<int>(state.range(0));
  const int openCvThreads = cv::getNumThreads();
  cv::setNumThreads(1);  // the parallelism is over files
  const CFilterCosmicRay filter(kClean.radius, kClean.threshold);
  const Files& files = TheFiles();
  for (auto _ : state) {
    std::atomic<bool> failed{false};
    ombrix_tool::ForEachFile(
        files.clean.size(),
        [&](std::size_t i) {
          const cv::Mat frame = cv::imread(files.clean[i], cv::IMREAD_UNCHANGED);
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

// Writes the frame and flushes it to the disk, so that Evict can drop its pages.
void WriteFrame(const std::string& path, const cv::Mat& frame) {
  cv::imwrite(path, frame, kUncompressedTiff);
  const int fd = ::open(path.c_str(), O_RDONLY);
  if (fd < 0) return;
  ::fsync(fd);
  ::close(fd);
}

std::string FrameName(int k) {
  char name[32];
  std::snprintf(name, sizeof name, "frame%03d.tif", k);
  return name;
}

// Before the benchmarks: the frames written, so that no timing pays for it.
void Prepare() {
  Files& files = TheFiles();
  files.folder = std::filesystem::temp_directory_path() /
                 ("ombrix-tool-bench-" + std::to_string(static_cast<long>(::getpid())));
  for (const char* sub : {"noise", "clean", "cleaned"}) {
    std::filesystem::create_directories(files.folder / sub);
  }
  datagen::Random random(1200);
  for (int k = 0; k < kNoiseFrames; ++k) {
    files.noise.push_back((files.folder / "noise" / FrameName(k)).string());
    WriteFrame(files.noise.back(), ombrix_bench::RandomSensorFrame(random, kSide));
  }
  for (int k = 0; k < kClean.frames; ++k) {
    // A dark frame: level 2000 with 8 random bits (sigma about 74) and bright hits; about half
    // its pixels lie more than the threshold above their disc's minimum, as on the suite's frames.
    cv::Mat frame = ombrix_bench::RandomSensorFrame(random, kSide);
    frame = (frame - 2000) / 8 + 2000;
    for (int h = 0; h < kClean.hits; ++h) {
      frame.at<std::uint16_t>(random.Int(0, kSide - 1), random.Int(0, kSide - 1)) =
          static_cast<std::uint16_t>(random.Int(8000, 60000));
    }
    files.clean.push_back((files.folder / "clean" / FrameName(k)).string());
    files.cleaned.push_back((files.folder / "cleaned" / FrameName(k)).string());
    WriteFrame(files.clean.back(), frame);
  }
  std::printf("OpenCV threads: %d, hardware threads: %u, frames in %s\n", cv::getNumThreads(),
              std::thread::hardware_concurrency(), files.folder.string().c_str());
}

void PrintRatios(const ombrix_bench::CRatioReporter& reporter) {
  std::printf("\nThe tool's file-bound paths against reading their files, same run:\n");
  const std::string readWarm = "BM_ReadFrames/noise_warm/process_time/real_time";
  const std::string readCold = "BM_ReadFrames/noise_cold/process_time/real_time";
  const std::string clean1 = "BM_CleanFolder/1/process_time/real_time";
  const std::string clean2 = "BM_CleanFolder/2/process_time/real_time";
  const std::vector<std::vector<std::string>> ratios = {
      {"ombrix noise, files cached / reading once", "BM_NoiseCommand/warm/process_time/real_time",
       readWarm},
      {"ombrix noise, files on disk / reading once", "BM_NoiseCommand/cold/process_time/real_time",
       readCold},
      {"  stream, 2 frames ahead / reading once", "BM_NoiseStream/warm/2/process_time/real_time",
       readWarm},
      {"  stream, 1 frame ahead / reading once", "BM_NoiseStream/warm/1/process_time/real_time",
       readWarm},
      {"  SHA-256 of every file / reading once", "BM_HashNoiseFiles/process_time/real_time",
       readWarm},
      {"clean 16 frames, 1 worker / 2 workers", clean1, clean2},
      {"clean 16 frames, 2 workers / reading them", clean2,
       "BM_ReadFrames/clean_warm/process_time/real_time"}};
  for (const auto& ratio : ratios) reporter.PrintRatio(ratio[0], ratio[1], ratio[2]);
}

}  // namespace

int main(int argc, char** argv) {
  const int code = ombrix_bench::RunBenchmarksWithRatios(argc, argv, 44, Prepare, PrintRatios);
  TheFiles().Remove();
  return code;
}
