// Test plug-in whose "GetInstance" declines to make an object.
#include <memory>

#include "IOmbrixProcessing.h"
#include "ModuleLifetime.h"

extern "C" OMBRIX_PLUGIN_API IOmbrixProcessing* GetInstance(int variant,
                                                            std::shared_ptr<ILogger> logger) {
  RecordModuleEvent("null-instance " + InstanceArguments(variant, logger != nullptr));
  return nullptr;
}
