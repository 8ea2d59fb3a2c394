// SHA-256 of an input file, recorded in results.json so that a result can be traced to the exact
// bytes it was measured on. Any readable file or byte run; OpenSSL's libcrypto does the hashing.
#pragma once

#include <cstddef>
#include <memory>
#include <string>

namespace ombrix_tool {

// A digest fed piece by piece, so that a reader can hash each chunk of a file while it is still in
// the cache, right after reading it.
class Sha256Digest {
 public:
  Sha256Digest();
  ~Sha256Digest();
  Sha256Digest(const Sha256Digest&) = delete;
  Sha256Digest& operator=(const Sha256Digest&) = delete;

  void Update(const void* data, std::size_t size);
  // Lower-case hexadecimal digest of everything given to Update; ends the digest.
  std::string Finish();

 private:
  struct Context;
  std::unique_ptr<Context> context_;
};

// Lower-case hexadecimal digest of the file's bytes. Throws ToolError (exit 2) naming the file
// when it cannot be read.
std::string Sha256OfFile(const std::string& path);

// Digest of a byte string (for the known test vectors).
std::string Sha256OfBytes(const std::string& bytes);

}  // namespace ombrix_tool
