// What every plug-in kind shares, without OpenCV: the logger the host hands to a plug-in's entry,
// the acquisition plug-in's interface, the entry's calling shape and its export decoration. The
// processing plug-in's own contract (its operations and records) is in IOmbrixProcessing.h.
#pragma once

#include <memory>

// Logger owned by the host and shared with plug-ins. The host hands plug-ins an empty pointer, so
// no operation beyond destruction is part of the contract.
class ILogger {
 public:
  virtual ~ILogger() = default;
};

// Acquisition plug-in: a factory slot exists for it, its operations are defined by that plug-in.
class IOmbrixAcquisition {
 public:
  virtual ~IOmbrixAcquisition() = default;
};

// Entry points a plug-in library exports under the undecorated name "GetInstance". The int selects
// the plug-in variant (the host passes 0); the callee owns the logger copy it receives. The result
// is a newly made object released through its virtual destructor, or null.
using AcquisitionFactoryFn = IOmbrixAcquisition* (*)(int, std::shared_ptr<ILogger>);

// Export decoration for a plug-in library's entry, the only symbol a plug-in exports (its code is
// built with hidden symbols). A plug-in defines OMBRIX_PLUGIN_EXPORTS when it builds; the host only
// ever resolves the entry by name.
#if defined(_WIN32)
#if defined(OMBRIX_PLUGIN_EXPORTS)
#define OMBRIX_PLUGIN_API __declspec(dllexport)
#else
#define OMBRIX_PLUGIN_API
#endif
#else
#define OMBRIX_PLUGIN_API __attribute__((visibility("default")))
#endif
