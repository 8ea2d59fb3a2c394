// Helpers shared by the spot-detection tests: pixel-integrated Gaussian spots, the detector with a
// parameter record, a one-to-one match of objects with true spots, and the generated
// ValidationAlgo1 frames with their recorded truth. Frames are CV_32F of any size.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "PluginScenarios.h"
#include "ProcessingHelpers.h"
#include "SpotDetector.h"

namespace testspots {

inline const std::string kAlgoFolder =
    testprocessing::kData + scenarios::kValidationFolder + OMBRIX_SEP;

struct TrueSpot {
  double x, y, sigma, peak;
};

// Pixel-integrated Gaussian spot whose brightest pixel is `peak` above what was there.
inline void AddSpot(cv::Mat& image, const TrueSpot& s) {
  auto cdf = [](double t) { return 0.5 * std::erfc(-t / std::sqrt(2.0)); };
  auto fx = [&](int px) {
    return cdf((px + 0.5 - s.x) / s.sigma) - cdf((px - 0.5 - s.x) / s.sigma);
  };
  auto fy = [&](int py) {
    return cdf((py + 0.5 - s.y) / s.sigma) - cdf((py - 0.5 - s.y) / s.sigma);
  };
  const int cx = static_cast<int>(std::lround(s.x));
  const int cy = static_cast<int>(std::lround(s.y));
  const double flux = s.peak / (fx(cx) * fy(cy));
  for (int y = std::max(0, cy - 10); y <= std::min(image.rows - 1, cy + 10); ++y) {
    for (int x = std::max(0, cx - 10); x <= std::min(image.cols - 1, cx + 10); ++x) {
      image.at<float>(y, x) += static_cast<float>(flux * fx(x) * fy(y));
    }
  }
}

inline AlgoParameters Parameters(bool nominal) { return CSpotDetector::DefaultParameters(nominal); }

inline CSpotDetector Detector(const AlgoParameters& p) {
  CSpotDetector detector;
  EXPECT_TRUE(detector.Configure(p));
  return detector;
}

inline std::vector<DetectedObject> Detect(const CSpotDetector& detector, const cv::Mat& frame) {
  std::vector<DetectedObject> objects;
  cv::Mat labels, mask;
  detector.Detect(frame, objects, labels, mask, 2, true);
  return objects;
}

// True when every spot has exactly one object within 2 px and every object belongs to a spot.
inline ::testing::AssertionResult MatchOneToOne(const std::vector<TrueSpot>& spots,
                                                const std::vector<DetectedObject>& objects) {
  if (spots.size() != objects.size()) {
    return ::testing::AssertionFailure()
           << objects.size() << " objects for " << spots.size() << " spots";
  }
  std::vector<int> used(objects.size(), 0);
  for (const TrueSpot& s : spots) {
    int matches = 0;
    for (size_t i = 0; i < objects.size(); ++i) {
      if (std::hypot(objects[i].centroidX - s.x, objects[i].centroidY - s.y) <= 2.0) {
        ++matches;
        ++used[i];
      }
    }
    if (matches != 1) {
      return ::testing::AssertionFailure()
             << matches << " objects within 2 px of the spot at " << s.x << ", " << s.y;
    }
  }
  for (size_t i = 0; i < used.size(); ++i) {
    if (used[i] != 1) {
      return ::testing::AssertionFailure() << "object at " << objects[i].centroidX << ", "
                                           << objects[i].centroidY << " matches " << used[i];
    }
  }
  return ::testing::AssertionSuccess();
}

// What the generator recorded for one ValidationAlgo1 frame.
struct Truth {
  std::vector<TrueSpot> spots;
  int distractors = 0;
};

inline Truth ReadTruth(const std::string& name) {
  Truth truth;
  std::ifstream file(kAlgoFolder + "Truth_" + name + ".txt");
  EXPECT_TRUE(file.good()) << name;
  std::string line;
  while (std::getline(file, line)) {
    std::istringstream s(line);
    std::string kind;
    s >> kind;
    if (kind == "spot") {
      TrueSpot spot{};
      double flux = 0.0;
      s >> spot.x >> spot.y >> spot.sigma >> flux >> spot.peak;
      truth.spots.push_back(spot);
    } else if (kind == "blotch" || kind == "scratch" || kind == "hot" || kind == "cosmic") {
      ++truth.distractors;
    }
  }
  return truth;
}

// A ValidationAlgo1 frame as the plug-in processes it at 150 s: raw minus the long master dark.
inline cv::Mat Processed(const std::string& name) {
  const cv::Mat raw = cv::imread(kAlgoFolder + name + ".tif", cv::IMREAD_UNCHANGED);
  const cv::Mat dark = cv::imread(kAlgoFolder + "Black_150s.tif", cv::IMREAD_UNCHANGED);
  EXPECT_FALSE(raw.empty() || dark.empty()) << name;
  cv::Mat a, b;
  raw.convertTo(a, CV_32F);
  dark.convertTo(b, CV_32F);
  return a - b;
}

inline std::vector<TrueSpot> BrighterThan(const std::vector<TrueSpot>& spots, double peak) {
  std::vector<TrueSpot> out;
  for (const TrueSpot& s : spots) {
    if (s.peak > peak) out.push_back(s);
  }
  return out;
}

}  // namespace testspots
