#include "Sha256.h"

#include <openssl/evp.h>

#include <array>
#include <fstream>
#include <stdexcept>
#include <vector>

#include "ToolError.h"

namespace ombrix_tool {

struct Sha256Digest::Context {
  EVP_MD_CTX* digest = EVP_MD_CTX_new();
  ~Context() { EVP_MD_CTX_free(digest); }
};

Sha256Digest::Sha256Digest() : context_(std::make_unique<Context>()) {
  if (context_->digest == nullptr ||
      EVP_DigestInit_ex(context_->digest, EVP_sha256(), nullptr) != 1) {
    throw std::runtime_error("SHA-256: the digest could not be started");
  }
}

Sha256Digest::~Sha256Digest() = default;

void Sha256Digest::Update(const void* data, std::size_t size) {
  if (size > 0 && EVP_DigestUpdate(context_->digest, data, size) != 1) {
    throw std::runtime_error("SHA-256: the digest could not be updated");
  }
}

std::string Sha256Digest::Finish() {
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  unsigned int length = 0;
  if (EVP_DigestFinal_ex(context_->digest, digest.data(), &length) != 1) {
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

std::string Sha256OfFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) throw UsageError(path + ": cannot be read");
  Sha256Digest digest;
  std::vector<char> buffer(1 << 20);
  while (file) {
    file.read(buffer.data(), static_cast<std::streamsize>(buffer.size()));
    const std::streamsize count = file.gcount();
    if (count > 0) digest.Update(buffer.data(), static_cast<std::size_t>(count));
  }
  if (file.bad()) throw UsageError(path + ": read error");
  return digest.Finish();
}

std::string Sha256OfBytes(const std::string& bytes) {
  Sha256Digest digest;
  digest.Update(bytes.data(), bytes.size());
  return digest.Finish();
}

}  // namespace ombrix_tool
