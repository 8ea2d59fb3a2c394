// Temporal noise of an imaging sensor: a per-pixel statistic (by default the sample standard
// deviation) over a series of raw frames of one scene. Accepts single-channel frames that all share
// one size and one type; the series is meant to be 16-bit unsigned (CV_16U).
#pragma once

#include <functional>
#include <opencv2/core.hpp>
#include <vector>

class CTemporalNoise {
 public:
  // Worker threads of Compute, each with an equal run of pixels.
  static constexpr int kWorkers = 9;

  // Receives one pixel's values over the series, in the order the frames were added. It is called
  // from several threads at once and must be safe to call concurrently.
  using Statistic = std::function<float(std::vector<unsigned short>&)>;

  CTemporalNoise() = default;
  virtual ~CTemporalNoise() = default;

  // Appends the frame (sharing its pixel data) after checking it against the last frame of the
  // series. Throws std::invalid_argument and leaves the series unchanged when the frame has more
  // than one channel, no pixels or more than two dimensions ("Frames must be non-empty
  // two-dimensional images"), other dimensions or another type.
  void AddImage(cv::Mat image);

  // The checks of AddImage, in its order and with its messages, for a frame that would follow
  // frames of previousSize and previousType; previousType -1 stands for an empty series, against
  // which only the channel count is checked.
  static void CheckFrame(const cv::Mat& image, cv::Size previousSize, int previousType);

  // Sample standard deviation (divisor n - 1) accumulated in single precision. One value gives
  // 0 / 0, that is NaN, on purpose.
  float StandardDeviation(std::vector<unsigned short>& values) const;

  // The statistic of every pixel as an image of the frames' size, type CV_32F. The work is split
  // into nine equal runs of pixels, one per worker thread; the last (pixel count mod 9) pixels
  // belong to no run and stay 0.0. Throws std::invalid_argument on an empty series. Frames must be
  // continuous (cv::Mat::reshape). Samples of 16-bit series are handed over as their raw 16 bits;
  // other depths are first converted to CV_16U with saturation. An exception thrown by the
  // statistic reaches the caller after every worker has been joined (the first in worker order);
  // an empty statistic ends the process with bad_function_call inside a worker.
  cv::Mat Compute(Statistic statistic) const;

  const std::vector<cv::Mat>& Images() const { return images_; }

 private:
  std::vector<cv::Mat> images_;
};
