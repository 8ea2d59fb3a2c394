// The dark reference: the dark signal interpolated between the two master darks, the subtraction
// against its element-by-element oracle, refused darks that keep the previous reference (from
// files or from images in memory, with the same result), bad pixels and bad frames.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>

#include "CvErrors.h"
#include "DarkReference.h"
#include "DarkSubtractionReference.h"
#include "OmbrixProcessing.h"
#include "ProcessingHelpers.h"
#include "Random.h"

namespace {

using testerrors::ExpectCvError;
using testprocessing::DarkPair;
using testprocessing::MakeDarks;

class DarkSignal : public ::testing::TestWithParam<float> {};

TEST_P(DarkSignal, InterpolatesLinearlyBetweenTheShortAndTheLongDark) {
  const float t = GetParam();
  const DarkPair darks = MakeDarks(6, 7);
  CDarkReference reference;
  ASSERT_TRUE(reference.Set(darks.d150, darks.d1, cv::Mat()));
  cv::Mat dark;
  reference.DarkSignal(t, dark);
  ASSERT_EQ(dark.type(), CV_32F);
  for (int y = 0; y < 6; ++y) {
    for (int x = 0; x < 7; ++x) {
      const double d1 = darks.d1.at<std::uint16_t>(y, x);
      const double d150 = darks.d150.at<std::uint16_t>(y, x);
      const double expected = d1 + (d150 - d1) * (t - 1.0) / 149.0;
      EXPECT_NEAR(dark.at<float>(y, x), expected, 1e-6 * std::abs(expected) + 1e-4);
    }
  }
}

INSTANTIATE_TEST_SUITE_P(DarkReference, DarkSignal,
                         ::testing::Values(1.0f, 150.0f, 75.5f, 10.0f, 300.0f));

TEST(DarkReference, TheEndPointsAreTheMasterDarksExactly) {
  const DarkPair darks = MakeDarks(6, 7);
  CDarkReference reference;
  ASSERT_TRUE(reference.Set(darks.d150, darks.d1, cv::Mat()));
  cv::Mat at1, at150, d1f, d150f;
  reference.DarkSignal(1.0f, at1);
  reference.DarkSignal(150.0f, at150);
  darks.d1.convertTo(d1f, CV_32F);
  darks.d150.convertTo(d150f, CV_32F);
  EXPECT_EQ(cv::norm(at1, d1f, cv::NORM_INF), 0.0);
  EXPECT_EQ(cv::norm(at150, d150f, cv::NORM_INF), 0.0);
}

TEST(DarkReference, SubtractMatchesTheElementReferenceOnRandomFrames) {
  datagen::Random rng(41);
  const DarkPair darks = MakeDarks(33, 29);
  CDarkReference reference;
  ASSERT_TRUE(reference.Set(darks.d150, darks.d1, cv::Mat()));
  for (int trial = 0; trial < 20; ++trial) {
    cv::Mat raw(33, 29, CV_16U);
    for (int i = 0; i < raw.rows * raw.cols; ++i) {
      raw.at<std::uint16_t>(i / raw.cols, i % raw.cols) =
          static_cast<std::uint16_t>(rng.Int(0, 65535));
    }
    const float t = static_cast<float>(rng.Uniform(0.0, 300.0));
    cv::Mat processed;
    reference.Subtract(raw, t, processed);
    EXPECT_EQ(cv::norm(processed, oracle::SubtractDark(darks.d150, darks.d1, raw, t), cv::NORM_INF),
              0.0)
        << "trial " << trial << " at " << t << " s";
  }
}

TEST(DarkReference, RefusesMissingEmptyAndMismatchedDarksAndKeepsThePreviousOne) {
  testprocessing::TempFolder folder("darks");
  const DarkPair darks = MakeDarks(8, 8);
  cv::imwrite(folder.File("long.tif"), darks.d150);
  cv::imwrite(folder.File("short.tif"), darks.d1);
  cv::imwrite(folder.File("small.tif"), cv::Mat(4, 8, CV_16U, cv::Scalar(5)));
  cv::Mat eight;
  darks.d1.convertTo(eight, CV_8U, 1.0 / 256.0);
  cv::imwrite(folder.File("eight.tif"), eight);
  cv::imwrite(folder.File("mask_small.tif"), cv::Mat(4, 4, CV_8U, cv::Scalar(0)));

  COmbrixProcessing plugin;
  EXPECT_FALSE(plugin.LoadDarkFrames(folder.File("missing.tif"), folder.File("short.tif"), ""));
  EXPECT_FALSE(plugin.LoadDarkFrames(folder.File("long.tif"), "", ""));
  EXPECT_FALSE(plugin.LoadDarkFrames(folder.File("long.tif"), folder.File("small.tif"), ""));
  EXPECT_FALSE(plugin.LoadDarkFrames(folder.File("long.tif"), folder.File("eight.tif"), ""));
  EXPECT_FALSE(plugin.DarkReference().Loaded());
  ASSERT_TRUE(plugin.LoadDarkFrames(folder.File("long.tif"), folder.File("short.tif"), ""));
  EXPECT_FALSE(plugin.LoadDarkFrames(folder.File("long.tif"), folder.File("short.tif"),
                                     folder.File("mask_small.tif")));
  EXPECT_FALSE(plugin.LoadDarkFrames(folder.File("long.tif"), folder.File("short.tif"),
                                     folder.File("no_mask.tif")));
  // The good reference loaded before the refusals is still in force.
  plugin.PushImage({darks.d150, 150.0f});
  EXPECT_EQ(cv::countNonZero(plugin.GetProcessedImage()), 0);
}

TEST(DarkReference, SetDarkFramesGivesTheReferenceOfLoadDarkFrames) {
  testprocessing::TempFolder folder("set_darks");
  const DarkPair darks = MakeDarks(9, 11);
  cv::Mat bad = cv::Mat::zeros(9, 11, CV_8U);
  bad.at<uchar>(4, 5) = 1;
  cv::imwrite(folder.File("long.tif"), darks.d150);
  cv::imwrite(folder.File("short.tif"), darks.d1);
  cv::imwrite(folder.File("bad.tif"), bad);
  cv::Mat raw;
  darks.d150.convertTo(raw, CV_16U);
  raw += cv::Scalar(250);
  raw.at<std::uint16_t>(4, 5) = 60000;
  for (const bool withMap : {false, true}) {
    COmbrixProcessing loaded;
    ASSERT_TRUE(loaded.LoadDarkFrames(folder.File("long.tif"), folder.File("short.tif"),
                                      withMap ? folder.File("bad.tif") : ""));
    COmbrixProcessing set;
    ASSERT_TRUE(set.SetDarkFrames(darks.d150, darks.d1, withMap ? bad : cv::Mat()));
    for (const float exposure : {1.0f, 37.5f, 150.0f}) {
      loaded.PushImage({raw, exposure});
      set.PushImage({raw, exposure});
      EXPECT_EQ(cv::norm(loaded.GetProcessedImage(), set.GetProcessedImage(), cv::NORM_INF), 0.0)
          << withMap << " " << exposure;
    }
  }
}

TEST(DarkReference, SetDarkFramesRefusesWhatLoadDarkFramesRefusesAndKeepsTheReference) {
  const DarkPair darks = MakeDarks(8, 8);
  cv::Mat eight;
  darks.d1.convertTo(eight, CV_8U, 1.0 / 256.0);
  COmbrixProcessing plugin;
  EXPECT_FALSE(plugin.SetDarkFrames(cv::Mat(), darks.d1, cv::Mat()));
  EXPECT_FALSE(plugin.SetDarkFrames(darks.d150, cv::Mat(), cv::Mat()));
  EXPECT_FALSE(plugin.SetDarkFrames(darks.d150, cv::Mat(4, 8, CV_16U, cv::Scalar(5)), cv::Mat()));
  EXPECT_FALSE(plugin.SetDarkFrames(darks.d150, eight, cv::Mat()));
  EXPECT_FALSE(plugin.DarkReference().Loaded());
  ASSERT_TRUE(plugin.SetDarkFrames(darks.d150, darks.d1, cv::Mat()));
  EXPECT_FALSE(plugin.SetDarkFrames(darks.d150, darks.d1, cv::Mat(4, 4, CV_8U, cv::Scalar(0))));
  EXPECT_FALSE(plugin.SetDarkFrames(darks.d150, darks.d1, cv::Mat(8, 8, CV_8UC3, cv::Scalar(0))));
  EXPECT_FALSE(
      plugin.SetDarkFrames(cv::Mat(8, 8, CV_16U, cv::Scalar(1)), darks.d1, cv::Mat(3, 3, CV_8U)));
  // The good reference set before the refusals is still in force.
  plugin.PushImage({darks.d150, 150.0f});
  EXPECT_EQ(cv::countNonZero(plugin.GetProcessedImage()), 0);
}

TEST(DarkReference, BadPixelsTakeTheMeanOfTheirGoodNeighbours) {
  const DarkPair darks = MakeDarks(5, 5);
  cv::Mat bad = cv::Mat::zeros(5, 5, CV_8U);
  bad.at<uchar>(2, 2) = 1;
  bad.at<uchar>(2, 3) = 1;
  CDarkReference reference;
  ASSERT_TRUE(reference.Set(darks.d150, darks.d1, bad));
  cv::Mat raw;
  darks.d150.convertTo(raw, CV_32F);
  for (int y = 0; y < 5; ++y) {
    for (int x = 0; x < 5; ++x) raw.at<float>(y, x) += static_cast<float>(10 * y + x);
  }
  raw.at<float>(2, 2) = 60000.0f;
  raw.at<float>(2, 3) = 60000.0f;
  cv::Mat processed;
  reference.Subtract(raw, 150.0f, processed);
  // Good neighbours of (2, 2): rows 1..3, columns 1..3 without (2, 2) and (2, 3).
  EXPECT_FLOAT_EQ(processed.at<float>(2, 2), (11 + 12 + 13 + 21 + 31 + 32 + 33) / 7.0f);
  EXPECT_FLOAT_EQ(processed.at<float>(2, 3), (12 + 13 + 14 + 24 + 32 + 33 + 34) / 7.0f);
  EXPECT_FLOAT_EQ(processed.at<float>(1, 1), 11.0f);
}

TEST(DarkReference, BadFramesRaiseClearErrors) {
  const DarkPair darks = MakeDarks(4, 4);
  CDarkReference reference;
  ASSERT_TRUE(reference.Set(darks.d150, darks.d1, cv::Mat()));
  cv::Mat out;
  ExpectCvError([&] { reference.Subtract(cv::Mat(), 150.0f, out); }, cv::Error::StsBadArg,
                "empty frame", "CDarkReference::Subtract");
  ExpectCvError([&] { reference.Subtract(cv::Mat(4, 5, CV_16U), 150.0f, out); },
                cv::Error::StsUnmatchedSizes, "frame and dark frames differ in size or channels",
                "CDarkReference::Subtract");
  ExpectCvError([&] { reference.Subtract(darks.d1, -1.0f, out); }, cv::Error::StsOutOfRange,
                "exposure must be finite and not negative", "CDarkReference::Subtract");
}

}  // namespace
