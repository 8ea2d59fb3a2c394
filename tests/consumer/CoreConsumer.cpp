// Uses the installed core on an image whose answers are known without running the core: a
// constant field with one hot pixel and one dark pixel. Exit status 0 when every check holds.
#include <cstdio>
#include <opencv2/core.hpp>

#include "filters/FilterCosmicRay.h"

namespace {

constexpr unsigned short kLevel = 1000;
constexpr unsigned short kHot = 5000;
constexpr unsigned short kDark = 10;
constexpr int kHotRow = 9, kHotCol = 12;
constexpr int kDarkRow = 20, kDarkCol = 5;

int failures = 0;

void Check(bool condition, const char* what) {
  if (!condition) {
    std::fprintf(stderr, "FAILED: %s\n", what);
    ++failures;
  }
}

// True when every pixel equals expected, apart from the one at (row, col), which must equal
// atPixel (pass row = -1 for none).
bool Holds(const cv::Mat& image, unsigned short expected, int row, int col,
           unsigned short atPixel) {
  if (image.type() != CV_16UC1) return false;
  for (int y = 0; y < image.rows; ++y) {
    for (int x = 0; x < image.cols; ++x) {
      const unsigned short want = (y == row && x == col) ? atPixel : expected;
      if (image.at<unsigned short>(y, x) != want) return false;
    }
  }
  return true;
}

}  // namespace

int main() {
  cv::Mat field(24, 32, CV_16UC1, cv::Scalar(kLevel));
  field.at<unsigned short>(kHotRow, kHotCol) = kHot;
  field.at<unsigned short>(kDarkRow, kDarkCol) = kDark;
  const cv::Mat original = field.clone();

  // Every disc of radius 3 holds at least 16 samples, at most two of them the odd ones out:
  // the median is the field's level everywhere.
  cv::Mat median;
  CFilterCosmicRay::MedianBlur(field, median, 3);
  Check(median.size() == field.size(), "median has the source's size");
  Check(Holds(median, kLevel, -1, -1, 0), "disc median of radius 3 is the level everywhere");

  // The hot pixel stands 4000 above its median: replaced. The dark one lies below: kept.
  cv::Mat cleaned, replaced;
  CFilterCosmicRay(3, 100).Process(field, cleaned, cv::Mat(), replaced);
  Check(Holds(cleaned, kLevel, kDarkRow, kDarkCol, kDark),
        "cosmic-ray filter replaces the hot pixel and keeps the dark one");
  Check(replaced.type() == CV_8UC1 && cv::countNonZero(replaced) == 1 &&
            replaced.at<unsigned char>(kHotRow, kHotCol) == 255,
        "replacement map marks the hot pixel only");

  // A threshold above the excess leaves the field as it was.
  cv::Mat kept;
  CFilterCosmicRay(3, kHot - kLevel).Process(field, kept, cv::Mat());
  Check(cv::countNonZero(kept != original) == 0, "threshold above the excess replaces nothing");

  Check(cv::countNonZero(field != original) == 0, "source left untouched");

  if (failures == 0) std::printf("core consumer: all checks hold\n");
  return failures == 0 ? 0 : 1;
}
