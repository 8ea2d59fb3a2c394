#include "CosmicRayCleaner.h"

#include <cstdint>
#include <opencv2/imgproc.hpp>
#include <utility>
#include <vector>

#include "RobustStatistics.h"
#include "filters/FilterCosmicRay.h"

namespace {

// The frame shifted so that the background sits at kShift, clipped at kShiftedCeiling, in 16 bits.
cv::Mat Shifted(const cv::Mat& frame32f, double background) {
  cv::Mat shifted;
  cv::min(frame32f, background + CCosmicRayCleaner::kShiftedCeiling - CCosmicRayCleaner::kShift,
          shifted);
  shifted.convertTo(shifted, CV_16U, 1.0, CCosmicRayCleaner::kShift - background);
  return shifted;
}

}  // namespace

int CCosmicRayCleaner::Clean(const cv::Mat& frame32f, double background, int radius, int threshold,
                             cv::Mat& cleaned) {
  CV_Assert(frame32f.type() == CV_32FC1 && !frame32f.empty());
  cleaned = frame32f.clone();
  if (radius <= 0) return 0;
  int replacedTotal = 0;
  for (int pass = 0; pass < kMaxPasses; ++pass) {
    const Medians medians = ComputeMedians(cleaned, background, radius);
    const cv::Mat seeds = FindSeeds(cleaned, medians, background, threshold);
    if (cv::countNonZero(seeds) == 0) break;
    const cv::Mat hits = GrowHits(seeds, medians, threshold);
    replacedTotal += Refill(cleaned, hits, medians, background, radius);
  }
  return replacedTotal;
}

CCosmicRayCleaner::Medians CCosmicRayCleaner::ComputeMedians(const cv::Mat& frame32f,
                                                             double background, int radius) {
  Medians m;
  m.shifted = Shifted(frame32f, background);
  CFilterCosmicRay::MedianBlur(m.shifted, m.discMedian, radius);
  cv::medianBlur(frame32f, m.median3, 3);
  m.shiftedMedian3 = Shifted(m.median3, background);
  CFilterCosmicRay::MedianBlur(m.shiftedMedian3, m.coarse, radius);
  return m;
}

cv::Mat CCosmicRayCleaner::FindSeeds(const cv::Mat& frame32f, const Medians& medians,
                                     double background, int threshold) {
  const int rows = frame32f.rows;
  const int cols = frame32f.cols;
  cv::Mat seeds = cv::Mat::zeros(rows, cols, CV_8U);
  for (int y = 0; y < rows; ++y) {
    const float* c = frame32f.ptr<float>(y);
    const float* m3 = medians.median3.ptr<float>(y);
    const std::uint16_t* sm3 = medians.shiftedMedian3.ptr<std::uint16_t>(y);
    const std::uint16_t* s = medians.shifted.ptr<std::uint16_t>(y);
    const std::uint16_t* d = medians.discMedian.ptr<std::uint16_t>(y);
    const std::uint16_t* k = medians.coarse.ptr<std::uint16_t>(y);
    for (int x = 0; x < cols; ++x) {
      if (static_cast<int>(s[x]) - static_cast<int>(d[x]) <= threshold) continue;
      const double fineStructure = static_cast<double>(sm3[x]) - static_cast<double>(k[x]);
      const double standOut = c[x] - m3[x];
      if (standOut <= kObjectLimit * fineStructure) continue;
      // Either a peak of its own, or so thin that the 3x3 median removes most of it: the end
      // of a track, whose axis samples lean on each other and are no local maxima.
      bool seed = standOut > kThinFraction * (c[x] - background);
      if (!seed) {
        seed = true;
        for (int dy = -1; dy <= 1; ++dy) {
          const int ny = y + dy;
          if (ny < 0 || ny >= rows) continue;
          const float* n = frame32f.ptr<float>(ny);
          for (int dx = -1; dx <= 1; ++dx) {
            const int nx = x + dx;
            if (nx >= 0 && nx < cols && n[nx] > c[x]) seed = false;
          }
        }
      }
      if (seed) seeds.at<uchar>(y, x) = 255;
    }
  }
  return seeds;
}

cv::Mat CCosmicRayCleaner::GrowHits(const cv::Mat& seeds, const Medians& medians, int threshold) {
  // A hit spreads along its track: the outliers' 8-connected components that hold a seed.
  cv::Mat excess;
  cv::subtract(medians.shifted, medians.discMedian, excess, cv::noArray(), CV_32S);
  const cv::Mat outliers = excess > threshold;
  cv::Mat labels;
  const int count = cv::connectedComponents(outliers, labels, 8, CV_32S, cv::CCL_WU);
  std::vector<uchar> seeded(static_cast<std::size_t>(count), 0);
  for (int y = 0; y < seeds.rows; ++y) {
    const uchar* s = seeds.ptr<uchar>(y);
    const int* l = labels.ptr<int>(y);
    for (int x = 0; x < seeds.cols; ++x) {
      if (s[x] != 0) seeded[static_cast<std::size_t>(l[x])] = 255;
    }
  }
  cv::Mat hits(seeds.size(), CV_8U);
  for (int y = 0; y < seeds.rows; ++y) {
    const int* l = labels.ptr<int>(y);
    uchar* h = hits.ptr<uchar>(y);
    for (int x = 0; x < seeds.cols; ++x)
      h[x] = l[x] == 0 ? 0 : seeded[static_cast<std::size_t>(l[x])];
  }
  return hits;
}

int CCosmicRayCleaner::Refill(cv::Mat& frame32f, const cv::Mat& hits, const Medians& medians,
                              double background, int radius) {
  const int rows = frame32f.rows;
  const int cols = frame32f.cols;
  const double reach2 = (radius + 0.5) * (radius + 0.5);
  std::vector<cv::Point> disc;
  for (int dy = -radius; dy <= radius; ++dy) {
    for (int dx = -radius; dx <= radius; ++dx) {
      if (dx * dx + dy * dy <= reach2) disc.emplace_back(dx, dy);
    }
  }
  cv::Mat grown;
  cv::dilate(hits, grown, cv::getStructuringElement(cv::MORPH_RECT, cv::Size(3, 3)));
  // Every replacement reads the frame as it was before this stage.
  std::vector<std::pair<int, float>> replacements;
  std::vector<float> samples;
  for (int y = 0; y < rows; ++y) {
    const uchar* g = grown.ptr<uchar>(y);
    for (int x = 0; x < cols; ++x) {
      if (g[x] == 0) continue;
      samples.clear();
      for (const cv::Point& o : disc) {
        const int sx = x + o.x;
        const int sy = y + o.y;
        if (sx < 0 || sx >= cols || sy < 0 || sy >= rows || grown.at<uchar>(sy, sx) != 0) {
          continue;
        }
        samples.push_back(frame32f.at<float>(sy, sx));
      }
      const float value =
          samples.empty()
              ? static_cast<float>(medians.discMedian.at<std::uint16_t>(y, x) - kShift + background)
              : static_cast<float>(CRobustStatistics::MedianInPlace(samples));
      replacements.emplace_back(y * cols + x, value);
    }
  }
  for (const auto& r : replacements) frame32f.at<float>(r.first / cols, r.first % cols) = r.second;
  return static_cast<int>(replacements.size());
}
