#include "mtf/MtfDrawing.h"

#include <iomanip>
#include <opencv2/imgproc.hpp>
#include <sstream>
#include <string>

void DrawMtfResults(const cv::Mat& image, const MtfTargetMap& targets, cv::Mat& output) {
  cv::Mat grey = CMtfMeasurement::Grey(image);
  cv::Mat grey8;
  if (grey.depth() == CV_8U) {
    grey8 = grey;
  } else {
    cv::normalize(grey, grey8, 0, 255, cv::NORM_MINMAX, CV_8U);
  }
  cv::cvtColor(grey8, output, cv::COLOR_GRAY2BGR);

  const cv::Scalar targetColour(0, 0, 255);
  const cv::Scalar regionColour(0, 200, 0);
  const cv::Scalar textColour(255, 64, 0);
  const int font = cv::FONT_HERSHEY_SIMPLEX;
  for (const auto& [number, target] : targets) {
    cv::Point2f corners[4];
    target.box.points(corners);
    for (int i = 0; i < 4; ++i) {
      cv::line(output, corners[i], corners[(i + 1) % 4], targetColour, 2, cv::LINE_AA);
    }
    cv::rectangle(output, target.box.boundingRect(), targetColour, 1);
    cv::putText(output, std::to_string(number), target.box.center, font, 1.0, targetColour, 2);
    for (const MtfEdge& edge : target.edges) {
      cv::rectangle(output, edge.region, regionColour, 1);
      std::ostringstream text;
      text << std::fixed << std::setprecision(3) << edge.result.cutFrequency << " "
           << std::setprecision(1) << edge.result.efficiency << "%";
      cv::putText(output, text.str(), cv::Point(edge.region.x, edge.region.y - 4), font, 0.5,
                  textColour, 1);
    }
  }
}
