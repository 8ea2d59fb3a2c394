#include "ExecutablePath.h"

#include <system_error>
#include <vector>

#if defined(_WIN32)
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>
#endif

namespace platform {

std::filesystem::path ExecutablePath() {
#if defined(_WIN32)
  // Long paths: grow the buffer until the name fits.
  std::vector<wchar_t> buffer(MAX_PATH);
  for (;;) {
    const DWORD length =
        GetModuleFileNameW(nullptr, buffer.data(), static_cast<DWORD>(buffer.size()));
    if (length == 0) return std::filesystem::path();
    if (length < buffer.size()) return std::filesystem::path(std::wstring(buffer.data(), length));
    buffer.resize(buffer.size() * 2);
  }
#else
  std::error_code code;
  const std::filesystem::path path = std::filesystem::read_symlink("/proc/self/exe", code);
  return code ? std::filesystem::path() : path;
#endif
}

std::filesystem::path ExecutableFolder() { return ExecutablePath().parent_path(); }

}  // namespace platform
