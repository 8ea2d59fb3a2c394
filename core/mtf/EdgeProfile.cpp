#include "mtf/EdgeProfile.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <thread>

namespace {

constexpr const char* kBuildName = "BuildEdgeProfile";
// Largest profile (bins before cropping) and largest count of per-thread bins: a slope or an
// oversampling that asks for more is refused rather than allocated.
constexpr double kMaxBins = 16777216.0;        // 2^24
constexpr double kMaxThreadBins = 67108864.0;  // 2^26

// Geometry of one run, computed once before any pixel is touched.
struct ProfileLayout {
  int width = 0;      // bins kept in the ESF
  int extra = 0;      // |projection offset of the last row|
  int bins = 0;       // extra + width
  int binOffset = 0;  // 0 or negative
};

ProfileLayout LayoutOf(int rows, int cols, float slope, float oversampling) {
  if (!std::isfinite(slope)) {
    cv::error(cv::Error::StsBadArg, "slope must be finite", kBuildName, __FILE__, __LINE__);
  }
  if (!(oversampling > 0.0f) || !std::isfinite(oversampling)) {
    cv::error(cv::Error::StsBadArg, "oversampling must be finite and positive", kBuildName,
              __FILE__, __LINE__);
  }
  // The same float expressions as below, checked before any of them is converted to int.
  const float width = static_cast<float>(cols) * oversampling;
  const float offset = std::round((0.0f - static_cast<float>(rows - 1) * slope) * oversampling);
  if (!(static_cast<double>(width) + std::fabs(static_cast<double>(offset)) <= kMaxBins)) {
    cv::error(cv::Error::StsOutOfRange, "the profile would exceed 16777216 bins", kBuildName,
              __FILE__, __LINE__);
  }
  ProfileLayout layout;
  layout.width = static_cast<int>(static_cast<float>(cols) * oversampling);
  // std::round on float rounds half away from zero.
  const float off = std::round((0.0f - static_cast<float>(rows - 1) * slope) * oversampling);
  layout.extra = static_cast<int>(std::fabs(off));
  layout.bins = layout.extra + layout.width;
  layout.binOffset = off < 1.0f ? static_cast<int>(off) : 0;
  return layout;
}

void CheckRegion(const cv::Mat& region) {
  if (region.empty()) {
    cv::error(cv::Error::StsBadArg, "empty region", kBuildName, __FILE__, __LINE__);
  }
  if (region.dims != 2) {
    cv::error(cv::Error::StsBadArg, "region must be 2-D", kBuildName, __FILE__, __LINE__);
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
  const ProfileLayout layout = LayoutOf(region.rows, region.cols, slope, oversampling);

  // More threads than rows leave every row to the last thread, which is exactly one thread's
  // result (the empty accumulators add zeros), so it is run as one.
  const int threads =
      profiler.threadCount < 1 || profiler.threadCount > region.rows ? 1 : profiler.threadCount;
  if (static_cast<double>(threads) * layout.bins > kMaxThreadBins) {
    cv::error(cv::Error::StsOutOfRange, "too many threads for the size of the profile", kBuildName,
              __FILE__, __LINE__);
  }
  profiler.binOffset = layout.binOffset;
  const int chunk = region.rows / threads;
  std::vector<BinAccumulator> accumulators(threads, BinAccumulator(layout.bins));
  std::vector<std::thread> workers;
  workers.reserve(threads);
  // A thread that cannot be started ends the run with its std::system_error, after the threads
  // already running have been joined (destroying a joinable std::thread would terminate).
  struct JoinAll {
    std::vector<std::thread>& threads;
    ~JoinAll() {
      for (std::thread& t : threads) {
        if (t.joinable()) t.join();
      }
    }
  } joinAll{workers};
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
