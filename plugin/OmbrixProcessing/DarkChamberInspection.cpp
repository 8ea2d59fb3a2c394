#include "DarkChamberInspection.h"

#include <cmath>
#include <opencv2/imgproc.hpp>

#include "RobustStatistics.h"

cv::Mat CDarkChamberInspection::ExcessMask(const cv::Mat& image32f, double& threshold) {
  // The loop below reads float rows: any other image would be read past its end.
  if (image32f.type() != CV_32FC1 || image32f.dims > 2) {
    cv::error(cv::Error::StsUnsupportedFormat, "the image must be 2-D, 32-bit float, one channel",
              "CDarkChamberInspection::ExcessMask", __FILE__, __LINE__);
  }
  double median = 0.0, noise = 0.0;
  CRobustStatistics::OfImage(image32f, median, noise);
  threshold = median + kNoiseFactor * noise;
  cv::Mat mask(image32f.rows, image32f.cols, CV_8U);
  for (int y = 0; y < image32f.rows; ++y) {
    const float* row = image32f.ptr<float>(y);
    uchar* m = mask.ptr<uchar>(y);
    // NaN compares false, so it never counts as excess.
    for (int x = 0; x < image32f.cols; ++x) m[x] = row[x] > threshold ? 255 : 0;
  }
  return mask;
}

int CDarkChamberInspection::CountDefects(const cv::Mat& minimumImage) {
  cv::Mat defectMap;
  return CountDefects(minimumImage, defectMap);
}

int CDarkChamberInspection::CountDefects(const cv::Mat& minimumImage, cv::Mat& defectMap) {
  defectMap.release();
  if (minimumImage.empty() || minimumImage.channels() != 1 || minimumImage.dims > 2) return -1;
  cv::Mat image;
  minimumImage.convertTo(image, CV_32F);
  double threshold = 0.0;
  const cv::Mat mask = ExcessMask(image, threshold);
  if (std::isnan(threshold)) return -1;
  cv::Mat labels, stats, centroids;
  const int n = cv::connectedComponentsWithStats(mask, labels, stats, centroids, 8, CV_32S);
  int regions = 0;
  // Map value of every label: 255 for the regions that count, 0 for the background and the rest.
  std::vector<uchar> value(static_cast<std::size_t>(n), 0);
  for (int i = 1; i < n; ++i) {
    if (stats.at<int>(i, cv::CC_STAT_AREA) >= kMinRegionArea) {
      ++regions;
      value[static_cast<std::size_t>(i)] = 255;
    }
  }
  cv::Mat map(labels.rows, labels.cols, CV_8U);
  for (int y = 0; y < labels.rows; ++y) {
    const int* label = labels.ptr<int>(y);
    uchar* out = map.ptr<uchar>(y);
    for (int x = 0; x < labels.cols; ++x) out[x] = value[static_cast<std::size_t>(label[x])];
  }
  defectMap = map;
  return regions;
}
