#include "FactoryBase.h"

std::u16string WidenBySignExtension(const std::string& narrow) {
  std::u16string wide(narrow.size(), u'\0');
  for (std::size_t i = 0; i < narrow.size(); ++i) {
    const auto byte = static_cast<signed char>(narrow[i]);
    wide[i] = static_cast<char16_t>(static_cast<std::int16_t>(byte));
  }
  return wide;
}
