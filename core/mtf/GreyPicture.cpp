#include "mtf/GreyPicture.h"

#include <opencv2/imgproc.hpp>
#include <vector>

cv::Mat GreyPicture(const cv::Mat& image, bool rgbOrder) {
  const int channels = image.channels();
  if (channels == 1) return image;
  cv::Mat grey;
  if (channels == 3 || channels == 4) {
    // OpenCV converts colour in 8U, 16U and 32F only; other depths go through 32F.
    const int depth = image.depth();
    if (depth != CV_8U && depth != CV_16U && depth != CV_32F) {
      cv::Mat asFloat;
      image.convertTo(asFloat, CV_32F);
      return GreyPicture(asFloat, rgbOrder);
    }
    const int code = rgbOrder ? (channels == 3 ? cv::COLOR_RGB2GRAY : cv::COLOR_RGBA2GRAY)
                              : (channels == 3 ? cv::COLOR_BGR2GRAY : cv::COLOR_BGRA2GRAY);
    cv::cvtColor(image, grey, code);
    return grey;
  }
  if (image.dims > 2 || image.empty()) {
    cv::error(cv::Error::StsBadArg, "a grey picture needs a non-empty 2-D image", "GreyPicture",
              __FILE__, __LINE__);
  }
  // The mean of the channels, summed in double in channel order.
  std::vector<cv::Mat> planes;
  cv::split(image, planes);
  cv::Mat sum = cv::Mat::zeros(image.rows, image.cols, CV_64F);
  for (const cv::Mat& plane : planes) cv::add(sum, plane, sum, cv::noArray(), CV_64F);
  sum.convertTo(grey, image.depth(), 1.0 / channels);
  return grey;
}
