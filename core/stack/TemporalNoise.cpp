#include "stack/TemporalNoise.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <exception>
#include <stdexcept>
#include <system_error>
#include <thread>

#if defined(__linux__)
#include <sys/mman.h>
#endif
#if defined(__linux__) && defined(MADV_HUGEPAGE)
#define OMBRIX_TEMPORAL_NOISE_MADVISE 1
#else
#define OMBRIX_TEMPORAL_NOISE_MADVISE 0
#endif

#if defined(__SSE2__) || defined(_M_X64)
#include <emmintrin.h>
#define OMBRIX_TEMPORAL_NOISE_SSE2 1
#else
#define OMBRIX_TEMPORAL_NOISE_SSE2 0
#endif

namespace {

const char* const kChannelMessage = "Only single channel images are supported";
const char* const kDimensionMessage = "All images needs to have the save image dimension";
// Also thrown for an empty series: there is no type to compare against either way.
const char* const kTypeMessage = "All images needs to have the save image type";
const char* const kEmptyMessage = "Frames must be non-empty two-dimensional images";

// 256 * 65535 < 2^24: up to this count a float running sum of 16-bit values never rounds.
constexpr std::size_t kExactSumCount = 256;
constexpr std::size_t kSquareBlock = 64;

// The K x N stack as 16-bit samples. Two-byte element types are read as their raw 16 bits (the
// series is meant to be CV_16U); any other depth is converted with saturation first, so that a
// stray 8- or 32-bit series is still read inside its own buffer.
cv::Mat SixteenBitView(const cv::Mat& stack) {
  if (stack.elemSize() == 2) return stack;
  cv::Mat converted;
  stack.convertTo(converted, CV_16U);
  return converted;
}

// A stack of hundreds of megabytes costs one page fault per 4 KiB page when it is first written;
// transparent huge pages, where the system grants them on request, cut that 512-fold. A hint only.
void AdviseHugePages(const cv::Mat& stack) {
#if OMBRIX_TEMPORAL_NOISE_MADVISE
  constexpr std::uintptr_t kHugePage = std::uintptr_t{2} << 20;
  const std::uintptr_t begin =
      (reinterpret_cast<std::uintptr_t>(stack.datastart) + kHugePage - 1) & ~(kHugePage - 1);
  const std::uintptr_t end = reinterpret_cast<std::uintptr_t>(stack.dataend) & ~(kHugePage - 1);
  if (end > begin) madvise(reinterpret_cast<void*>(begin), end - begin, MADV_HUGEPAGE);
#else
  (void)stack;
#endif
}

// Copies a block of `width` stack columns into `tile` pixel by pixel:
// tile[j * frames + k] = block[k * stride + j]. Eight rows by eight columns at a time go through an
// SSE2 transpose; the edges are copied one sample at a time.
void GatherBlock(const unsigned short* block, std::size_t stride, std::size_t frames, int width,
                 unsigned short* tile) {
  std::size_t k = 0;
#if OMBRIX_TEMPORAL_NOISE_SSE2
  for (; k + 8 <= frames; k += 8) {
    const unsigned short* rows = block + k * stride;
    int j = 0;
    for (; j + 8 <= width; j += 8) {
      __m128i r[8];
      for (int i = 0; i < 8; ++i) {
        r[i] = _mm_loadu_si128(reinterpret_cast<const __m128i*>(rows + i * stride + j));
      }
      const __m128i a0 = _mm_unpacklo_epi16(r[0], r[1]);
      const __m128i a1 = _mm_unpackhi_epi16(r[0], r[1]);
      const __m128i a2 = _mm_unpacklo_epi16(r[2], r[3]);
      const __m128i a3 = _mm_unpackhi_epi16(r[2], r[3]);
      const __m128i a4 = _mm_unpacklo_epi16(r[4], r[5]);
      const __m128i a5 = _mm_unpackhi_epi16(r[4], r[5]);
      const __m128i a6 = _mm_unpacklo_epi16(r[6], r[7]);
      const __m128i a7 = _mm_unpackhi_epi16(r[6], r[7]);
      const __m128i b0 = _mm_unpacklo_epi32(a0, a2);
      const __m128i b1 = _mm_unpackhi_epi32(a0, a2);
      const __m128i b2 = _mm_unpacklo_epi32(a1, a3);
      const __m128i b3 = _mm_unpackhi_epi32(a1, a3);
      const __m128i b4 = _mm_unpacklo_epi32(a4, a6);
      const __m128i b5 = _mm_unpackhi_epi32(a4, a6);
      const __m128i b6 = _mm_unpacklo_epi32(a5, a7);
      const __m128i b7 = _mm_unpackhi_epi32(a5, a7);
      const __m128i columns[8] = {_mm_unpacklo_epi64(b0, b4), _mm_unpackhi_epi64(b0, b4),
                                  _mm_unpacklo_epi64(b1, b5), _mm_unpackhi_epi64(b1, b5),
                                  _mm_unpacklo_epi64(b2, b6), _mm_unpackhi_epi64(b2, b6),
                                  _mm_unpacklo_epi64(b3, b7), _mm_unpackhi_epi64(b3, b7)};
      for (int i = 0; i < 8; ++i) {
        _mm_storeu_si128(reinterpret_cast<__m128i*>(tile + (j + i) * frames + k), columns[i]);
      }
    }
    for (; j < width; ++j) {
      for (std::size_t i = 0; i < 8; ++i) tile[j * frames + k + i] = rows[i * stride + j];
    }
  }
#endif
  for (; k < frames; ++k) {
    const unsigned short* row = block + k * stride;
    for (int j = 0; j < width; ++j) tile[j * frames + k] = row[j];
  }
}

// Loop body of one worker: the statistic of the stack columns [begin, end). The values of a pixel
// go into one vector that the worker reuses for all its pixels, so the run costs no allocation and
// no matrix header per pixel. The column is not read sample by sample down the stack: the rows are
// N samples long, often a power of two, so the K samples of one column fall into the same cache
// set and evict each other. Instead a block of columns is read row by row into a small tile laid
// out pixel by pixel, and each pixel's K values are copied from there.
class TemporalStatisticFunction_16U {
 public:
  TemporalStatisticFunction_16U(const cv::Mat& stack, cv::Mat& result,
                                const CTemporalNoise::Statistic& statistic)
      : stack_(stack), result_(result), statistic_(statistic) {}

  // Runs the columns [begin, end); an exception of the statistic is kept in error for the caller
  // of Compute, except the bad_function_call of an empty statistic, which ends the process as an
  // exception leaving a thread function does.
  void operator()(int begin, int end, std::exception_ptr* error) const {
    if (!statistic_) {
      Run(begin, end);
      return;
    }
    try {
      Run(begin, end);
    } catch (...) {
      *error = std::current_exception();
    }
  }

 private:
  void Run(int begin, int end) const {
    constexpr int kBlock = 256;
    const std::size_t frames = static_cast<std::size_t>(stack_.rows);
    const unsigned short* top = stack_.ptr<unsigned short>(0);
    const std::size_t stride = stack_.step[0] / sizeof(unsigned short);
    float* out = result_.ptr<float>(0);
    std::vector<unsigned short> tile(kBlock * frames);
    std::vector<unsigned short> values(frames);
    for (int block = begin; block < end; block += kBlock) {
      const int width = std::min(kBlock, end - block);
      GatherBlock(top + block, stride, frames, width, tile.data());
      const unsigned short* pixel = tile.data();
      for (int j = 0; j < width; ++j, pixel += frames) {
        // The statistic may change the vector it is handed; give every pixel its K values anew.
        if (values.size() != frames) values.resize(frames);
        std::copy(pixel, pixel + frames, values.begin());
        out[block + j] = statistic_(values);
      }
    }
  }

  const cv::Mat& stack_;
  cv::Mat& result_;
  const CTemporalNoise::Statistic& statistic_;
};

}  // namespace

void CTemporalNoise::CheckFrame(const cv::Mat& image, cv::Size previousSize, int previousType) {
  if (image.channels() != 1) throw std::invalid_argument(kChannelMessage);
  // A frame without pixels, or of three or more dimensions (rows and cols of -1), has no place in
  // a stack of rows x cols frames.
  if (image.empty() || image.dims != 2) throw std::invalid_argument(kEmptyMessage);
  if (previousType >= 0) {
    if (image.rows != previousSize.height || image.cols != previousSize.width) {
      throw std::invalid_argument(kDimensionMessage);
    }
    if (image.type() != previousType) throw std::invalid_argument(kTypeMessage);
  }
}

void CTemporalNoise::AddImage(cv::Mat image) {
  if (images_.empty()) {
    CheckFrame(image, cv::Size(), -1);
  } else {
    const cv::Mat& last = images_.back();
    CheckFrame(image, cv::Size(last.cols, last.rows), last.type());
  }
  images_.push_back(std::move(image));
}

float CTemporalNoise::StandardDeviation(std::vector<unsigned short>& values) const {
  const std::size_t count = values.size();
  const float n = static_cast<float>(count);
  float sum = 0.0f;
  if (count <= kExactSumCount) {
    // Up to kExactSumCount values every partial sum is an integer below 2^24, so adding them one
    // by one in float is exact and equals this integer sum, which vectorises.
    std::uint32_t total = 0;
    for (const unsigned short v : values) total += v;
    sum = static_cast<float>(total);
  } else {
    for (const unsigned short v : values) sum += static_cast<float>(v);
  }
  const float mean = sum / n;
  // The squared deviations are formed a block at a time (vectorised) and then added one by one
  // in order, which keeps the single-precision sum exactly that of the plain loop.
  float squares = 0.0f;
  float block[kSquareBlock];
  for (std::size_t first = 0; first < count; first += kSquareBlock) {
    const std::size_t width = std::min(kSquareBlock, count - first);
    const unsigned short* v = values.data() + first;
    for (std::size_t i = 0; i < width; ++i) {
      const float deviation = static_cast<float>(v[i]) - mean;
      block[i] = deviation * deviation;
    }
    for (std::size_t i = 0; i < width; ++i) squares += block[i];
  }
  return std::sqrt(squares / (n - 1.0f));
}

cv::Mat CTemporalNoise::Compute(Statistic statistic) const {
  if (images_.empty()) throw std::invalid_argument(kTypeMessage);
  const cv::Mat& reference = images_.back();
  const int rows = reference.rows;
  const int pixels = rows * reference.cols;
  const int frames = static_cast<int>(images_.size());

  // Every frame has the reference's size and type, so the K row copies below overwrite the whole
  // stack and it is not zero-filled first.
  cv::Mat stack(frames, pixels, reference.type());
  AdviseHugePages(stack);
  cv::Mat result = cv::Mat::zeros(1, pixels, CV_32F);
  for (int k = 0; k < frames; ++k) {
    images_[k].reshape(0, 1).copyTo(stack(cv::Rect(0, k, pixels, 1)));
  }
  const cv::Mat samples = SixteenBitView(stack);

  const int chunk = pixels / kWorkers;
  const TemporalStatisticFunction_16U body(samples, result, statistic);
  std::vector<std::exception_ptr> errors(kWorkers);
  std::vector<std::thread> workers;
  workers.reserve(kWorkers);
  try {
    for (int t = 0; t < kWorkers; ++t) {
      workers.emplace_back(body, t * chunk, std::min(pixels, (t + 1) * chunk), &errors[t]);
    }
  } catch (...) {
    // Threads already running still use the stack: let them finish before it goes away.
    for (std::thread& worker : workers) worker.join();
    throw;
  }
  for (std::thread& worker : workers) worker.join();
  // The first worker's exception, in worker order, reaches the caller.
  for (const std::exception_ptr& error : errors) {
    if (error) std::rethrow_exception(error);
  }
  return result.reshape(1, rows);
}
