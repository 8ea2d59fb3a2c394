// Where the running program's file lies, so that a program can load the plug-ins installed beside
// it whatever the working directory: /proc/self/exe on Linux, GetModuleFileNameW on Windows.
#pragma once

#include <filesystem>

namespace platform {

// The absolute path of the running executable; empty when the system does not tell.
std::filesystem::path ExecutablePath();

// The folder holding it; empty when the system does not tell.
std::filesystem::path ExecutableFolder();

}  // namespace platform
