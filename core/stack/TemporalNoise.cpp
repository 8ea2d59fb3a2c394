#include "stack/TemporalNoise.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <system_error>
#include <thread>

namespace {

const char* const kChannelMessage = "Only single channel images are supported";
const char* const kDimensionMessage = "All images needs to have the save image dimension";
// Also thrown for an empty series: there is no type to compare against either way.
const char* const kTypeMessage = "All images needs to have the save image type";

constexpr int kWorkers = 9;

// The K x N stack as 16-bit samples. Two-byte element types are read as their raw 16 bits (the
// series is meant to be CV_16U); any other depth is converted with saturation first, so that a
// stray 8- or 32-bit series is still read inside its own buffer.
cv::Mat SixteenBitView(const cv::Mat& stack) {
  if (stack.elemSize() == 2) return stack;
  cv::Mat converted;
  stack.convertTo(converted, CV_16U);
  return converted;
}

unsigned short SampleAt(const cv::Mat& frame, int y, int x) {
  switch (frame.elemSize()) {
    case 2:
      return frame.at<unsigned short>(y, x);
    default: {
      cv::Mat converted;
      frame(cv::Rect(x, y, 1, 1)).convertTo(converted, CV_16U);
      return converted.at<unsigned short>(0, 0);
    }
  }
}

// Loop body of one worker: the statistic of the stack columns [begin, end). The values of a pixel
// go into one vector that the worker reuses for all its pixels; the column is read straight from
// the stack, whose rows hold the frames, so that the whole run costs no allocation and no matrix
// header per pixel.
class TemporalStatisticFunction_16U {
 public:
  TemporalStatisticFunction_16U(const cv::Mat& stack, cv::Mat& result,
                                const CTemporalNoise::Statistic& statistic)
      : stack_(stack), result_(result), statistic_(statistic) {}

  void operator()(int begin, int end) const {
    const std::size_t frames = static_cast<std::size_t>(stack_.rows);
    const unsigned short* top = stack_.ptr<unsigned short>(0);
    const std::size_t stride = stack_.step[0] / sizeof(unsigned short);
    float* out = result_.ptr<float>(0);
    std::vector<unsigned short> values(frames);
    for (int c = begin; c < end; ++c) {
      // The statistic receives a mutable vector; a statistic that resized it gets K values again.
      if (values.size() != frames) values.resize(frames);
      const unsigned short* sample = top + c;
      for (std::size_t k = 0; k < frames; ++k, sample += stride) values[k] = *sample;
      out[c] = statistic_(values);
    }
  }

 private:
  const cv::Mat& stack_;
  cv::Mat& result_;
  const CTemporalNoise::Statistic& statistic_;
};

}  // namespace

void CTemporalNoise::AddImage(cv::Mat image) {
  if (image.channels() != 1) throw std::invalid_argument(kChannelMessage);
  if (!images_.empty()) {
    const cv::Mat& last = images_.back();
    if (image.rows != last.rows || image.cols != last.cols) {
      throw std::invalid_argument(kDimensionMessage);
    }
    if (image.type() != last.type()) throw std::invalid_argument(kTypeMessage);
  }
  images_.push_back(std::move(image));
}

float CTemporalNoise::StandardDeviation(std::vector<unsigned short>& values) const {
  const float n = static_cast<float>(values.size());
  float sum = 0.0f;
  for (const unsigned short v : values) sum += static_cast<float>(v);
  const float mean = sum / n;
  float squares = 0.0f;
  for (const unsigned short v : values) {
    const float deviation = static_cast<float>(v) - mean;
    squares += deviation * deviation;
  }
  return std::sqrt(squares / (n - 1.0f));
}

cv::Mat CTemporalNoise::Compute(Statistic statistic) const {
  if (images_.empty()) throw std::invalid_argument(kTypeMessage);
  const cv::Mat& reference = images_.back();
  const int rows = reference.rows;
  const int pixels = rows * reference.cols;
  const int frames = static_cast<int>(images_.size());

  cv::Mat stack = cv::Mat::zeros(frames, pixels, reference.type());
  cv::Mat result = cv::Mat::zeros(1, pixels, CV_32F);
  for (int k = 0; k < frames; ++k) {
    images_[k].reshape(0, 1).copyTo(stack(cv::Rect(0, k, pixels, 1)));
  }
  const cv::Mat samples = SixteenBitView(stack);

  const int chunk = pixels / kWorkers;
  const TemporalStatisticFunction_16U body(samples, result, statistic);
  std::vector<std::thread> workers;
  workers.reserve(kWorkers);
  try {
    for (int t = 0; t < kWorkers; ++t) {
      workers.emplace_back(body, t * chunk, std::min(pixels, (t + 1) * chunk));
    }
  } catch (...) {
    // Threads already running still use the stack: let them finish before it goes away.
    for (std::thread& worker : workers) worker.join();
    throw;
  }
  for (std::thread& worker : workers) worker.join();
  return result.reshape(1, rows);
}

cv::Mat CTemporalNoise::ComputeReference(Statistic statistic) const {
  if (images_.empty()) throw std::invalid_argument(kTypeMessage);
  const cv::Mat& reference = images_.back();
  const int rows = reference.rows;
  const int cols = reference.cols;
  const int covered = (rows * cols) / kWorkers * kWorkers;
  cv::Mat result = cv::Mat::zeros(rows, cols, CV_32F);
  for (int p = 0; p < covered; ++p) {
    const int y = p / cols;
    const int x = p % cols;
    std::vector<unsigned short> values;
    for (const cv::Mat& frame : images_) values.push_back(SampleAt(frame, y, x));
    result.at<float>(y, x) = statistic(values);
  }
  return result;
}
