// The light-source calibration: the factor of a known flat field is its central mean over the
// nominal level at the exposure, and inputs that cannot be measured are not available.
#include <gtest/gtest.h>

#include <limits>
#include <opencv2/core.hpp>

#include "LightSourceCalibration.h"

namespace {

TEST(LightSourceCalibration, FactorOfAKnownFlatFieldIsItsCentralMeanOverTheNominal) {
  // A vignetted field: 19816 ADU (0.9908 x 20000) over the central half, darker outside.
  cv::Mat field(200, 300, CV_32F, cv::Scalar(15000.0));
  field(CLightSourceCalibration::CentralRegion(field.size())).setTo(19816.0);
  EXPECT_EQ(CLightSourceCalibration::CentralRegion(field.size()), cv::Rect(75, 50, 150, 100));
  EXPECT_EQ(CLightSourceCalibration::Factor(field), 0.9908f);
  // Half the exposure, half the nominal level.
  cv::Mat half = field * 0.5;
  EXPECT_EQ(CLightSourceCalibration::Factor(half, 75.0), 0.9908f);
  // Only the centre matters.
  field(cv::Rect(0, 0, 75, 200)).setTo(0.0);
  EXPECT_EQ(CLightSourceCalibration::Factor(field), 0.9908f);
  // A gradient across the centre averages to its middle value.
  cv::Mat ramp(100, 100, CV_32F);
  for (int y = 0; y < 100; ++y) {
    for (int x = 0; x < 100; ++x) ramp.at<float>(y, x) = 19000.0f + 20.0f * x;
  }
  // Columns 25..74: mean column 49.5.
  EXPECT_FLOAT_EQ(CLightSourceCalibration::Factor(ramp), (19000.0f + 20.0f * 49.5f) / 20000.0f);
}

TEST(LightSourceCalibration, UnusableInputsAreNotAvailable) {
  EXPECT_EQ(CLightSourceCalibration::Factor(cv::Mat()), -1.0f);
  EXPECT_EQ(CLightSourceCalibration::Factor(cv::Mat(8, 8, CV_32FC2, cv::Scalar::all(1))), -1.0f);
  EXPECT_EQ(CLightSourceCalibration::Factor(cv::Mat(1, 8, CV_32F, cv::Scalar(1))), -1.0f);
  EXPECT_EQ(CLightSourceCalibration::Factor(cv::Mat(8, 8, CV_32F, cv::Scalar(1)), 0.0), -1.0f);
}

}  // namespace

namespace {

TEST(LightSourceCalibration, NonFiniteCentralMeanIsNotAvailable) {
  cv::Mat field(40, 40, CV_32F, cv::Scalar(19816.0));
  const cv::Mat before = field.clone();
  ASSERT_EQ(CLightSourceCalibration::Factor(field), 0.9908f);
  // One NaN in the centre: a NaN factor would pass every threshold check.
  field.at<float>(20, 20) = std::numeric_limits<float>::quiet_NaN();
  EXPECT_EQ(CLightSourceCalibration::Factor(field), -1.0f);
  field.setTo(std::numeric_limits<float>::quiet_NaN());
  EXPECT_EQ(CLightSourceCalibration::Factor(field), -1.0f);
  before.copyTo(field);
  field.at<float>(15, 25) = std::numeric_limits<float>::infinity();
  EXPECT_EQ(CLightSourceCalibration::Factor(field), -1.0f);
  // A NaN outside the central region does not matter.
  before.copyTo(field);
  field.at<float>(0, 0) = std::numeric_limits<float>::quiet_NaN();
  EXPECT_EQ(CLightSourceCalibration::Factor(field), 0.9908f);
}

}  // namespace
