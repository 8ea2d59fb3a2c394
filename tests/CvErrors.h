// Checks of the cv::Exception an operation raises, shared by the tests that pin error codes,
// messages and functions. Accepts any callable that should throw.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <opencv2/core.hpp>
#include <string>

namespace testerrors {

// The cv::Exception the call raised; a test failure and a default exception when it raised none.
inline cv::Exception CaptureError(const std::function<void()>& call) {
  try {
    call();
  } catch (const cv::Exception& e) {
    return e;
  }
  ADD_FAILURE() << "no cv::Exception was raised";
  return cv::Exception();
}

// Expects a cv::Exception with this code, message and function from the call.
template <class Call>
void ExpectCvError(Call call, int code, const std::string& message, const std::string& function) {
  try {
    call();
    ADD_FAILURE() << "no cv::Exception";
  } catch (const cv::Exception& e) {
    EXPECT_EQ(e.code, code);
    EXPECT_EQ(e.err, message);
    EXPECT_EQ(e.func, function);
  }
}

// Expects the code, message and line of an error of the disc median (CFilterCosmicRay::MedianBlur,
// whose errors name the historical source "OmbrixProcessing/FilterCosmicRay").
inline void ExpectMedianBlurError(const cv::Exception& e, int code, const std::string& message,
                                  int line) {
  EXPECT_EQ(e.code, code);
  EXPECT_EQ(e.err, message);
  EXPECT_EQ(e.func, "CFilterCosmicRay::MedianBlur");
  EXPECT_EQ(e.file, "OmbrixProcessing/FilterCosmicRay");
  EXPECT_EQ(e.line, line);
}

}  // namespace testerrors
