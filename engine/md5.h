// The MD5 digest of RFC 1321.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

namespace Tarnlo {

// Bytes in any number of pieces, then the end, then the text. Threads: one at a time.
class MD5 {
 public:
  MD5() = default;
  MD5(const MD5&) = default;
  MD5& operator=(const MD5&) = default;
  virtual ~MD5() = default;

  void Update(const void* bytes, std::size_t length);
  // Once, after the last byte.
  void Finalize();
  // 32 upper-case hexadecimal digits; of the digest that `Finalize` made.
  [[nodiscard]] std::wstring HexDigest() const;

 private:
  static constexpr std::size_t kBlockBytes = 64;
  using Chain = std::array<std::uint32_t, 4>;

  template <std::size_t kStep>
  static void Step(Chain& chain, const std::array<std::uint32_t, 16>& words);
  static void Transform(Chain& chain, const std::uint8_t* blocks, std::size_t count);

  Chain m_chain = {0x67452301, 0xEFCDAB89, 0x98BADCFE, 0x10325476};
  std::uint64_t m_bits = 0;  // taken so far, modulo 2^64
  std::array<std::uint8_t, kBlockBytes> m_block{};
  std::array<std::uint8_t, 16> m_digest{};
};

}  // namespace Tarnlo
