#include "support/os/code_page.h"

#include <iconv.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

namespace Tarnlo::os {
namespace {

constexpr unsigned kSystemCodePage = 1252;
constexpr wchar_t kReplacement = 0xFFFD;

std::string NameOf(unsigned code_page) {
  if (code_page == kUtf8) return "UTF-8";
  if (code_page == kAnsi || code_page == kThreadAnsi) code_page = kSystemCodePage;
  return "CP" + std::to_string(code_page);
}

// One conversion of the system's.
class Converter {
 public:
  Converter(const char* to, const char* from) : m_native(iconv_open(to, from)) {}
  Converter(const Converter&) = delete;
  Converter& operator=(const Converter&) = delete;
  ~Converter() {
    if (valid()) iconv_close(m_native);
  }

  [[nodiscard]] bool valid() const {
    return m_native != reinterpret_cast<iconv_t>(std::intptr_t{-1});
  }
  // Converts up to the first place that cannot be converted and appends to `result`. What was used
  // is taken off `input`; true when nothing is left of it.
  bool Run(std::string_view& input, std::string& result) {
    std::array<char, 1024> block{};
    for (;;) {
      char* from = const_cast<char*>(input.data());
      std::size_t left = input.size();
      char* to = block.data();
      std::size_t room = block.size();
      const bool done = iconv(m_native, &from, &left, &to, &room) != kFailure;
      const int error = errno;
      result.append(block.data(), block.size() - room);
      input.remove_prefix(input.size() - left);
      if (done || error != E2BIG) return done;
    }
  }

 private:
  static constexpr auto kFailure = static_cast<std::size_t>(-1);
  iconv_t m_native;
};

std::string_view BytesOf(const wchar_t* text, std::size_t count) {
  return {reinterpret_cast<const char*>(text), count * sizeof(wchar_t)};
}

// Windows gives the bytes that its code pages leave free the control characters of their number.
bool IsControl(wchar_t c) {
  return c >= 0x80 && c < 0xA0;
}

}  // namespace

std::optional<std::string> WideToCodePage(std::wstring_view text, unsigned code_page,
                                          std::size_t max_bytes) {
  Converter converter(NameOf(code_page).c_str(), "WCHAR_T");
  if (text.empty() || !converter.valid()) return std::nullopt;
  std::string bytes;
  std::string_view rest = BytesOf(text.data(), text.size());
  while (!converter.Run(rest, bytes)) {
    wchar_t c = 0;
    std::memcpy(&c, rest.data(), sizeof(c));
    if (code_page == kUtf8) {
      bytes += "\xEF\xBF\xBD";
    } else {
      bytes += IsControl(c) ? static_cast<char>(static_cast<unsigned char>(c)) : '?';
    }
    rest.remove_prefix(sizeof(c));
  }
  if (bytes.size() > max_bytes) return std::nullopt;
  return bytes;
}

std::wstring CodePageToWide(std::string_view bytes, unsigned code_page) {
  Converter converter("WCHAR_T", NameOf(code_page).c_str());
  if (bytes.empty() || !converter.valid()) return {};
  std::string wide;
  while (!converter.Run(bytes, wide)) {
    const auto control = static_cast<wchar_t>(static_cast<unsigned char>(bytes.front()));
    const wchar_t c = code_page != kUtf8 && IsControl(control) ? control : kReplacement;
    wide += BytesOf(&c, 1);
    bytes.remove_prefix(1);
  }
  std::wstring text(wide.size() / sizeof(wchar_t), L'\0');
  std::memcpy(text.data(), wide.data(), text.size() * sizeof(wchar_t));
  return text;
}

}  // namespace Tarnlo::os
