#include "FilterCosmicRay.h"

#include <algorithm>
#include <limits>
#include <memory>
#include <opencv2/imgproc.hpp>
#include <vector>

#include "MedianFunction16U.h"

namespace {
// Errors carry this source name and the historical line numbers, which callers and tests match.
constexpr const char* kErrorFile = "OmbrixProcessing/FilterCosmicRay";
constexpr const char* kMedianBlurName = "CFilterCosmicRay::MedianBlur";
constexpr int kBadArgLine = 90;
constexpr int kNotImplementedLine = 106;

// A mask with data and at least one element is a mask, whatever its dimensions: a 3-D matrix
// (whose rows and cols read -1) must reach the size check and fail there, not be ignored.
bool MaskIsEmpty(const cv::Mat& mask) { return mask.data == nullptr || mask.total() == 0; }

// The cosmic-ray filter from radius 3 on 16-bit single-channel data, computing the median only
// where a pixel can be an outlier. Inside the image a disc holds an odd count, so its median is
// one of its samples and not below their minimum: a pixel no more than threshold above the
// disc's minimum cannot exceed its median by more than threshold. Pixels whose disc is cut by the
// edge are pruned the same way where the even-count rule cannot take the result below the
// minimum. dst starts as a copy of src; only replaced pixels are written.
class OutlierFunction_16U : public cv::ParallelLoopBody {
 public:
  OutlierFunction_16U(const cv::Mat& src, cv::Mat& dst, const cv::Mat& mask, cv::Mat* replaced,
                      int radius, int threshold)
      : src_(src),
        dst_(dst),
        mask_(mask),
        replaced_(replaced),
        radius_(MedianFunction_16U::BoundedRadius(radius, src.cols, src.rows)),
        threshold_(threshold),
        median_(dst.data, src.data, static_cast<std::uint32_t>(dst.step[0]),
                static_cast<std::uint32_t>(src.step[0]), src.cols, src.rows, radius, 16) {}

  void operator()(const cv::Range& rows) const override {
    const int r = radius_;
    const int width = src_.cols;
    const int height = src_.rows;
    const int diameter = 2 * r + 1;
    const std::vector<int> halfWidths = MedianFunction_16U::DiscHalfWidths(r);
    std::vector<unsigned short> scratch(MedianFunction_16U::ScratchSize(r, width, height), 0);
    std::unique_ptr<DiscHistogram> hist;

    // Rows and columns whose disc lies wholly inside the image.
    const int innerFirst = r;
    const int innerLast = width - 1 - r;
    const int innerWidth = innerLast - innerFirst + 1;
    const int innerBegin = std::max(rows.start, r);
    const int innerEnd = innerWidth > 0 ? std::min(rows.end, height - r) : innerBegin;

    // At the edge an odd count's median is one of the samples; an even count gives a sample with
    // its top bit cleared, which stays at or above the minimum when no sample reaches 32768.
    // Where the median cannot fall below the minimum, a pixel no more than threshold above the
    // cut disc's minimum is no outlier.
    auto exactAt = [&](int x, int y) {
      if (!Selected(x, y)) return;
      const int count = median_.GatherDisc(x, y, halfWidths.data(), scratch.data());
      const auto range = std::minmax_element(scratch.data(), scratch.data() + count);
      const bool medianAtLeastMin = count % 2 == 1 || *range.second < 0x8000;
      const int value = src_.ptr<unsigned short>(y)[x];
      if (medianAtLeastMin && value - static_cast<int>(*range.first) <= threshold_) return;
      Replace(x, y, MedianFunction_16U::SelectMedian(scratch.data(), count));
    };
    for (int y = rows.start; y < rows.end; ++y) {
      if (y >= innerBegin && y < innerEnd) {
        for (int x = 0; x < innerFirst; ++x) exactAt(x, y);
        for (int x = innerLast + 1; x < width; ++x) exactAt(x, y);
      } else {
        for (int x = 0; x < width; ++x) exactAt(x, y);
      }
    }
    if (innerBegin >= innerEnd) return;

    // Disc minimum of the inner rows: each source row is reduced once per distinct half-width
    // (runs of growing width) and folded into the 2r + 1 output rows whose disc it crosses.
    std::vector<std::vector<int>> rowsOfHalfWidth(static_cast<std::size_t>(r + 1));
    for (int dy = -r; dy <= r; ++dy) rowsOfHalfWidth[halfWidths[dy + r]].push_back(dy);
    const int maxHalfWidth = r;
    std::vector<unsigned short> runMin(static_cast<std::size_t>(innerWidth));
    std::vector<unsigned short> ring(static_cast<std::size_t>(diameter) * innerWidth);
    auto ringRow = [&](int y) {
      return ring.data() + static_cast<std::size_t>(y % diameter) * innerWidth;
    };
    std::vector<int> candidates;
    std::vector<unsigned short> medians(static_cast<std::size_t>(innerWidth));

    for (int ys = innerBegin - r; ys < innerEnd + r; ++ys) {
      if (ys + r >= innerBegin && ys + r < innerEnd) {
        std::fill_n(ringRow(ys + r), innerWidth, std::numeric_limits<unsigned short>::max());
      }
      const unsigned short* row = src_.ptr<unsigned short>(ys) + innerFirst;
      unsigned short* run = runMin.data();
      std::copy_n(row, innerWidth, run);
      for (int h = 0; h <= maxHalfWidth; ++h) {
        if (h > 0) {
          const unsigned short* lo = row - h;
          const unsigned short* hi = row + h;
          for (int i = 0; i < innerWidth; ++i) run[i] = std::min(run[i], std::min(lo[i], hi[i]));
        }
        for (int dy : rowsOfHalfWidth[h]) {
          const int y = ys - dy;
          if (y < innerBegin || y >= innerEnd) continue;
          unsigned short* acc = ringRow(y);
          for (int i = 0; i < innerWidth; ++i) acc[i] = std::min(acc[i], run[i]);
        }
      }
      const int done = ys - r;  // the last source row of its disc has been folded in
      if (done >= innerBegin && done < innerEnd) {
        InnerRow(done, ringRow(done), halfWidths.data(), candidates, medians, hist);
      }
    }
  }

 private:
  bool Selected(int x, int y) const { return mask_.empty() || mask_.ptr<unsigned char>(y)[x] != 0; }

  void Replace(int x, int y, unsigned short median) const {
    const int value = src_.ptr<unsigned short>(y)[x];
    const int diff = std::clamp(value - static_cast<int>(median), -32768, 32767);
    if (diff > threshold_) {
      dst_.ptr<unsigned short>(y)[x] = median;
      if (replaced_ != nullptr) replaced_->ptr<unsigned char>(y)[x] = 255;
    }
  }

  void InnerRow(int y, const unsigned short* discMin, const int* halfWidths,
                std::vector<int>& candidates, std::vector<unsigned short>& medians,
                std::unique_ptr<DiscHistogram>& hist) const {
    const int r = radius_;
    const int innerFirst = r;
    const int innerWidth = src_.cols - 2 * r;
    const unsigned short* row = src_.ptr<unsigned short>(y) + innerFirst;
    candidates.clear();
    for (int i = 0; i < innerWidth; ++i) {
      if (static_cast<int>(row[i]) - static_cast<int>(discMin[i]) > threshold_ &&
          Selected(innerFirst + i, y)) {
        candidates.push_back(innerFirst + i);
      }
    }
    if (candidates.empty()) return;
    const int diameter = 2 * r + 1;
    long discCount = 0;
    for (int i = 0; i < diameter; ++i) discCount += 2 * halfWidths[i] + 1;
    // A gathered median costs about 1.5 times as much per disc sample as a sliding step per disc
    // row (measured at radius 10): slide along the whole row once that is cheaper.
    if (3L * static_cast<long>(candidates.size()) * discCount > 2L * innerWidth * diameter) {
      if (!hist) hist = std::make_unique<DiscHistogram>();
      median_.InteriorMedians(y, innerFirst, innerFirst + innerWidth - 1, halfWidths, *hist,
                              medians.data());
      for (int x : candidates) Replace(x, y, medians[x - innerFirst]);
    } else {
      std::vector<unsigned short> scratch(static_cast<std::size_t>(discCount));
      for (int x : candidates) {
        Replace(x, y, median_.GatheredMedianAt(x, y, halfWidths, scratch.data()));
      }
    }
  }

  const cv::Mat& src_;
  cv::Mat& dst_;
  const cv::Mat& mask_;
  cv::Mat* replaced_;
  int radius_;
  int threshold_;
  MedianFunction_16U median_;
};

}  // namespace

void CFilterCosmicRay::MedianBlur(const cv::Mat& src, cv::Mat& dst, int radius) {
  if (src.data == nullptr || src.total() == 0 || src.dims == 0 || radius < 1) {
    cv::error(cv::Error::StsBadArg, "wrongs parameters", kMedianBlurName, kErrorFile, kBadArgLine);
  }
  if (dst.rows != src.rows || dst.cols != src.cols || dst.type() != src.type()) {
    dst = cv::Mat(src.rows, src.cols, src.type());
  }
  // Reported after the reallocation above, so dst has the source's size and type even then.
  if (src.type() != CV_16UC1) {
    cv::error(cv::Error::StsNotImplemented, "Not impl", kMedianBlurName, kErrorFile,
              kNotImplementedLine);
  }
  const MedianFunction_16U body(dst.data, src.data, static_cast<std::uint32_t>(dst.step[0]),
                                static_cast<std::uint32_t>(src.step[0]), src.cols, src.rows, radius,
                                16);
  cv::parallel_for_(cv::Range(0, src.rows), body, static_cast<double>(cv::getNumThreads() - 1));
}

void CFilterCosmicRay::ProcessReference(const cv::Mat& src, cv::Mat& dst,
                                        const cv::Mat& mask) const {
  RunReference(src, dst, mask, nullptr);
}

void CFilterCosmicRay::RunReference(const cv::Mat& src, cv::Mat& dst, const cv::Mat& mask,
                                    cv::Mat* replaced) const {
  // Square windows for the two smallest radii and the disc beyond are a deliberate mix.
  cv::Mat median;
  if (radius_ == 1) {
    cv::medianBlur(src, median, 3);
  } else if (radius_ == 2) {
    cv::medianBlur(src, median, 5);
  } else {
    MedianBlur(src, median, radius_);
  }

  cv::Mat diff;
  cv::subtract(src, median, diff, cv::noArray(), CV_16S);
  cv::Mat outliers = diff > static_cast<double>(threshold_);
  if (!MaskIsEmpty(mask)) {
    cv::bitwise_and(mask, outliers, outliers);
  }

  cv::Mat copy;
  src.copyTo(copy);
  dst = copy;
  median.copyTo(dst, outliers);
  if (replaced != nullptr) *replaced = outliers;
}

void CFilterCosmicRay::Process(const cv::Mat& src, cv::Mat& dst, const cv::Mat& mask) const {
  Run(src, dst, mask, nullptr);
}

void CFilterCosmicRay::Process(const cv::Mat& src, cv::Mat& dst, const cv::Mat& mask,
                               cv::Mat& replaced) const {
  cv::Mat map;
  Run(src, dst, mask, &map);
  replaced = map;
}

void CFilterCosmicRay::Run(const cv::Mat& src, cv::Mat& dst, const cv::Mat& mask,
                           cv::Mat* replaced) const {
  // Everything the pruned path does not cover (the square radii, other types, odd masks, a
  // threshold so low that every pixel is an outlier) goes the straightforward way, which also
  // raises the errors.
  const bool maskFits = MaskIsEmpty(mask) || (mask.dims == 2 && mask.type() == CV_8UC1 &&
                                              mask.rows == src.rows && mask.cols == src.cols);
  const bool pruned = radius_ >= 3 && src.data != nullptr && src.dims == 2 && !src.empty() &&
                      src.type() == CV_16UC1 && maskFits && threshold_ >= -32768;
  if (!pruned) {
    RunReference(src, dst, mask, replaced);
    return;
  }
  // Local headers keep the inputs alive and unchanged should dst be one of them.
  const cv::Mat source = src;
  const cv::Mat selection = MaskIsEmpty(mask) ? cv::Mat() : mask;
  cv::Mat out;
  source.copyTo(out);
  if (replaced != nullptr) *replaced = cv::Mat::zeros(source.rows, source.cols, CV_8UC1);
  const OutlierFunction_16U body(source, out, selection, replaced, radius_, threshold_);
  cv::parallel_for_(cv::Range(0, source.rows), body, std::max(cv::getNumThreads(), 1));
  dst = out;
}
