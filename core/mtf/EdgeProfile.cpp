#include "mtf/EdgeProfile.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <thread>

namespace {

constexpr const char* kBuildName = "BuildEdgeProfile";

// Most bins one profile may span: far beyond any useful oversampling (a 10 000-column region at
// 64 bins per pixel needs 640 000), and small enough that the float layout converts to int
// exactly and the per-thread accumulators stay within memory.
constexpr double kMaxBins = 16777216.0;

// Geometry of one run, computed once before any pixel is touched.
struct ProfileLayout {
  int width = 0;      // bins kept in the ESF
  int extra = 0;      // |projection offset of the last row|
  int bins = 0;       // extra + width
  int binOffset = 0;  // 0 or negative
};

ProfileLayout LayoutOf(int rows, int cols, float slope, float oversampling) {
  ProfileLayout layout;
  layout.width = static_cast<int>(static_cast<float>(cols) * oversampling);
  // std::round on float rounds half away from zero.
  const float off = std::round((0.0f - static_cast<float>(rows - 1) * slope) * oversampling);
  layout.extra = static_cast<int>(std::fabs(off));
  layout.bins = layout.extra + layout.width;
  layout.binOffset = off < 1.0f ? static_cast<int>(off) : 0;
  return layout;
}

// An oversampling or slope that is not finite, a negative oversampling or a span beyond kMaxBins
// would make the layout's float-to-int conversions undefined.
void CheckLayout(int rows, int cols, float slope, float oversampling) {
  const double width = static_cast<double>(cols) * oversampling;
  const double extra = std::fabs(static_cast<double>(rows - 1) * slope * oversampling);
  if (!(width >= 0.0 && extra >= 0.0 && width + extra <= kMaxBins)) {
    cv::error(cv::Error::StsOutOfRange, "profile bins out of range", kBuildName, __FILE__,
              __LINE__);
  }
}

void CheckRegion(const cv::Mat& region) {
  if (region.empty()) {
    cv::error(cv::Error::StsBadArg, "empty region", kBuildName, __FILE__, __LINE__);
  }
  if (region.channels() != 1) {
    cv::error(cv::Error::StsUnsupportedFormat, "region must have one channel", kBuildName, __FILE__,
              __LINE__);
  }
}

// Sums and counts of one worker.
struct BinAccumulator {
  explicit BinAccumulator(int bins) : sums(bins, 0.0), counts(bins, 0.0) {}
  std::vector<double> sums;
  std::vector<double> counts;
};

// Projects rows [rowBegin, rowEnd) of the region into acc. One ceil and one bounds test per pixel.
template <class T>
void ProjectRows_T(const cv::Mat& region, int rowBegin, int rowEnd, float slope, float oversampling,
                   const ProfileLayout& layout, BinAccumulator& acc) {
  const int cols = region.cols;
  const float binOffset = static_cast<float>(layout.binOffset);
  double* sums = acc.sums.data();
  double* counts = acc.counts.data();
  for (int r = rowBegin; r < rowEnd; ++r) {
    const T* row = region.ptr<T>(r);
    const float rowShift = static_cast<float>(r) * slope;
    for (int c = 0; c < cols; ++c) {
      const float position = std::ceil((static_cast<float>(c) - rowShift) * oversampling);
      const int bin = static_cast<int>(position - binOffset);
      if (bin >= 0 && bin < layout.bins) {
        counts[bin] += 1.0;
        sums[bin] += static_cast<double>(row[c]);
      }
    }
  }
}

using ProjectFn = void (*)(const cv::Mat&, int, int, float, float, const ProfileLayout&,
                           BinAccumulator&);

ProjectFn ProjectFunctionFor(int depth) {
  switch (depth) {
    case CV_8U:
      return ProjectRows_T<std::uint8_t>;
    case CV_8S:
      return ProjectRows_T<std::int8_t>;
    case CV_16U:
      return ProjectRows_T<std::uint16_t>;
    case CV_16S:
      return ProjectRows_T<std::int16_t>;
    case CV_32S:
      return ProjectRows_T<std::int32_t>;
    case CV_32F:
      return ProjectRows_T<float>;
    case CV_64F:
      return ProjectRows_T<double>;
    default:
      cv::error(cv::Error::StsUnsupportedFormat, "unsupported region depth", kBuildName, __FILE__,
                __LINE__);
  }
  return nullptr;
}

// Averages the merged bins and crops the ESF out of them.
std::vector<double> AverageAndCrop(const BinAccumulator& acc, const ProfileLayout& layout) {
  std::vector<double> averaged(layout.bins, 0.0);
  for (int i = 0; i < layout.bins; ++i) {
    if (acc.counts[i] != 0.0) averaged[i] = acc.sums[i] / acc.counts[i];
  }
  const int skip = static_cast<int>(std::round(layout.extra * 0.5));
  const int end = std::min(skip + layout.width, layout.bins);
  if (skip >= end) return {};
  return std::vector<double>(averaged.begin() + skip, averaged.begin() + end);
}

}  // namespace

std::vector<double> BuildEdgeProfile(EdgeProfiler& profiler, const cv::Mat& region, float slope) {
  return BuildEdgeProfile(profiler, region, slope, cv::Range(0, 0));
}

std::vector<double> BuildEdgeProfile(EdgeProfiler& profiler, const cv::Mat& region, float slope,
                                     const cv::Range& excludedRows) {
  CheckRegion(region);
  const ProjectFn project = ProjectFunctionFor(region.depth());
  const float oversampling = profiler.oversampling;
  CheckLayout(region.rows, region.cols, slope, oversampling);
  const ProfileLayout layout = LayoutOf(region.rows, region.cols, slope, oversampling);
  profiler.binOffset = layout.binOffset;

  const int threads = profiler.threadCount < 1 ? 1 : profiler.threadCount;
  const int chunk = region.rows / threads;
  std::vector<BinAccumulator> accumulators(threads, BinAccumulator(layout.bins));
  std::vector<std::thread> workers;
  workers.reserve(threads);
  for (int t = 0; t < threads; ++t) {
    const int begin = t * chunk;
    const int end = t == threads - 1 ? region.rows : begin + chunk;
    BinAccumulator& acc = accumulators[t];
    // The chunk without the excluded rows: the rows before them, then the rows after them.
    const int skipBegin = std::min(std::max(excludedRows.start, begin), end);
    const int skipEnd = std::max(std::min(excludedRows.end, end), skipBegin);
    workers.emplace_back(
        [&region, &layout, &acc, project, begin, end, skipBegin, skipEnd, slope, oversampling]() {
          project(region, begin, skipBegin, slope, oversampling, layout, acc);
          project(region, skipEnd, end, slope, oversampling, layout, acc);
        });
  }
  for (std::thread& worker : workers) worker.join();

  BinAccumulator& merged = accumulators[0];
  for (int t = 1; t < threads; ++t) {
    for (int i = 0; i < layout.bins; ++i) {
      merged.sums[i] += accumulators[t].sums[i];
      merged.counts[i] += accumulators[t].counts[i];
    }
  }
  std::vector<double> esf = AverageAndCrop(merged, layout);
  profiler.esf = KProfile<double>(esf, 0.0, 1.0);
  return esf;
}
