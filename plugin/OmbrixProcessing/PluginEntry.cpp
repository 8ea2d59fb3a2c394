// The library's only export: makes a processing plug-in object for the host.
#include <new>

#include "OmbrixProcessing.h"

extern "C" OMBRIX_PLUGIN_API IOmbrixProcessing* GetInstance(int variant,
                                                            std::shared_ptr<ILogger> logger) {
  // Variant 0 is the only processing plug-in this library makes.
  if (variant != 0) return nullptr;
  return new (std::nothrow) COmbrixProcessing(std::move(logger));
}
