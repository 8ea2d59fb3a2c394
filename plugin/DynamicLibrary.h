// The operating system's dynamic-library calls behind the plug-in factories: load a library by
// absolute path, resolve an exported entry by its narrow name, free the library, name the module
// that holds an address, tell whether a library is loaded. LoadLibraryW, GetProcAddress,
// FreeLibrary, GetModuleFileNameW and GetModuleHandleW on Windows; dlopen, dlsym, dlclose and
// dladdr elsewhere.
#pragma once

#include <cstddef>
#include <filesystem>

namespace DynamicLibrary {

// An HMODULE on Windows, a dlopen handle elsewhere; null when nothing is loaded.
using Handle = void*;

// Any exported function; callers cast it to the entry's real type.
using Symbol = void (*)();

// Loads the library at an absolute path. Null when the system refuses it.
Handle Load(const std::filesystem::path& absolutePath);

// The address of the entry exported under name, or null when the library has none.
Symbol Resolve(Handle library, const char* name);

// Releases one reference to the library; it is unloaded when the last one goes. A null handle is
// a no-op (not counted by FreeCount).
void Free(Handle library);

// The file of the loaded module (library or program) that holds the address, as the loader was
// given it; empty when no module holds it.
std::filesystem::path ModuleFileOf(const void* address);

// Whether the library at path is mapped into the process right now, asked of the system itself
// without loading it (GetModuleHandleW; dlopen with RTLD_NOLOAD), so that owners can be checked
// for having unloaded it.
bool IsLoaded(const std::filesystem::path& path);

// Number of Free calls made by this process, so that owners can be checked for releasing
// exactly what they loaded.
std::size_t FreeCount();

}  // namespace DynamicLibrary
