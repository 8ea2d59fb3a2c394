#include "DarkSubtractionReference.h"

namespace oracle {

cv::Mat SubtractDark(const cv::Mat& longDark, const cv::Mat& shortDark, const cv::Mat& raw,
                     float exposure) {
  cv::Mat raw32, d1s, d150s;
  raw.convertTo(raw32, CV_32F);
  shortDark.convertTo(d1s, CV_32F);
  longDark.convertTo(d150s, CV_32F);
  cv::Mat out(raw.rows, raw.cols, CV_32FC(raw.channels()));
  const float weight = (exposure - 1.0f) / (150.0f - 1.0f);
  const int n = raw.cols * raw.channels();
  for (int y = 0; y < raw.rows; ++y) {
    for (int i = 0; i < n; ++i) {
      const float d1 = d1s.ptr<float>(y)[i];
      const float d150 = d150s.ptr<float>(y)[i];
      const float dark = d1 + (d150 - d1) * weight;
      out.ptr<float>(y)[i] = raw32.ptr<float>(y)[i] - dark;
    }
  }
  return out;
}

}  // namespace oracle
