// The minimum-area rectangle as OpenCV reported it up to 4.5.0, whatever the OpenCV version: the
// box-angle features and the MTF targets are defined on those rectangles. Accepts any integer
// point set cv::minAreaRect accepts.
#pragma once

#include <opencv2/core.hpp>
#include <vector>

// Minimum-area rectangle of the points in the convention of OpenCV up to 4.5.0: angle in
// [-90, 0) (0 for some upright boxes), width along the side that the angle turns from the x axis.
// OpenCV 4.5.1 takes the hull the other way round, so cv::minAreaRect reports angles in (0, 90]
// with width and height exchanged; the box-angle features are written for the older reading, so
// every box they look at goes through here.
cv::RotatedRect MinAreaRectLegacy(const std::vector<cv::Point>& points);

// The conversion itself, for a rectangle that cv::minAreaRect of OpenCV >= 4.5.1 returned:
// 90 -> -90 with the same sides; 0 stays (an upright box, same sides in both versions); a in
// (0, 90) -> a - 90 with width and height exchanged; a segment (height 0) turns by 180 degrees.
cv::RotatedRect ToLegacyBoxAngle(const cv::RotatedRect& box);
