// The x,y,w,h rectangles of the command line (--roi, --region): parsed with the option's name in
// every message, and checked against an image.
#pragma once

#include <opencv2/core.hpp>
#include <string>

namespace ombrix_tool {

// "x,y,w,h" in pixels, x and y not negative, w and h at least minimumSize. Throws ToolError
// (exit 2) naming the option otherwise.
cv::Rect ParseRect(const std::string& option, const std::string& text, int minimumSize);

// Throws ToolError (exit 2) naming the option and the image when the rectangle reaches outside.
void RequireInside(const std::string& option, const cv::Rect& rect, const cv::Size& size,
                   const std::string& image);

}  // namespace ombrix_tool
