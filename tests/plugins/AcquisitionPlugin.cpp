// Test acquisition plug-in, built without OpenCV so that the loader is exercised on every
// platform (the Windows cross build included): its "GetInstance" makes an object that records its
// creation, with the arguments it was given, and its destruction.
#include <memory>

#include "ModuleLifetime.h"
#include "PluginTypes.h"

namespace {

class CRecordingAcquisition : public IOmbrixAcquisition, private ObjectLifetime {
 public:
  CRecordingAcquisition(int variant, bool hasLogger) : ObjectLifetime(variant, hasLogger) {}
};

}  // namespace

extern "C" OMBRIX_PLUGIN_API IOmbrixAcquisition* GetInstance(int variant,
                                                             std::shared_ptr<ILogger> logger) {
  return new CRecordingAcquisition(variant, logger != nullptr);
}
