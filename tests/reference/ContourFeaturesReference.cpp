#include "ContourFeaturesReference.h"

#include <opencv2/imgproc.hpp>
#include <vector>

namespace oracle {

void RemoveNestedCandidates(ContourSet& set) {
  std::vector<ContourRecord> kept;
  for (const ContourRecord& candidate : set.candidates) {
    bool duplicate = false;
    for (const ContourRecord& k : kept) {
      cv::Point2f centre;
      float radius = 0.0f;
      cv::minEnclosingCircle(k.points, centre, radius);
      const cv::Point rounded(cvRound(centre.x), cvRound(centre.y));
      if (cv::pointPolygonTest(candidate.points, cv::Point2f(rounded), false) >= 0.0) {
        const double candidateArea = cv::contourArea(candidate.points);
        const double keptArea = cv::contourArea(k.points);
        // Whichever is larger, the kept record stays.
        static_cast<void>(candidateArea > keptArea);
        duplicate = true;
        break;
      }
    }
    if (!duplicate) {
      kept.push_back(candidate);
    }
  }
  set.candidates = kept;
}

}  // namespace oracle
