#include "DynamicLibrary.h"

#include <atomic>

#if defined(_WIN32)
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>
#else
#include <dlfcn.h>
#endif

namespace DynamicLibrary {

namespace {

std::atomic<std::size_t> g_freeCount{0};

}  // namespace

#if defined(_WIN32)

Handle Load(const std::filesystem::path& absolutePath) {
  return static_cast<Handle>(LoadLibraryW(absolutePath.c_str()));
}

Symbol Resolve(Handle library, const char* name) {
  return reinterpret_cast<Symbol>(GetProcAddress(static_cast<HMODULE>(library), name));
}

void Free(Handle library) {
  if (library == nullptr) return;
  ++g_freeCount;
  FreeLibrary(static_cast<HMODULE>(library));
}

std::filesystem::path ModuleFileOf(const void* address) {
  HMODULE module = nullptr;
  if (!GetModuleHandleExW(
          GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
          static_cast<LPCWSTR>(address), &module)) {
    return std::filesystem::path();
  }
  wchar_t fileName[4096] = {};
  GetModuleFileNameW(module, fileName, 4096);
  return std::filesystem::path(fileName);
}

bool IsLoaded(const std::filesystem::path& path) {
  return GetModuleHandleW(path.c_str()) != nullptr;
}

#else

Handle Load(const std::filesystem::path& absolutePath) {
  // Entries are resolved right away so that a library with missing dependencies fails here, as
  // LoadLibraryW does, rather than at its first call.
  return dlopen(absolutePath.c_str(), RTLD_NOW | RTLD_LOCAL);
}

Symbol Resolve(Handle library, const char* name) {
  return reinterpret_cast<Symbol>(dlsym(library, name));
}

void Free(Handle library) {
  // dlclose(nullptr) faults where FreeLibrary(NULL) is harmless: both are no-ops here.
  if (library == nullptr) return;
  ++g_freeCount;
  dlclose(library);
}

std::filesystem::path ModuleFileOf(const void* address) {
  Dl_info info{};
  if (dladdr(address, &info) == 0 || info.dli_fname == nullptr) return std::filesystem::path();
  return std::filesystem::path(info.dli_fname);
}

bool IsLoaded(const std::filesystem::path& path) {
  // RTLD_NOLOAD hands out a handle only to a library already mapped; that handle holds one more
  // reference, given back at once.
  void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_NOLOAD);
  if (handle == nullptr) return false;
  dlclose(handle);
  return true;
}

#endif

std::size_t FreeCount() { return g_freeCount.load(); }

}  // namespace DynamicLibrary
