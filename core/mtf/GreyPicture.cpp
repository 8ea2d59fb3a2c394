#include "mtf/GreyPicture.h"

#include <opencv2/imgproc.hpp>

cv::Mat GreyPicture(const cv::Mat& image, bool rgbOrder) {
  const int channels = image.channels();
  if (channels == 1) return image;
  cv::Mat grey;
  if (channels == 3 || channels == 4) {
    const int code = rgbOrder ? (channels == 3 ? cv::COLOR_RGB2GRAY : cv::COLOR_RGBA2GRAY)
                              : (channels == 3 ? cv::COLOR_BGR2GRAY : cv::COLOR_BGRA2GRAY);
    cv::cvtColor(image, grey, code);
    return grey;
  }
  if (image.dims > 2 || image.empty()) {
    cv::error(cv::Error::StsBadArg, "a grey picture needs a non-empty 2-D image", "GreyPicture",
              __FILE__, __LINE__);
  }
  // Channels become the columns of one row per pixel; their mean is taken in double.
  const cv::Mat continuous = image.isContinuous() ? image : image.clone();
  cv::Mat mean;
  cv::reduce(continuous.reshape(1, static_cast<int>(continuous.total())), mean, 1, cv::REDUCE_AVG,
             CV_64F);
  mean.reshape(1, image.rows).convertTo(grey, image.depth());
  return grey;
}
