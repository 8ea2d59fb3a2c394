// What the tool's tests read back from the files the tool and its report library wrote, and the
// error the library raised instead: "<path>: <reason>". Accepts any path and any callable.
#pragma once

#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>

#include "ThrownMessage.h"

namespace ombrix_tool_test {

// The file's bytes; "" when it cannot be read.
inline std::string ReadText(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

// The std::runtime_error message the call raised, or "" when it raised none.
template <typename Call>
std::string ErrorOf(Call&& call) {
  return testerrors::ThrownMessage<std::runtime_error>(std::forward<Call>(call));
}

inline bool StartsWith(const std::string& text, const std::string& prefix) {
  return text.compare(0, prefix.size(), prefix) == 0;
}

}  // namespace ombrix_tool_test
