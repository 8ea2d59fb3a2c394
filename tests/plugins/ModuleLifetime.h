// Included once by each test plug-in: names the module after its file (so that copies of one
// plug-in loaded from different files tell apart) and records "<name> load" and "<name> unload".
#pragma once

#include <filesystem>
#include <string>

#include "PluginEvents.h"

#if defined(_WIN32)
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>
#else
#include <dlfcn.h>
#endif

namespace {

const char g_moduleMarker = 0;

// File stem of the module holding this code, as the loader was given it.
std::string ThisModuleName() {
#if defined(_WIN32)
  HMODULE module = nullptr;
  GetModuleHandleExW(
      GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
      reinterpret_cast<LPCWSTR>(&g_moduleMarker), &module);
  wchar_t fileName[4096] = {};
  GetModuleFileNameW(module, fileName, 4096);
  return std::filesystem::path(fileName).stem().string();
#else
  Dl_info info{};
  dladdr(&g_moduleMarker, &info);
  return std::filesystem::path(info.dli_fname != nullptr ? info.dli_fname : "").stem().string();
#endif
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

}  // namespace
