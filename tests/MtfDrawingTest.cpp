// The picture drawn after an MTF measurement, on the generated charts (8-bit FTM.tif and 16-bit
// FTM2.tif): a colour copy of the grey chart with the targets in red and the edge regions in
// green.
#include <gtest/gtest.h>

#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <string>

#include "mtf/MtfDrawing.h"
#include "mtf/MtfMeasurement.h"

namespace {

const std::string kData = OMBRIX_TEST_DATA_DIR;

class Chart : public ::testing::TestWithParam<const char*> {};

int CountColour(const cv::Mat& picture, const cv::Vec3b& colour) {
  cv::Mat match;
  cv::inRange(picture, colour, colour, match);
  return cv::countNonZero(match);
}

TEST_P(Chart, OutlinesTargetsAndRegionsOnTheGreyPicture) {
  const cv::Mat chart = cv::imread(kData + GetParam(), cv::IMREAD_UNCHANGED);
  ASSERT_FALSE(chart.empty());
  CMtfMeasurement measurement;
  const MtfTargetMap targets = measurement.MeasureTargets(chart);
  ASSERT_FALSE(targets.empty());
  cv::Mat output;
  DrawMtfResults(chart, targets, output);
  ASSERT_EQ(output.type(), CV_8UC3);
  ASSERT_EQ(output.size(), chart.size());
  // Away from the drawing the picture is the chart's grey, stretched to 8 bits when it is deeper.
  cv::Mat grey8;
  if (chart.depth() == CV_8U) {
    grey8 = chart;
  } else {
    cv::normalize(chart, grey8, 0, 255, cv::NORM_MINMAX, CV_8U);
  }
  const uchar corner = grey8.at<uchar>(0, 0);
  EXPECT_EQ(output.at<cv::Vec3b>(0, 0), cv::Vec3b(corner, corner, corner));
  // Region outlines are green, target outlines red.
  EXPECT_GT(CountColour(output, cv::Vec3b(0, 200, 0)), 0);
  EXPECT_GT(CountColour(output, cv::Vec3b(0, 0, 255)), 0);
  // The left side of the first region is outlined.
  const cv::Rect region = targets.begin()->second.edges.at(0).region;
  int green = 0;
  for (int y = region.y; y < region.y + region.height; ++y) {
    green += output.at<cv::Vec3b>(y, region.x) == cv::Vec3b(0, 200, 0);
  }
  EXPECT_GT(green, region.height / 2);
}

INSTANTIATE_TEST_SUITE_P(MtfDrawing, Chart, ::testing::Values("FTM.tif", "FTM2.tif"));

}  // namespace
