#include "MedianFunction16U.h"

#include <algorithm>
#include <cmath>

#include "Select.h"

unsigned short DiscHistogram::Rank(int k) {
  if (below_ > k) {
    // Walk down; whole coarse bins are skipped from a bin boundary while they lie above rank k.
    while (below_ > k) {
      if ((value_ & 255) == 0) {
        const int bin = (value_ >> 8) - 1;
        const int count = Coarse(bin);
        if (below_ - count > k) {
          below_ -= count;
          value_ -= 256;
          continue;
        }
      }
      --value_;
      below_ -= fine_[value_];
    }
  } else {
    while (below_ + fine_[value_] <= k) {
      if ((value_ & 255) == 0) {
        const int bin = value_ >> 8;
        const int count = Coarse(bin);
        if (below_ + count <= k) {
          below_ += count;
          value_ += 256;
          continue;
        }
      }
      below_ += fine_[value_];
      ++value_;
    }
  }
  return static_cast<unsigned short>(value_);
}

unsigned short MedianFunction_16U::MedianAt(int x, int y, unsigned short* scratch) const {
  const int y0 = std::max(y - radius_, 0);
  const int y1 = std::min(y + radius_, height_ - 1);
  const int x0 = std::max(x - radius_, 0);
  const int x1 = std::min(x + radius_, width_ - 1);
  int n = 0;
  for (int yy = y0; yy <= y1; ++yy) {
    const auto* row =
        reinterpret_cast<const unsigned short*>(srcData_ + yy * std::size_t{srcStep_});
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

bool MedianFunction_16U::StepsValid() const {
  if (dstData_ == nullptr || srcData_ == nullptr) return false;
  const auto rowBytes = 2u * static_cast<unsigned>(width_);
  return rowBytes <= dstStep_ && rowBytes <= srcStep_;
}

void MedianFunction_16U::ReferenceRows(const cv::Range& rows) const {
  if (!StepsValid()) return;
  const int begin = std::max(rows.start, 0);
  const int end = std::min(rows.end, height_);
  std::vector<unsigned short> scratch(static_cast<std::size_t>(2 * radius_ + 1) * (2 * radius_ + 1),
                                      0);
  for (int y = begin; y < end; ++y) {
    auto* out = reinterpret_cast<unsigned short*>(dstData_ + y * std::size_t{dstStep_});
    for (int x = 0; x < width_; ++x) out[x] = MedianAt(x, y, scratch.data());
  }
}

std::vector<int> MedianFunction_16U::DiscHalfWidths(int radius) {
  std::vector<int> halfWidths(static_cast<std::size_t>(2 * radius + 1));
  for (int dy = -radius; dy <= radius; ++dy) {
    // The test is monotonic in |dx|, so each disc row is one run of columns.
    int dx = 0;
    while (dx < radius) {
      const double ddx = dx + 1;
      const double ddy = dy;
      if (!(std::sqrt(ddx * ddx + ddy * ddy) - 0.5 <= radius)) break;
      ++dx;
    }
    halfWidths[static_cast<std::size_t>(dy + radius)] = dx;
  }
  return halfWidths;
}

int MedianFunction_16U::GatherDisc(int x, int y, const int* halfWidths,
                                   unsigned short* scratch) const {
  const int dyFirst = std::max(-radius_, -y);
  const int dyLast = std::min(radius_, height_ - 1 - y);
  int n = 0;
  for (int dy = dyFirst; dy <= dyLast; ++dy) {
    const auto* row =
        reinterpret_cast<const unsigned short*>(srcData_ + (y + dy) * std::size_t{srcStep_});
    const int halfWidth = halfWidths[dy + radius_];
    const int x0 = std::max(x - halfWidth, 0);
    const int x1 = std::min(x + halfWidth, width_ - 1);
    for (int xx = x0; xx <= x1; ++xx) scratch[n++] = row[xx];
  }
  return n;
}

unsigned short MedianFunction_16U::SelectMedian(unsigned short* samples, int count) {
  ombrix::SelectNth(samples, samples + count / 2, samples + count);
  if (count % 2 == 1) return samples[count / 2];
  return static_cast<unsigned short>(samples[count / 2 - 1] & 0x7FFF);
}

unsigned short MedianFunction_16U::GatheredMedianAt(int x, int y, const int* halfWidths,
                                                    unsigned short* scratch) const {
  return SelectMedian(scratch, GatherDisc(x, y, halfWidths, scratch));
}

void MedianFunction_16U::InteriorMedians(int y, int first, int last, const int* halfWidths,
                                         DiscHistogram& hist, unsigned short* out) const {
  const int diameter = 2 * radius_ + 1;
  // Offsets, from the disc's top row at the current column, of each disc row's leftmost member
  // and of the sample just right of its rightmost member; stepping right removes the first and
  // adds the second.
  std::vector<std::ptrdiff_t> leftOut(static_cast<std::size_t>(diameter));
  std::vector<std::ptrdiff_t> rightIn(static_cast<std::size_t>(diameter));
  const std::ptrdiff_t stride = srcStep_ / sizeof(unsigned short);
  const auto* top =
      reinterpret_cast<const unsigned short*>(srcData_ + (y - radius_) * std::size_t{srcStep_});
  int count = 0;
  for (int i = 0; i < diameter; ++i) {
    leftOut[i] = i * stride - halfWidths[i];
    rightIn[i] = i * stride + halfWidths[i] + 1;
    const unsigned short* row = top + i * stride + first;
    for (int dx = -halfWidths[i]; dx <= halfWidths[i]; ++dx) {
      hist.Add(row[dx], i % DiscHistogram::kLanes);
    }
    count += 2 * halfWidths[i] + 1;
  }
  const int middle = count / 2;
  const std::ptrdiff_t* outOffsets = leftOut.data();
  const std::ptrdiff_t* inOffsets = rightIn.data();
  out[0] = hist.Rank(middle);
  for (int x = first; x < last; ++x) {
    const unsigned short* column = top + x;
    for (int i = 0; i < diameter; ++i) {
      hist.Replace(column[outOffsets[i]], column[inOffsets[i]], i % DiscHistogram::kLanes);
    }
    out[x + 1 - first] = hist.Rank(middle);
  }
  for (int i = 0; i < diameter; ++i) {
    const unsigned short* row = top + i * stride + last;
    for (int dx = -halfWidths[i]; dx <= halfWidths[i]; ++dx) {
      hist.Remove(row[dx], i % DiscHistogram::kLanes);
    }
  }
}

void MedianFunction_16U::operator()(const cv::Range& rows) const {
  if (!StepsValid()) return;
  const int begin = std::max(rows.start, 0);
  const int end = std::min(rows.end, height_);
  if (begin >= end) return;
  std::vector<unsigned short> scratch(static_cast<std::size_t>(2 * radius_ + 1) * (2 * radius_ + 1),
                                      0);
  const std::vector<int> halfWidths = DiscHalfWidths(radius_);
  // Columns and rows whose disc lies wholly inside the image.
  const int innerFirst = radius_;
  const int innerLast = width_ - 1 - radius_;
  const bool anyInnerColumn = innerFirst <= innerLast;
  DiscHistogram hist;
  for (int y = begin; y < end; ++y) {
    auto* out = reinterpret_cast<unsigned short*>(dstData_ + y * std::size_t{dstStep_});
    const bool innerRow = anyInnerColumn && y >= radius_ && y <= height_ - 1 - radius_;
    if (!innerRow) {
      for (int x = 0; x < width_; ++x) {
        out[x] = GatheredMedianAt(x, y, halfWidths.data(), scratch.data());
      }
      continue;
    }
    for (int x = 0; x < innerFirst; ++x) {
      out[x] = GatheredMedianAt(x, y, halfWidths.data(), scratch.data());
    }
    InteriorMedians(y, innerFirst, innerLast, halfWidths.data(), hist, out + innerFirst);
    for (int x = innerLast + 1; x < width_; ++x) {
      out[x] = GatheredMedianAt(x, y, halfWidths.data(), scratch.data());
    }
  }
}
