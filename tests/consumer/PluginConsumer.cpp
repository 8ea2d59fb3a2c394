// Loads the installed processing plug-in module through the installed factory, makes a plug-in
// object and asks it for a stack minimum whose answer is computed here. Exit status 0 when every
// check holds. The module's path may be given as the first argument (e.g. from an unpacked
// Debian package); otherwise the one the CMake package names is used.
#include <algorithm>
#include <cstdio>
#include <memory>
#include <opencv2/core.hpp>
#include <string>
#include <vector>

#include "FactoryCollection.h"

namespace {

int failures = 0;

void Check(bool condition, const char* what) {
  if (!condition) {
    std::fprintf(stderr, "FAILED: %s\n", what);
    ++failures;
  }
}

}  // namespace

int main(int argc, char** argv) {
  const std::string module = argc > 1 ? argv[1] : OMBRIX_INSTALLED_MODULE;
  {
    CFactoryCollection collection;
    // A missing file is refused before anything is loaded.
    Check(!collection.m_factoryAcquisition.Load(module + ".missing"), "missing file refused");
    if (!collection.m_factoryProcessing.Load(module)) {
      std::fprintf(stderr, "FAILED: cannot load %s\n", module.c_str());
      return 1;
    }
    std::shared_ptr<IOmbrixProcessing> processing =
        collection.m_factoryProcessing.CreateInstance(std::shared_ptr<ILogger>());
    Check(processing != nullptr, "GetInstance makes an object");
    if (processing != nullptr) {
      cv::Mat a(3, 4, CV_8UC1), b(3, 4, CV_8UC1);
      for (int i = 0; i < 12; ++i) {
        a.data[i] = static_cast<unsigned char>(20 * i);
        b.data[i] = static_cast<unsigned char>(230 - 20 * i);
      }
      cv::Mat minimum;
      processing->StackMinimum(minimum, std::vector<cv::Mat>{a, b});
      bool same = minimum.size() == a.size() && minimum.type() == CV_8UC1;
      for (int i = 0; same && i < 12; ++i) {
        same = minimum.data[i] == std::min(a.data[i], b.data[i]);
      }
      Check(same, "stack minimum is the pixel-wise minimum");
    }
    processing.reset();  // before the collection unloads the module
  }
  if (failures == 0) std::printf("plug-in consumer: %s loaded and used\n", module.c_str());
  return failures == 0 ? 0 : 1;
}
