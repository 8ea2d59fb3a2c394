#include "LabellingReference.h"

#include <vector>

namespace oracle {

cv::Mat RasterLabels(const cv::Mat& binary) {
  CV_Assert(binary.type() == CV_8UC1);
  const int rows = binary.rows;
  const int cols = binary.cols;
  cv::Mat labels = cv::Mat::zeros(rows, cols, CV_32S);
  int next = 0;
  std::vector<cv::Point> stack;
  for (int y = 0; y < rows; ++y) {
    for (int x = 0; x < cols; ++x) {
      if (binary.at<uchar>(y, x) == 0 || labels.at<int>(y, x) != 0) continue;
      const int label = ++next;
      labels.at<int>(y, x) = label;
      stack.assign(1, cv::Point(x, y));
      while (!stack.empty()) {
        const cv::Point p = stack.back();
        stack.pop_back();
        for (int dy = -1; dy <= 1; ++dy) {
          for (int dx = -1; dx <= 1; ++dx) {
            const cv::Point n(p.x + dx, p.y + dy);
            if (n.x < 0 || n.x >= cols || n.y < 0 || n.y >= rows) continue;
            if (binary.at<uchar>(n) == 0 || labels.at<int>(n) != 0) continue;
            labels.at<int>(n) = label;
            stack.push_back(n);
          }
        }
      }
    }
  }
  return labels;
}

}  // namespace oracle
