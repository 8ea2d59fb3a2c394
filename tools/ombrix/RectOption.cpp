#include "RectOption.h"

#include <sstream>

#include "ToolError.h"

namespace ombrix_tool {

cv::Rect ParseRect(const std::string& option, const std::string& text, int minimumSize) {
  long values[4] = {0, 0, 0, 0};
  char separators[3] = {0, 0, 0};
  std::istringstream in(text);
  in >> values[0] >> separators[0] >> values[1] >> separators[1] >> values[2] >> separators[2] >>
      values[3];
  char rest = 0;
  const bool complete = static_cast<bool>(in) && !(in >> rest);
  if (!complete || separators[0] != ',' || separators[1] != ',' || separators[2] != ',') {
    throw UsageError(option + ": expected x,y,w,h in pixels, got \"" + text + "\"");
  }
  constexpr long kLimit = 1L << 30;
  for (long v : values) {
    if (v > kLimit) throw UsageError(option + ": value too large in \"" + text + "\"");
  }
  if (values[0] < 0 || values[1] < 0 || values[2] < minimumSize || values[3] < minimumSize) {
    throw UsageError(option + ": x and y must not be negative and w, h at least " +
                     std::to_string(minimumSize) + " pixels, got \"" + text + "\"");
  }
  return cv::Rect(static_cast<int>(values[0]), static_cast<int>(values[1]),
                  static_cast<int>(values[2]), static_cast<int>(values[3]));
}

void RequireInside(const std::string& option, const cv::Rect& rect, const cv::Size& size,
                   const std::string& image) {
  if (rect.x + static_cast<long>(rect.width) > size.width ||
      rect.y + static_cast<long>(rect.height) > size.height) {
    throw UsageError(option + ": " + std::to_string(rect.x) + "," + std::to_string(rect.y) + "," +
                     std::to_string(rect.width) + "," + std::to_string(rect.height) +
                     " reaches outside " + image + " (" + std::to_string(size.width) + " x " +
                     std::to_string(size.height) + ")");
  }
}

}  // namespace ombrix_tool
