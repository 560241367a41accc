// What the fuzz targets share: taking an input apart, and stating what must hold.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

// What the fuzzer calls with each input.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace Tarnlo::fuzz {

// Ends the program, which is how the fuzzer learns of a finding.
inline void Require(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "does not hold: %s\n", what);
  std::abort();
}

// The bytes of one input, taken from the front. What is missing is 0 or empty.
class Input {
 public:
  Input(const std::uint8_t* data, std::size_t size)
      : m_rest(reinterpret_cast<const char*>(data), size) {}

  std::uint8_t Byte() {
    if (m_rest.empty()) return 0;
    const auto byte = static_cast<std::uint8_t>(m_rest.front());
    m_rest.remove_prefix(1);
    return byte;
  }
  // Little-endian.
  template <typename Number>
  Number Take() {
    std::uint64_t number = 0;
    for (std::size_t i = 0; i < sizeof(Number); ++i) number |= std::uint64_t{Byte()} << (8 * i);
    return static_cast<Number>(number);
  }
  std::string_view Bytes(std::size_t count) {
    const std::string_view bytes = m_rest.substr(0, count);
    m_rest.remove_prefix(bytes.size());
    return bytes;
  }
  // Up to the separator, which goes too.
  std::string_view Until(std::string_view separator) {
    const std::size_t at = m_rest.find(separator);
    if (at == std::string_view::npos) return Bytes(m_rest.size());
    const std::string_view bytes = Bytes(at);
    m_rest.remove_prefix(separator.size());
    return bytes;
  }
  std::string_view Line() { return Until("\n"); }
  [[nodiscard]] std::string_view rest() const { return m_rest; }

 private:
  std::string_view m_rest;
};

// A character a byte; after the byte FF two more make a character of 16 bits.
inline std::wstring Wide(std::string_view bytes) {
  std::wstring text;
  while (!bytes.empty()) {
    const auto first = static_cast<unsigned char>(bytes.front());
    if (first == 0xFF && bytes.size() >= 3) {
      text += static_cast<wchar_t>(static_cast<unsigned char>(bytes[1]) |
                                   static_cast<unsigned char>(bytes[2]) << 8);
      bytes.remove_prefix(3);
    } else {
      text += static_cast<wchar_t>(first);
      bytes.remove_prefix(1);
    }
  }
  return text;
}

inline bool Contains(std::wstring_view text, std::wstring_view part) {
  return text.find(part) != std::wstring_view::npos;
}
inline bool ContainsAny(std::wstring_view text, std::wstring_view characters) {
  return text.find_first_of(characters) != std::wstring_view::npos;
}

}  // namespace Tarnlo::fuzz
