// Loader of one plug-in library: finds the file relative to the working directory, loads it,
// calls its "GetInstance" entry and hands the object out under shared ownership. FactoryFn is the
// entry's pointer type, Product* (*)(int, std::shared_ptr<ILogger>).
#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <system_error>
#include <type_traits>

#include "DynamicLibrary.h"
#include "PluginTypes.h"

// Widens a narrow path byte by byte: each byte is taken as a signed char and sign-extended to a
// 16-bit character, without any code page. ASCII passes unchanged; a byte of 0x80 or above becomes
// a character in 0xFF80..0xFFFF.
std::u16string WidenBySignExtension(const std::string& narrow);

template <class FactoryFn>
class IFactoryBase {
 public:
  using Product =
      std::remove_pointer_t<std::invoke_result_t<FactoryFn, int, std::shared_ptr<ILogger>>>;

  IFactoryBase() = default;
  IFactoryBase(const IFactoryBase&) = delete;
  IFactoryBase& operator=(const IFactoryBase&) = delete;

  virtual ~IFactoryBase() {
    if (m_hModule != nullptr) DynamicLibrary::Free(m_hModule);
  }

  // A string literal takes the narrow route, as a std::string would.
  bool Load(const char* path) { return Load(std::string(path)); }

  bool Load(std::string path) { return Load(std::filesystem::path(WidenBySignExtension(path))); }

  // A relative path is taken against the working directory at the time of the call. A library
  // loaded earlier by this factory is replaced without being freed, so objects it made stay valid.
  bool Load(std::filesystem::path path) {
    std::error_code code;
    const std::filesystem::path absolutePath = std::filesystem::absolute(path, code);
    if (code) throw std::filesystem::filesystem_error("absolute", path, code);
    if (!std::filesystem::exists(absolutePath, code)) {
      if (code) throw std::filesystem::filesystem_error("exists", absolutePath, code);
      return false;
    }
    m_hModule = DynamicLibrary::Load(absolutePath);
    return m_hModule != nullptr;
  }

  // Calls the library's "GetInstance" with 0 and a copy of the logger. The entry is deliberately
  // not checked: without a loaded library or without the export the call faults, and callers rely
  // on Load having succeeded. A null object still gets its own control block and tests empty.
  std::shared_ptr<Product> CreateInstance(std::shared_ptr<ILogger> logger) {
    const std::string entryName = "GetInstance";
    // Read back through volatile so that the optimiser cannot reason about the null entry and
    // the fault stays a plain call of address zero.
    FactoryFn volatile entry = nullptr;
    if (m_hModule != nullptr) {
      entry = reinterpret_cast<FactoryFn>(DynamicLibrary::Resolve(m_hModule, entryName.c_str()));
    }
    const FactoryFn call = entry;
    Product* const object = call(0, logger);
    return std::shared_ptr<Product>(object);
  }

  DynamicLibrary::Handle LibraryHandle() const { return m_hModule; }

 protected:
  DynamicLibrary::Handle m_hModule = nullptr;
};
