#include "Sha256.h"

#include <openssl/evp.h>

#include <array>
#include <fstream>
#include <memory>
#include <vector>

#include "ToolError.h"

namespace ombrix_tool {

namespace {

struct DigestContextDeleter {
  void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
};
using DigestContext = std::unique_ptr<EVP_MD_CTX, DigestContextDeleter>;

DigestContext NewContext() {
  DigestContext context(EVP_MD_CTX_new());
  if (!context || EVP_DigestInit_ex(context.get(), EVP_sha256(), nullptr) != 1) {
    throw std::runtime_error("SHA-256: the digest could not be started");
  }
  return context;
}

std::string Finish(EVP_MD_CTX* context) {
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  unsigned int length = 0;
  if (EVP_DigestFinal_ex(context, digest.data(), &length) != 1) {
    throw std::runtime_error("SHA-256: the digest could not be finished");
  }
  static const char kHex[] = "0123456789abcdef";
  std::string text;
  for (unsigned int i = 0; i < length; ++i) {
    text += kHex[digest[i] >> 4];
    text += kHex[digest[i] & 0x0F];
  }
  return text;
}

}  // namespace

std::string Sha256OfFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) throw UsageError(path + ": cannot be read");
  DigestContext context = NewContext();
  std::vector<char> buffer(1 << 20);
  while (file) {
    file.read(buffer.data(), static_cast<std::streamsize>(buffer.size()));
    const std::streamsize count = file.gcount();
    if (count > 0) EVP_DigestUpdate(context.get(), buffer.data(), static_cast<size_t>(count));
  }
  if (file.bad()) throw UsageError(path + ": read error");
  return Finish(context.get());
}

std::string ReadFileBytes(const std::string& path) {
  std::ifstream file(path, std::ios::binary | std::ios::ate);
  if (!file) throw UsageError(path + ": cannot be read");
  const std::streamoff size = file.tellg();
  if (size < 0 || size > std::streamoff(1) << 31) throw UsageError(path + ": cannot be read");
  std::string bytes(static_cast<std::size_t>(size), '\0');
  file.seekg(0);
  file.read(bytes.data(), size);
  if (!file) throw UsageError(path + ": read error");
  return bytes;
}

std::string Sha256OfBytes(const std::string& bytes) {
  DigestContext context = NewContext();
  EVP_DigestUpdate(context.get(), bytes.data(), bytes.size());
  return Finish(context.get());
}

}  // namespace ombrix_tool
