// SHA-256 of an input file, recorded in results.json so that a result can be traced to the exact
// bytes it was measured on. Any readable file; OpenSSL's libcrypto does the hashing.
#pragma once

#include <string>

namespace ombrix_tool {

// Lower-case hexadecimal digest of the file's bytes. Throws ToolError (exit 2) naming the file
// when it cannot be read.
std::string Sha256OfFile(const std::string& path);

// The whole file's bytes; throws ToolError (exit 2) naming the file when it cannot be read.
std::string ReadFileBytes(const std::string& path);

// Digest of a byte string (for the known test vectors).
std::string Sha256OfBytes(const std::string& bytes);

}  // namespace ombrix_tool
