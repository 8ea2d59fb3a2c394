#include "stack/TemporalNoiseStream.h"

#include <cmath>
#include <stdexcept>

#include "stack/TemporalNoise.h"

namespace {

const char* const kShapeMessage = "Frames must be non-empty two-dimensional images";
const char* const kPassOverMessage = "The first pass is over";
const char* const kNoFirstPassMessage = "The second pass needs the frames of the first pass";
const char* const kMoreFramesMessage = "The second pass has more frames than the first";
const char* const kFewerFramesMessage = "The second pass has fewer frames than the first";
const char* const kNoFramesMessage = "No frames were added";

// Row y of the frame as 16-bit samples, read the way CTemporalNoise reads its stack: two-byte
// elements as their raw bits, other depths through convertTo(CV_16U), which saturates. buffer is
// the caller's row of CV_16U, reused from row to row.
const unsigned short* RowSamples(const cv::Mat& frame, int y, cv::Mat& buffer) {
  if (frame.elemSize() == 2) return frame.ptr<unsigned short>(y);
  frame.row(y).convertTo(buffer, CV_16U);
  return buffer.ptr<unsigned short>(0);
}

// Loop body of pass 1 over a range of rows: sums += sample, one single-precision addition per
// pixel and frame, so each pixel's sum is the in-order float sum of its values.
class TemporalSumFunction_16U : public cv::ParallelLoopBody {
 public:
  TemporalSumFunction_16U(const cv::Mat& frame, cv::Mat& sums) : frame_(frame), sums_(sums) {}

  void operator()(const cv::Range& rows) const override {
    const int cols = frame_.cols;
    cv::Mat buffer;
    for (int y = rows.start; y < rows.end; ++y) {
      const unsigned short* samples = RowSamples(frame_, y, buffer);
      float* sums = sums_.ptr<float>(y);
      for (int x = 0; x < cols; ++x) sums[x] += static_cast<float>(samples[x]);
    }
  }

 private:
  const cv::Mat& frame_;
  cv::Mat& sums_;
};

// Loop body of pass 2 over a range of rows: squares += (sample - mean)^2, the deviation and its
// square each rounded to float before the addition, as CTemporalNoise::StandardDeviation forms
// them.
class TemporalSquaredDeviationFunction_16U : public cv::ParallelLoopBody {
 public:
  TemporalSquaredDeviationFunction_16U(const cv::Mat& frame, const cv::Mat& means, cv::Mat& squares)
      : frame_(frame), means_(means), squares_(squares) {}

  void operator()(const cv::Range& rows) const override {
    const int cols = frame_.cols;
    cv::Mat buffer;
    for (int y = rows.start; y < rows.end; ++y) {
      const unsigned short* samples = RowSamples(frame_, y, buffer);
      const float* means = means_.ptr<float>(y);
      float* squares = squares_.ptr<float>(y);
      for (int x = 0; x < cols; ++x) {
        const float deviation = static_cast<float>(samples[x]) - means[x];
        const float square = deviation * deviation;
        squares[x] += square;
      }
    }
  }

 private:
  const cv::Mat& frame_;
  const cv::Mat& means_;
  cv::Mat& squares_;
};

}  // namespace

void CTemporalNoiseStream::CheckFrame(const cv::Mat& frame) const {
  CTemporalNoise::CheckFrame(frame, size_, type_);
  if (frame.empty() || frame.dims != 2) throw std::invalid_argument(kShapeMessage);
}

void CTemporalNoiseStream::AddSumFrame(const cv::Mat& frame) {
  if (deviationFrames_ > 0) throw std::logic_error(kPassOverMessage);
  CheckFrame(frame);
  if (type_ < 0) {
    sums_ = cv::Mat::zeros(frame.rows, frame.cols, CV_32F);
    size_ = frame.size();
    type_ = frame.type();
  }
  cv::parallel_for_(cv::Range(0, frame.rows), TemporalSumFunction_16U(frame, sums_));
  ++sumFrames_;
}

void CTemporalNoiseStream::AddDeviationFrame(const cv::Mat& frame) {
  if (sumFrames_ == 0) throw std::logic_error(kNoFirstPassMessage);
  CheckFrame(frame);
  if (deviationFrames_ == sumFrames_) throw std::invalid_argument(kMoreFramesMessage);
  if (deviationFrames_ == 0) {
    // mean = sum / n in float, as StandardDeviation divides; the sums are not needed again.
    const float n = static_cast<float>(sumFrames_);
    for (int y = 0; y < sums_.rows; ++y) {
      float* row = sums_.ptr<float>(y);
      for (int x = 0; x < sums_.cols; ++x) row[x] = row[x] / n;
    }
    squares_ = cv::Mat::zeros(sums_.rows, sums_.cols, CV_32F);
  }
  cv::parallel_for_(cv::Range(0, frame.rows),
                    TemporalSquaredDeviationFunction_16U(frame, sums_, squares_));
  ++deviationFrames_;
}

cv::Mat CTemporalNoiseStream::StandardDeviation() const {
  if (sumFrames_ == 0) throw std::logic_error(kNoFramesMessage);
  if (deviationFrames_ != sumFrames_) throw std::invalid_argument(kFewerFramesMessage);
  const float divisor = static_cast<float>(sumFrames_) - 1.0f;
  cv::Mat result(squares_.rows, squares_.cols, CV_32F);
  for (int y = 0; y < result.rows; ++y) {
    const float* squares = squares_.ptr<float>(y);
    float* out = result.ptr<float>(y);
    for (int x = 0; x < result.cols; ++x) out[x] = std::sqrt(squares[x] / divisor);
  }
  return result;
}

cv::Mat CTemporalNoiseStream::StandardDeviationOf(const std::vector<cv::Mat>& frames) {
  CTemporalNoiseStream stream;
  for (const cv::Mat& frame : frames) stream.AddSumFrame(frame);
  for (const cv::Mat& frame : frames) stream.AddDeviationFrame(frame);
  return stream.StandardDeviation();
}
