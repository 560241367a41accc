#include "examples/tarnlo_get/file_md5.h"

#include <windows.h>

// After windows.h.
#include <wincrypt.h>

#include <array>
#include <fstream>
#include <vector>

namespace host {
namespace {

// The system's.
class Md5 {
 public:
  Md5() {
    CryptAcquireContextW(&m_provider, nullptr, nullptr, PROV_RSA_FULL, CRYPT_VERIFYCONTEXT);
    CryptCreateHash(m_provider, CALG_MD5, 0, 0, &m_hash);
  }
  Md5(const Md5&) = delete;
  Md5& operator=(const Md5&) = delete;
  ~Md5() {
    CryptDestroyHash(m_hash);
    CryptReleaseContext(m_provider, 0);
  }
  // Empty when the file cannot be read. Once.
  std::wstring HexDigestOf(const std::filesystem::path& path) const {
    std::ifstream file(path, std::ios::binary);
    std::vector<char> block(1 << 20);
    while (file.read(block.data(), static_cast<std::streamsize>(block.size())), file.gcount() > 0) {
      const auto* bytes = reinterpret_cast<const BYTE*>(block.data());
      if (CryptHashData(m_hash, bytes, static_cast<DWORD>(file.gcount()), 0) == 0) return {};
    }
    if (!file.eof()) return {};
    std::array<BYTE, 16> digest{};
    auto size = static_cast<DWORD>(digest.size());
    if (CryptGetHashParam(m_hash, HP_HASHVAL, digest.data(), &size, 0) == 0) return {};
    std::wstring text;
    for (const BYTE byte : digest) {
      for (const int digit : {byte >> 4, byte & 15}) text += L"0123456789ABCDEF"[digit];
    }
    return text;
  }

 private:
  HCRYPTPROV m_provider = 0;
  HCRYPTHASH m_hash = 0;
};

}  // namespace

std::wstring HexMd5Of(const std::filesystem::path& path) {
  return Md5().HexDigestOf(path);
}

}  // namespace host
