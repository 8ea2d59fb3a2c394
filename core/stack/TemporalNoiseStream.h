// Temporal noise of a frame series of any length with memory for two float images: the per-pixel
// sample standard deviation in two passes over the frames, one frame at a time, in order. Accepts
// what CTemporalNoise::AddImage accepts (single channel, one size and type), non-empty and 2-D,
// continuous or not; samples are read as CTemporalNoise reads them.
#pragma once

#include <opencv2/core.hpp>
#include <vector>

// Pass 1 (AddSumFrame) adds every frame to per-pixel running sums; pass 2 (AddDeviationFrame)
// adds every frame's squared deviation from the pass-1 mean; StandardDeviation then gives
// sqrt(squares / (n - 1)). Each sum is accumulated in single precision in the order the frames
// arrive, exactly as CTemporalNoise::StandardDeviation accumulates a pixel's values, so with the
// same frames in the same order in both passes the image equals CTemporalNoise::Compute with
// StandardDeviation bit for bit on every pixel Compute covers; the last (pixel count mod 9) pixels,
// which Compute leaves at 0, are computed like all the others. Samples: two-byte depths (CV_16U,
// CV_16S, CV_16F) as their raw 16 bits, every other depth converted to CV_16U with saturation.
//
// Errors: the three std::invalid_argument messages of CTemporalNoise::AddImage (channels, then
// dimensions, then type, checked against the first frame in both passes), std::invalid_argument
// "Frames must be non-empty two-dimensional images", "The second pass has more frames than the
// first" and "The second pass has fewer frames than the first"; std::logic_error for calls out of
// order: "The first pass is over", "The second pass needs the frames of the first pass" and "No
// frames were added". A refused frame leaves the state unchanged.
class CTemporalNoiseStream {
 public:
  CTemporalNoiseStream() = default;
  virtual ~CTemporalNoiseStream() = default;

  // Pass 1: adds the frame to the running sums. Refused once pass 2 has begun.
  void AddSumFrame(const cv::Mat& frame);

  // Pass 2: adds the frame's squared deviations from the mean of pass 1. The first call turns the
  // sums into means, which ends pass 1. At most as many frames as in pass 1.
  void AddDeviationFrame(const cv::Mat& frame);

  // The sample standard deviation of every pixel, CV_32F of the frames' size (NaN everywhere for
  // one frame, as 0 / 0). Needs as many frames in pass 2 as in pass 1.
  cv::Mat StandardDeviation() const;

  // Both passes over frames already in memory, in the order of the list.
  static cv::Mat StandardDeviationOf(const std::vector<cv::Mat>& frames);

  int SumFrames() const { return sumFrames_; }
  int DeviationFrames() const { return deviationFrames_; }

 private:
  void CheckFrame(const cv::Mat& frame) const;

  cv::Mat sums_;     // running sums in pass 1, the means from the first frame of pass 2 on
  cv::Mat squares_;  // running sums of squared deviations
  cv::Size size_;
  int type_ = -1;  // type of the first frame; -1 before it
  int sumFrames_ = 0;
  int deviationFrames_ = 0;
};
