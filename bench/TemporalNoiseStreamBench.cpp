// Speed of the two-pass temporal-noise stream on 2048 x 2048 16-bit frames, measured in the same
// process as its references: a plain memory pass over the bytes one pass touches (one memcpy of
// the frame and one of a float image), a memcpy of the frame alone, decoding the frame from an
// uncompressed TIFF in memory (the least a tool reading files pays per frame), and
// CTemporalNoise::Compute on the same series held in memory.
#include <benchmark/benchmark.h>

#include <cstring>
#include <functional>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <vector>

#include "Random.h"
#include "RatioReporter.h"
#include "SensorFrames.h"
#include "stack/TemporalNoise.h"
#include "stack/TemporalNoiseStream.h"

namespace {

constexpr int kSide = 2048;
constexpr int kDeviationFrames = 64;
constexpr int kSeriesFrames = 16;

cv::Mat RandomFrame(std::uint64_t seed) {
  datagen::Random random(seed);
  return ombrix_bench::RandomSensorFrame(random, kSide);
}

const cv::Mat& Frame() {
  static const cv::Mat frame = RandomFrame(4096);
  return frame;
}

const std::vector<cv::Mat>& Series() {
  static const std::vector<cv::Mat> series = [] {
    std::vector<cv::Mat> frames;
    for (int k = 0; k < kSeriesFrames; ++k) frames.push_back(RandomFrame(5000 + k));
    return frames;
  }();
  return series;
}

// The bytes a pass moves, without its arithmetic: the 8 MiB frame and the 16 MiB float image,
// each copied once into memory already touched.
void BM_PlainMemoryPass(benchmark::State& state) {
  const cv::Mat& frame = Frame();
  const std::size_t frameBytes = frame.total() * frame.elemSize();
  const std::size_t floatBytes = frame.total() * sizeof(float);
  std::vector<std::uint8_t> frameCopy(frameBytes, 1);
  std::vector<std::uint8_t> image(floatBytes, 1);
  std::vector<std::uint8_t> imageCopy(floatBytes, 1);
  for (auto _ : state) {
    std::memcpy(frameCopy.data(), frame.data, frameBytes);
    std::memcpy(imageCopy.data(), image.data(), floatBytes);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(
      static_cast<std::int64_t>(state.iterations() * (frameBytes + floatBytes)));
}
BENCHMARK(BM_PlainMemoryPass)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_FrameMemcpy(benchmark::State& state) {
  const cv::Mat& frame = Frame();
  const std::size_t bytes = frame.total() * frame.elemSize();
  std::vector<std::uint8_t> copy(bytes, 1);
  for (auto _ : state) {
    std::memcpy(copy.data(), frame.data, bytes);
    benchmark::ClobberMemory();
  }
}
BENCHMARK(BM_FrameMemcpy)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_DecodeTiff(benchmark::State& state) {
  std::vector<std::uint8_t> encoded;
  cv::imencode(".tif", Frame(), encoded, {cv::IMWRITE_TIFF_COMPRESSION, 1});
  for (auto _ : state) {
    cv::Mat decoded = cv::imdecode(encoded, cv::IMREAD_UNCHANGED);
    benchmark::DoNotOptimize(decoded.data);
  }
}
BENCHMARK(BM_DecodeTiff)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_SumPass(benchmark::State& state) {
  CTemporalNoiseStream stream;
  cv::Mat frame = Frame();
  if (state.range(0) == 8) frame.convertTo(frame, CV_8U, 1.0 / 16.0);
  stream.AddSumFrame(frame);
  for (auto _ : state) stream.AddSumFrame(frame);
}
BENCHMARK(BM_SumPass)->Arg(16)->Arg(8)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_DeviationPass(benchmark::State& state) {
  CTemporalNoiseStream stream;
  for (int k = 0; k < kDeviationFrames; ++k) stream.AddSumFrame(Frame());
  for (auto _ : state) stream.AddDeviationFrame(Frame());
}
BENCHMARK(BM_DeviationPass)
    ->Iterations(kDeviationFrames)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

// The whole statistic of a series held in memory: the stream's two passes against Compute.
void BM_StreamSeries(benchmark::State& state) {
  const std::vector<cv::Mat>& series = Series();
  for (auto _ : state) {
    cv::Mat image = CTemporalNoiseStream::StandardDeviationOf(series);
    benchmark::DoNotOptimize(image.data);
  }
}
BENCHMARK(BM_StreamSeries)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_ComputeSeries(benchmark::State& state) {
  CTemporalNoise noise;
  for (const cv::Mat& frame : Series()) noise.AddImage(frame);
  const CTemporalNoise::Statistic deviation =
      std::bind(&CTemporalNoise::StandardDeviation, &noise, std::placeholders::_1);
  for (auto _ : state) {
    cv::Mat image = noise.Compute(deviation);
    benchmark::DoNotOptimize(image.data);
  }
}
BENCHMARK(BM_ComputeSeries)->Unit(benchmark::kMillisecond)->UseRealTime();

// Before the benchmarks: the frames drawn, so that no timing pays for it.
void Prepare() {
  std::printf("OpenCV threads: %d\n", cv::getNumThreads());
  Frame();
  Series();
}

void PrintRatios(const ombrix_bench::CRatioReporter& reporter) {
  std::printf("\nOne pass over a 2048 x 2048 frame against its references, same run:\n");
  const char* const sum16 = "BM_SumPass/16/real_time";
  const char* const plain = "BM_PlainMemoryPass/real_time";
  const char* const ratios[][3] = {
      {"sum pass, 16-bit / plain memory pass", sum16, plain},
      {"sum pass, 8-bit / plain memory pass", "BM_SumPass/8/real_time", plain},
      {"deviation pass / plain memory pass", "BM_DeviationPass/iterations:64/real_time", plain},
      {"sum pass / frame memcpy", sum16, "BM_FrameMemcpy/real_time"},
      {"TIFF decode / sum pass", "BM_DecodeTiff/real_time", sum16},
      {"stream, 16 frames / CTemporalNoise::Compute", "BM_StreamSeries/real_time",
       "BM_ComputeSeries/real_time"}};
  for (const auto& ratio : ratios) reporter.PrintRatio(ratio[0], ratio[1], ratio[2]);
}

}  // namespace

int main(int argc, char** argv) {
  return ombrix_bench::RunBenchmarksWithRatios(argc, argv, 48, Prepare, PrintRatios);
}
