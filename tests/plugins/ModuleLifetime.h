// Included once by each test plug-in: names the module after its file (so that copies of one
// plug-in loaded from different files tell apart) and records "<name> load" and "<name> unload";
// ObjectLifetime records the creation and destruction of the objects the plug-in makes.
#pragma once

#include <filesystem>
#include <string>

#include "DynamicLibrary.h"
#include "PluginEvents.h"

namespace {

const char g_moduleMarker = 0;

// File stem of the module holding this code, as the loader was given it, in UTF-8 (a Windows path
// may hold characters the narrow code page cannot spell).
std::string ThisModuleName() {
  return DynamicLibrary::ModuleFileOf(&g_moduleMarker).stem().u8string();
}

void RecordModuleEvent(const std::string& what) {
  plugin_events::Record(ThisModuleName() + " " + what);
}

// Its constructor runs when the library is loaded, its destructor when it is unloaded.
struct ModuleLifetime {
  ModuleLifetime() { RecordModuleEvent("load"); }
  ~ModuleLifetime() { RecordModuleEvent("unload"); }
};

const ModuleLifetime g_moduleLifetime;

// The arguments "GetInstance" was given, as the events spell them.
inline std::string InstanceArguments(int variant, bool hasLogger) {
  return "variant=" + std::to_string(variant) + " logger=" + (hasLogger ? "yes" : "no");
}

// A base of each object a test plug-in makes: records "<name> create <arguments>" when the
// object is made and "<name> destroy" when it goes.
struct ObjectLifetime {
  ObjectLifetime(int variant, bool hasLogger) {
    RecordModuleEvent("create " + InstanceArguments(variant, hasLogger));
  }
  ~ObjectLifetime() { RecordModuleEvent("destroy"); }
};

}  // namespace
