#include "SpotDetector.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <opencv2/imgproc.hpp>

#include "RobustStatistics.h"
#include "filters/FilterCosmicRay.h"
#include "filters/GaussianBlur.h"

namespace {

// Integer samples carry at least their rounding noise, so a perfectly flat frame still gets a
// finite threshold.
const double kQuantizationNoise = 1.0 / std::sqrt(12.0);
// Fine-structure limit (as in L.A.Cosmic): a hit stands out of its 3x3 median by more than twice
// the structure that the 3x3 median itself keeps against its disc median. A spot resolved by the
// optics survives the 3x3 median, so that ratio stays near or below 1 on its samples; a hot pixel
// or a cosmic-ray track does not survive it, so its ratio is large.
constexpr double kObjectLimit = 2.0;
// A seed that is no local maximum must lose more than this fraction of its height above the
// background to its 3x3 median; a spot's flank loses about half, a track's end nearly all.
constexpr double kThinFraction = 0.75;
// Cleaning passes: a faint hit on the flank of a brighter one only stands out once the brighter
// one is gone; the loop ends early as soon as a pass finds nothing.
constexpr int kMaxCleaningPasses = 3;
// The 16-bit disc median sees the frame shifted so that its background sits at 16384 and clipped
// at 32767: where the image edge cuts a disc to an even count, the core's median clears the top
// bit of its result, so no sample may reach 32768. Clipping only touches samples more than 16383
// ADU above the background, which are outliers either way.
constexpr double kShift = 16384.0;
constexpr double kShiftedCeiling = 32767.0;
constexpr double kPi = 3.14159265358979323846;

// Raster-order 8-connected labelling of a binary image: the component met first in a row-major
// scan gets label 1. Fills labels (CV_32S) and the sample indices of every component.
void LabelComponents(const cv::Mat& binary, cv::Mat& labels,
                     std::vector<std::vector<int>>& members) {
  const int rows = binary.rows;
  const int cols = binary.cols;
  labels = cv::Mat::zeros(rows, cols, CV_32S);
  members.clear();
  std::vector<int> stack;
  for (int y = 0; y < rows; ++y) {
    const uchar* b = binary.ptr<uchar>(y);
    for (int x = 0; x < cols; ++x) {
      if (b[x] == 0 || labels.at<int>(y, x) != 0) continue;
      const int label = static_cast<int>(members.size()) + 1;
      members.emplace_back();
      std::vector<int>& pixels = members.back();
      labels.at<int>(y, x) = label;
      stack.assign(1, y * cols + x);
      while (!stack.empty()) {
        const int index = stack.back();
        stack.pop_back();
        pixels.push_back(index);
        const int py = index / cols;
        const int px = index % cols;
        for (int dy = -1; dy <= 1; ++dy) {
          const int ny = py + dy;
          if (ny < 0 || ny >= rows) continue;
          const uchar* nb = binary.ptr<uchar>(ny);
          int* nl = labels.ptr<int>(ny);
          for (int dx = -1; dx <= 1; ++dx) {
            const int nx = px + dx;
            if (nx < 0 || nx >= cols || nb[nx] == 0 || nl[nx] != 0) continue;
            nl[nx] = label;
            stack.push_back(ny * cols + nx);
          }
        }
      }
      std::sort(pixels.begin(), pixels.end());
    }
  }
}

// Outer contour of one component, in image coordinates.
std::vector<cv::Point> OuterContour(const cv::Mat& labels, int label, const cv::Rect& box) {
  cv::Mat local = cv::Mat::zeros(box.height + 2, box.width + 2, CV_8U);
  for (int y = 0; y < box.height; ++y) {
    const int* l = labels.ptr<int>(box.y + y) + box.x;
    uchar* o = local.ptr<uchar>(y + 1) + 1;
    for (int x = 0; x < box.width; ++x) o[x] = l[x] == label ? 255 : 0;
  }
  std::vector<std::vector<cv::Point>> contours;
  cv::findContours(local, contours, cv::RETR_EXTERNAL, cv::CHAIN_APPROX_NONE,
                   cv::Point(box.x - 1, box.y - 1));
  // An 8-connected component has exactly one outer contour.
  return contours.empty() ? std::vector<cv::Point>() : contours.front();
}

}  // namespace

CSpotDetector::CSpotDetector() : parameters_(DefaultParameters(true)) {}

AlgoParameters CSpotDetector::DefaultParameters(bool nominalMode) {
  return AlgoParameters{
      3, 100, 2, 1000, 2, 3.2f, 800, AlgoParameters::PackMarginAndCircularity(5, 70), nominalMode};
}

bool CSpotDetector::Configure(const AlgoParameters& p) {
  const bool valid = p.cosmicRayRadius >= 0 && p.cosmicRayThreshold >= 0 && p.smoothingSigma >= 0 &&
                     p.smoothingSigma <= 50 && p.maxObjectArea > 0 && p.minObjectRadius >= 0 &&
                     std::isfinite(p.thresholdFactor) && p.thresholdFactor > 0.0f &&
                     p.minControlPeak >= 0 && p.MinCircularityPercent() <= 100;
  if (valid) parameters_ = p;
  return valid;
}

bool CSpotDetector::SetMode(int mode) {
  if (mode != kModeSegmentation && mode != kModeValidated) return false;
  mode_ = mode;
  return true;
}

void CSpotDetector::RobustStatistics(const cv::Mat& frame32f, double& median, double& noise) {
  CV_Assert(frame32f.type() == CV_32FC1 && !frame32f.empty());
  std::vector<float> values;
  values.reserve(frame32f.total());
  for (int y = 0; y < frame32f.rows; ++y) {
    const float* f = frame32f.ptr<float>(y);
    values.insert(values.end(), f, f + frame32f.cols);
  }
  CRobustStatistics::MedianAndNoise(values, median, noise);
}

int CSpotDetector::RemoveCosmicRays(const cv::Mat& frame32f, double background, int radius,
                                    int threshold, cv::Mat& cleaned) {
  CV_Assert(frame32f.type() == CV_32FC1 && !frame32f.empty());
  cleaned = frame32f.clone();
  if (radius <= 0) return 0;
  const int rows = cleaned.rows;
  const int cols = cleaned.cols;
  const double reach2 = (radius + 0.5) * (radius + 0.5);
  std::vector<cv::Point> disc;
  for (int dy = -radius; dy <= radius; ++dy) {
    for (int dx = -radius; dx <= radius; ++dx) {
      if (dx * dx + dy * dy <= reach2) disc.emplace_back(dx, dy);
    }
  }
  const cv::Mat kernel = cv::getStructuringElement(cv::MORPH_RECT, cv::Size(3, 3));
  int replacedTotal = 0;
  cv::Mat shifted, discMedian, median3, shiftedMedian3, coarse, hits, grown;
  std::vector<float> samples;
  std::vector<int> stack;
  std::vector<std::pair<int, float>> replacements;
  for (int pass = 0; pass < kMaxCleaningPasses; ++pass) {
    // The disc medians are the core's 16-bit ones on shifted, clipped frames; rounding there
    // moves a comparison by at most half an ADU.
    cv::min(cleaned, background + kShiftedCeiling - kShift, shifted);
    shifted.convertTo(shifted, CV_16U, 1.0, kShift - background);
    CFilterCosmicRay::MedianBlur(shifted, discMedian, radius);
    cv::medianBlur(cleaned, median3, 3);
    cv::min(median3, background + kShiftedCeiling - kShift, shiftedMedian3);
    shiftedMedian3.convertTo(shiftedMedian3, CV_16U, 1.0, kShift - background);
    CFilterCosmicRay::MedianBlur(shiftedMedian3, coarse, radius);

    // Outliers stand more than threshold above their disc median; seeds are the outliers that
    // are sharper than any optical structure around them.
    hits = cv::Mat::zeros(rows, cols, CV_8U);
    stack.clear();
    for (int y = 0; y < rows; ++y) {
      const float* c = cleaned.ptr<float>(y);
      const float* m3 = median3.ptr<float>(y);
      const std::uint16_t* sm3 = shiftedMedian3.ptr<std::uint16_t>(y);
      const std::uint16_t* s = shifted.ptr<std::uint16_t>(y);
      const std::uint16_t* d = discMedian.ptr<std::uint16_t>(y);
      const std::uint16_t* k = coarse.ptr<std::uint16_t>(y);
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
            const float* n = cleaned.ptr<float>(ny);
            for (int dx = -1; dx <= 1; ++dx) {
              const int nx = x + dx;
              if (nx >= 0 && nx < cols && n[nx] > c[x]) seed = false;
            }
          }
        }
        if (!seed) continue;
        hits.at<uchar>(y, x) = 255;
        stack.push_back(y * cols + x);
      }
    }
    if (stack.empty()) break;
    // A hit spreads along its track: every outlier connected to a seed belongs to it.
    while (!stack.empty()) {
      const int index = stack.back();
      stack.pop_back();
      const int py = index / cols;
      const int px = index % cols;
      for (int dy = -1; dy <= 1; ++dy) {
        for (int dx = -1; dx <= 1; ++dx) {
          const int nx = px + dx;
          const int ny = py + dy;
          if (nx < 0 || nx >= cols || ny < 0 || ny >= rows || hits.at<uchar>(ny, nx) != 0) {
            continue;
          }
          const int excess = static_cast<int>(shifted.at<std::uint16_t>(ny, nx)) -
                             static_cast<int>(discMedian.at<std::uint16_t>(ny, nx));
          if (excess <= threshold) continue;
          hits.at<uchar>(ny, nx) = 255;
          stack.push_back(ny * cols + nx);
        }
      }
    }
    // The charge cloud spills into the neighbouring samples and a track's flanks would hold the
    // disc median up, so the hit grows by one sample and is refilled from what lies outside.
    cv::dilate(hits, grown, kernel);
    replacements.clear();
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
          samples.push_back(cleaned.at<float>(sy, sx));
        }
        const float value =
            samples.empty()
                ? static_cast<float>(discMedian.at<std::uint16_t>(y, x) - kShift + background)
                : static_cast<float>(CRobustStatistics::MedianInPlace(samples));
        replacements.emplace_back(y * cols + x, value);
      }
    }
    for (const auto& r : replacements) cleaned.at<float>(r.first / cols, r.first % cols) = r.second;
    replacedTotal += static_cast<int>(replacements.size());
  }
  return replacedTotal;
}

std::vector<CSpotDetector::Candidate> CSpotDetector::Segment(const cv::Mat& processed,
                                                             cv::Mat& footprintLabels,
                                                             FrameStatistics* statistics) const {
  if (processed.empty()) {
    cv::error(cv::Error::StsBadArg, "the frame is empty", "CSpotDetector::Segment", __FILE__,
              __LINE__);
  }
  if (processed.channels() != 1) {
    cv::error(cv::Error::StsBadArg, "the frame must have one channel", "CSpotDetector::Segment",
              __FILE__, __LINE__);
  }
  const AlgoParameters& p = parameters_;
  cv::Mat frame;
  processed.convertTo(frame, CV_32F);

  FrameStatistics stats;
  RobustStatistics(frame, stats.background, stats.noise);
  stats.noise = std::max(stats.noise, kQuantizationNoise);
  stats.threshold = static_cast<double>(p.thresholdFactor) * stats.noise;

  cv::Mat cleaned;
  stats.cosmicRayHits =
      RemoveCosmicRays(frame, stats.background, p.cosmicRayRadius, p.cosmicRayThreshold, cleaned);

  cv::Mat smoothed;
  if (p.smoothingSigma > 0) {
    CGaussianBlur(p.smoothingSigma).Apply(cleaned, smoothed, true);
  } else {
    smoothed = cleaned;
  }
  cv::Mat excess;
  cv::subtract(smoothed, cv::Scalar(stats.background), excess);
  const cv::Mat above = excess > stats.threshold;

  std::vector<std::vector<int>> members;
  LabelComponents(above, footprintLabels, members);

  const int cols = frame.cols;
  const int rows = frame.rows;
  const int margin = p.BorderMargin();
  const double minCircularity = p.MinCircularityPercent() / 100.0;
  std::vector<Candidate> candidates(members.size());
  for (size_t i = 0; i < members.size(); ++i) {
    Candidate& c = candidates[i];
    DetectedObject& o = c.object;
    const std::vector<int>& pixels = members[i];
    int x0 = cols, y0 = rows, x1 = -1, y1 = -1;
    double sw = 0.0, sx = 0.0, sy = 0.0;
    double peak = -std::numeric_limits<double>::infinity();
    for (const int index : pixels) {
      const int y = index / cols;
      const int x = index % cols;
      x0 = std::min(x0, x);
      x1 = std::max(x1, x);
      y0 = std::min(y0, y);
      y1 = std::max(y1, y);
      // Weights from the smoothed frame: inside the footprint they are all above the threshold.
      const double w = excess.at<float>(y, x);
      sw += w;
      sx += w * x;
      sy += w * y;
      peak = std::max(peak, static_cast<double>(cleaned.at<float>(y, x)) - stats.background);
    }
    o.label = static_cast<std::int32_t>(i + 1);
    o.area = static_cast<double>(pixels.size());
    o.centroidX = sx / sw;
    o.centroidY = sy / sw;
    o.boxX = x0;
    o.boxY = y0;
    o.boxWidth = x1 - x0 + 1;
    o.boxHeight = y1 - y0 + 1;
    o.peak = static_cast<std::int32_t>(std::lround(peak));
    o.contour = OuterContour(footprintLabels, o.label, cv::Rect(x0, y0, o.boxWidth, o.boxHeight));
    const double perimeter = cv::arcLength(o.contour, true);
    o.circularity =
        perimeter > 0.0 ? 4.0 * kPi * cv::contourArea(o.contour) / (perimeter * perimeter) : 0.0;

    if (mode_ == kModeSegmentation) continue;
    if (x0 < margin || y0 < margin || x1 >= cols - margin || y1 >= rows - margin) {
      c.rejection = Rejection::kBorder;
    } else if (o.area > p.maxObjectArea) {
      c.rejection = Rejection::kTooLarge;
    } else if (std::sqrt(o.area / kPi) < p.minObjectRadius) {
      c.rejection = Rejection::kTooSmall;
    } else if (o.circularity < minCircularity) {
      c.rejection = Rejection::kNotRound;
    } else if (!p.nominalMode && !(peak > p.minControlPeak)) {
      c.rejection = Rejection::kFaintPeak;
    }
  }
  if (statistics != nullptr) *statistics = stats;
  return candidates;
}

void CSpotDetector::Detect(const cv::Mat& processed, std::vector<DetectedObject>& objects,
                           cv::Mat& labels, cv::Mat& mask, int outputLevel,
                           bool keepContours) const {
  if (outputLevel < 0 || outputLevel > 2) {
    cv::error(cv::Error::StsOutOfRange, "output level must be 0, 1 or 2", "CSpotDetector::Detect",
              __FILE__, __LINE__);
  }
  cv::Mat footprint;
  std::vector<Candidate> candidates = Segment(processed, footprint);

  objects.clear();
  std::vector<std::int32_t> relabel(candidates.size() + 1, 0);
  for (Candidate& c : candidates) {
    if (c.rejection != Rejection::kNone) continue;
    const std::int32_t label = static_cast<std::int32_t>(objects.size()) + 1;
    relabel[static_cast<size_t>(c.object.label)] = label;
    c.object.label = label;
    if (!keepContours) c.object.contour.clear();
    objects.push_back(std::move(c.object));
  }

  if (outputLevel >= 1) {
    labels.create(footprint.size(), CV_32S);
    for (int y = 0; y < footprint.rows; ++y) {
      const int* f = footprint.ptr<int>(y);
      int* l = labels.ptr<int>(y);
      for (int x = 0; x < footprint.cols; ++x) l[x] = relabel[static_cast<size_t>(f[x])];
    }
  } else {
    labels.release();
  }
  if (outputLevel >= 2) {
    mask = labels > 0;
  } else {
    mask.release();
  }
}
