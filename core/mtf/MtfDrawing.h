// The picture a user looks at after an MTF measurement: the chart as 8-bit colour with each
// target's rectangle and number, each edge region outlined and labelled with its cut frequency
// and efficiency. Accepts what CMtfMeasurement measures and the map it returned for that image.
#pragma once

#include <opencv2/core.hpp>

#include "mtf/MtfMeasurement.h"

// output receives a fresh 8-bit, three-channel picture of the image's size.
void DrawMtfResults(const cv::Mat& image, const MtfTargetMap& targets, cv::Mat& output);
