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

bool MedianFunction_16U::StepsValid() const {
  if (dstData_ == nullptr || srcData_ == nullptr) return false;
  const auto rowBytes = 2u * static_cast<unsigned>(width_);
  return rowBytes <= dstStep_ && rowBytes <= srcStep_;
}

namespace {

// The disc's membership test for one sample offset.
bool InDisc(int dx, int dy, int radius) {
  const double ddx = dx;
  const double ddy = dy;
  return std::sqrt(ddx * ddx + ddy * ddy) - 0.5 <= radius;
}

}  // namespace

std::vector<int> MedianFunction_16U::DiscHalfWidths(int radius) {
  std::vector<int> halfWidths(static_cast<std::size_t>(2 * radius + 1));
  for (int dy = -radius; dy <= radius; ++dy) {
    // The test is monotonic in |dx|, so each disc row is one run of columns; its end is estimated
    // from the circle and then settled by the test itself, so that large radii cost O(radius).
    const double reach = radius + 0.5;
    const double left = reach * reach - static_cast<double>(dy) * dy;
    int dx =
        left > 0.0 ? static_cast<int>(std::min<double>(radius, std::floor(std::sqrt(left)))) : 0;
    while (dx > 0 && !InDisc(dx, dy, radius)) --dx;
    while (dx < radius && InDisc(dx + 1, dy, radius)) ++dx;
    halfWidths[static_cast<std::size_t>(dy + radius)] = dx;
  }
  return halfWidths;
}

int MedianFunction_16U::BoundedRadius(int radius, int width, int height) {
  if (radius <= 1 || width < 1 || height < 1) return radius;
  // Every offset within the image is at most this far from the centre, so a disc of this radius
  // already holds the whole image around every pixel, as does any larger one.
  const double diagonal =
      std::hypot(static_cast<double>(width - 1), static_cast<double>(height - 1));
  const int covering = std::max(1, static_cast<int>(std::ceil(diagonal)));
  return std::min(radius, covering);
}

std::size_t MedianFunction_16U::ScratchSize(int radius, int width, int height) {
  const long long diameter = 2LL * radius + 1;
  return static_cast<std::size_t>(std::min<long long>(diameter, std::max(height, 0))) *
         static_cast<std::size_t>(std::min<long long>(diameter, std::max(width, 0)));
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
  if (count < 1 || samples == nullptr) {
    cv::error(cv::Error::StsBadArg, "the median needs at least one sample",
              "MedianFunction_16U::SelectMedian", __FILE__, __LINE__);
  }
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
  // Full discs hold an odd count, so the sliding body never needs a scratch buffer here.
  SlidingMedians(y, first, last, halfWidths, hist, nullptr, out);
}

void MedianFunction_16U::SlidingMedians(int y, int first, int last, const int* halfWidths,
                                        DiscHistogram& hist, unsigned short* scratch,
                                        unsigned short* out) const {
  // The histogram holds exactly the disc cut to the image: rows above or below the image are
  // absent, and at the left and right edges only the in-image part of each row is counted. An odd
  // count's result is the true median, which any exact method gives, so the histogram answers it;
  // an even count's result depends on the selection's order and is gathered and selected
  // (GatheredMedianAt).
  const int dyFirst = std::max(-radius_, -y);
  const int dyLast = std::min(radius_, height_ - 1 - y);
  const int rowCount = dyLast - dyFirst + 1;
  const int* widths = halfWidths + (dyFirst + radius_);
  const std::ptrdiff_t stride = srcStep_ / sizeof(unsigned short);
  const auto* top =
      reinterpret_cast<const unsigned short*>(srcData_ + (y + dyFirst) * std::size_t{srcStep_});
  constexpr int kLanes = DiscHistogram::kLanes;

  // Offsets, from the top row at the current column, of each disc row's leftmost member and of
  // the sample just right of its rightmost member; an unclipped step removes the first and adds
  // the second.
  std::vector<std::ptrdiff_t> leftOut(static_cast<std::size_t>(rowCount));
  std::vector<std::ptrdiff_t> rightIn(static_cast<std::size_t>(rowCount));
  int count = 0;
  for (int i = 0; i < rowCount; ++i) {
    leftOut[i] = i * stride - widths[i];
    rightIn[i] = i * stride + widths[i] + 1;
    const unsigned short* row = top + i * stride;
    const int x0 = std::max(first - widths[i], 0);
    const int x1 = std::min(first + widths[i], width_ - 1);
    for (int xx = x0; xx <= x1; ++xx) hist.Add(row[xx], i % kLanes);
    count += x1 - x0 + 1;
  }
  auto medianAt = [&](int x) {
    return count % 2 == 1 ? hist.Rank(count / 2) : GatheredMedianAt(x, y, halfWidths, scratch);
  };
  // Stepping right from x removes column x - halfWidth and adds column x + 1 + halfWidth of each
  // disc row, each only where it lies inside the image.
  auto clippedStep = [&](int x) {
    for (int i = 0; i < rowCount; ++i) {
      const unsigned short* row = top + i * stride;
      if (x - widths[i] >= 0) {
        hist.Remove(row[x - widths[i]], i % kLanes);
        --count;
      }
      if (x + 1 + widths[i] < width_) {
        hist.Add(row[x + 1 + widths[i]], i % kLanes);
        ++count;
      }
    }
  };
  // Steps from x in [freeFirst, freeEnd) clip nothing (x >= radius, x + 1 + radius < width).
  const int freeFirst = std::min(std::max(first, radius_), last);
  const int freeEnd = std::max(freeFirst, std::min(last, width_ - 1 - radius_));
  out[0] = medianAt(first);
  int x = first;
  for (; x < freeFirst; ++x) {
    clippedStep(x);
    out[x + 1 - first] = medianAt(x + 1);
  }
  // Unclipped steps keep the count, so its parity is settled for the whole run.
  auto freeStep = [&](int x) {
    const unsigned short* column = top + x;
    // Whole groups of kLanes rows first, so that each row's lane is a constant.
    int i = 0;
    for (; i + kLanes <= rowCount; i += kLanes) {
      for (int lane = 0; lane < kLanes; ++lane) {
        hist.Replace(column[leftOut[i + lane]], column[rightIn[i + lane]], lane);
      }
    }
    for (; i < rowCount; ++i) hist.Replace(column[leftOut[i]], column[rightIn[i]], i % kLanes);
  };
  if (count % 2 == 1) {
    const int middle = count / 2;
    for (; x < freeEnd; ++x) {
      freeStep(x);
      out[x + 1 - first] = hist.Rank(middle);
    }
  } else {
    for (; x < freeEnd; ++x) {
      freeStep(x);
      out[x + 1 - first] = GatheredMedianAt(x + 1, y, halfWidths, scratch);
    }
  }
  for (; x < last; ++x) {
    clippedStep(x);
    out[x + 1 - first] = medianAt(x + 1);
  }
  for (int i = 0; i < rowCount; ++i) {
    const unsigned short* row = top + i * stride;
    const int x0 = std::max(last - widths[i], 0);
    const int x1 = std::min(last + widths[i], width_ - 1);
    for (int xx = x0; xx <= x1; ++xx) hist.Remove(row[xx], i % kLanes);
  }
}

void MedianFunction_16U::operator()(const cv::Range& rows) const {
  if (!StepsValid()) return;
  const int begin = std::max(rows.start, 0);
  const int end = std::min(rows.end, height_);
  if (begin >= end) return;
  std::vector<unsigned short> scratch(ScratchSize(radius_, width_, height_), 0);
  const std::vector<int> halfWidths = DiscHalfWidths(radius_);
  DiscHistogram hist;
  for (int y = begin; y < end; ++y) {
    auto* out = reinterpret_cast<unsigned short*>(dstData_ + y * std::size_t{dstStep_});
    SlidingMedians(y, 0, width_ - 1, halfWidths.data(), hist, scratch.data(), out);
  }
}
