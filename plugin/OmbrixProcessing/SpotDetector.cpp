#include "SpotDetector.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <opencv2/imgproc.hpp>

#include "CosmicRayCleaner.h"
#include "RobustStatistics.h"
#include "filters/GaussianBlur.h"

namespace {

// Integer samples carry at least their rounding noise, so a perfectly flat frame still gets a
// finite threshold.
const double kQuantizationNoise = 1.0 / std::sqrt(12.0);

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
  return ValidationAlgoParameters(nominalMode);
}

bool CSpotDetector::Configure(const AlgoParameters& p) {
  const bool valid = p.cosmicRayRadius >= 0 && p.cosmicRayRadius <= kMaxCosmicRayRadius &&
                     p.cosmicRayThreshold >= 0 && p.smoothingSigma >= 0 && p.smoothingSigma <= 50 &&
                     p.maxObjectArea > 0 && p.minObjectRadius >= 0 &&
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
  CRobustStatistics::OfImage(frame, stats.background, stats.noise);
  stats.noise = std::max(stats.noise, kQuantizationNoise);
  stats.threshold = static_cast<double>(p.thresholdFactor) * stats.noise;

  cv::Mat cleaned;
  stats.cosmicRayHits = CCosmicRayCleaner::Clean(frame, stats.background, p.cosmicRayRadius,
                                                 p.cosmicRayThreshold, cleaned);

  cv::Mat smoothed;
  if (p.smoothingSigma > 0) {
    CGaussianBlur(p.smoothingSigma).Apply(cleaned, smoothed, true);
  } else {
    smoothed = cleaned;
  }
  cv::Mat excess;
  cv::subtract(smoothed, cv::Scalar(stats.background), excess);
  const cv::Mat above = excess > stats.threshold;

  // Raster-order labels: the component met first in a row-major scan gets label 1.
  cv::Mat boxes, centres;
  const int labelCount = cv::connectedComponentsWithStats(above, footprintLabels, boxes, centres, 8,
                                                          CV_32S, cv::CCL_WU);
  const size_t count = static_cast<size_t>(labelCount - 1);

  // Centroid weights come from the smoothed frame (inside a footprint they are all above the
  // threshold) and are summed in raster order; the peak is read from the cleaned frame.
  std::vector<double> sw(count, 0.0), sx(count, 0.0), sy(count, 0.0);
  std::vector<double> peaks(count, -std::numeric_limits<double>::infinity());
  for (int y = 0; y < footprintLabels.rows; ++y) {
    const int* l = footprintLabels.ptr<int>(y);
    const float* e = excess.ptr<float>(y);
    const float* c = cleaned.ptr<float>(y);
    for (int x = 0; x < footprintLabels.cols; ++x) {
      if (l[x] == 0) continue;
      const size_t i = static_cast<size_t>(l[x] - 1);
      const double w = e[x];
      sw[i] += w;
      sx[i] += w * x;
      sy[i] += w * y;
      peaks[i] = std::max(peaks[i], static_cast<double>(c[x]) - stats.background);
    }
  }

  const int cols = frame.cols;
  const int rows = frame.rows;
  const int margin = p.BorderMargin();
  const double minCircularity = p.MinCircularityPercent() / 100.0;
  std::vector<Candidate> candidates(count);
  for (size_t i = 0; i < count; ++i) {
    Candidate& c = candidates[i];
    DetectedObject& o = c.object;
    const int* box = boxes.ptr<int>(static_cast<int>(i) + 1);
    const int x0 = box[cv::CC_STAT_LEFT];
    const int y0 = box[cv::CC_STAT_TOP];
    const int x1 = x0 + box[cv::CC_STAT_WIDTH] - 1;
    const int y1 = y0 + box[cv::CC_STAT_HEIGHT] - 1;
    const double peak = peaks[i];
    o.label = static_cast<std::int32_t>(i + 1);
    o.area = static_cast<double>(box[cv::CC_STAT_AREA]);
    o.centroidX = sx[i] / sw[i];
    o.centroidY = sy[i] / sw[i];
    o.boxX = x0;
    o.boxY = y0;
    o.boxWidth = x1 - x0 + 1;
    o.boxHeight = y1 - y0 + 1;
    o.peak = static_cast<std::int32_t>(std::lround(peak));
    o.contour = OuterContour(footprintLabels, o.label, cv::Rect(x0, y0, o.boxWidth, o.boxHeight));
    const double perimeter = cv::arcLength(o.contour, true);
    o.circularity =
        perimeter > 0.0 ? 4.0 * CV_PI * cv::contourArea(o.contour) / (perimeter * perimeter) : 0.0;

    if (mode_ == kModeSegmentation) continue;
    if (x0 < margin || y0 < margin || x1 >= cols - margin || y1 >= rows - margin) {
      c.rejection = Rejection::kBorder;
    } else if (o.area > p.maxObjectArea) {
      c.rejection = Rejection::kTooLarge;
    } else if (std::sqrt(o.area / CV_PI) < p.minObjectRadius) {
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
