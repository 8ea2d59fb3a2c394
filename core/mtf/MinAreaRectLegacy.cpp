#include "mtf/MinAreaRectLegacy.h"

#include <opencv2/imgproc.hpp>

// Both versions run the same rotating calipers over the hull; 4.5.1 only reversed the hull
// (clockwise flag false), which starts the calipers from (1, 0) instead of (-1, 0) and so names
// the other side first. What the conversion cannot give back: where two rectangles have the same
// area within float rounding (exact for triangles, near for slightly irregular quadrilaterals),
// the reversed walk may keep the other one; and 4.2's calipers, fed the clockwise hull, sometimes
// returned a rectangle smaller than the hull, which 4.5.1 repaired. On integer quadrilaterals
// like the simplified targets this changes the box in about 3 % of cases (angles by tenths of a
// degree, except where 4.2 was wrong).
cv::RotatedRect ToLegacyBoxAngle(const cv::RotatedRect& box) {
  cv::RotatedRect legacy = box;
  if (box.size.height == 0.0f && box.size.width > 0.0f) {
    // A segment (all points on one line): the hull has two points, which OpenCV >= 4.5.1 lists in
    // the opposite order, so the direction differs by 180 degrees.
    legacy.angle = box.angle <= 0.0f ? box.angle + 180.0f : box.angle - 180.0f;
  } else if (box.angle == 90.0f) {
    // The same sides, read from the other end of the range.
    legacy.angle = -90.0f;
  } else if (box.angle == 0.0f) {
    // Both versions report an upright box with the same sides here; the newer one as -0.0.
    legacy.angle = 0.0f;
  } else {
    // The newer angle is that of the other side: turn by -90 degrees and swap the sides.
    legacy.angle = box.angle - 90.0f;
    legacy.size = cv::Size2f(box.size.height, box.size.width);
  }
  return legacy;
}

cv::RotatedRect MinAreaRectLegacy(const std::vector<cv::Point>& points) {
#if CV_VERSION_MAJOR > 4 ||   \
    (CV_VERSION_MAJOR == 4 && \
     (CV_VERSION_MINOR > 5 || (CV_VERSION_MINOR == 5 && CV_VERSION_REVISION >= 1)))
  return ToLegacyBoxAngle(cv::minAreaRect(points));
#else
  return cv::minAreaRect(points);
#endif
}
