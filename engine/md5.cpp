#include "engine/md5.h"

#include <algorithm>
#include <bit>
#include <utility>

namespace Tarnlo {
namespace {

constexpr std::array<std::uint32_t, 64> kSine = {
    0xD76AA478, 0xE8C7B756, 0x242070DB, 0xC1BDCEEE, 0xF57C0FAF, 0x4787C62A, 0xA8304613, 0xFD469501,
    0x698098D8, 0x8B44F7AF, 0xFFFF5BB1, 0x895CD7BE, 0x6B901122, 0xFD987193, 0xA679438E, 0x49B40821,
    0xF61E2562, 0xC040B340, 0x265E5A51, 0xE9B6C7AA, 0xD62F105D, 0x02441453, 0xD8A1E681, 0xE7D3FBC8,
    0x21E1CDE6, 0xC33707D6, 0xF4D50D87, 0x455A14ED, 0xA9E3E905, 0xFCEFA3F8, 0x676F02D9, 0x8D2A4C8A,
    0xFFFA3942, 0x8771F681, 0x6D9D6122, 0xFDE5380C, 0xA4BEEA44, 0x4BDECFA9, 0xF6BB4B60, 0xBEBFBC70,
    0x289B7EC6, 0xEAA127FA, 0xD4EF3085, 0x04881D05, 0xD9D4D039, 0xE6DB99E5, 0x1FA27CF8, 0xC4AC5665,
    0xF4292244, 0x432AFF97, 0xAB9423A7, 0xFC93A039, 0x655B59C3, 0x8F0CCC92, 0xFFEFF47D, 0x85845DD1,
    0x6FA87E4F, 0xFE2CE6E0, 0xA3014314, 0x4E0811A1, 0xF7537E82, 0xBD3AF235, 0x2AD7D2BB, 0xEB86D391,
};
constexpr std::array<std::array<int, 4>, 4> kRotations = {
    {{7, 12, 17, 22}, {5, 9, 14, 20}, {4, 11, 16, 23}, {6, 10, 15, 21}}};
constexpr std::size_t kLengthBytes = 8;

constexpr std::size_t WordOf(std::size_t step) {
  switch (step / 16) {
    case 0:
      return step;
    case 1:
      return (5 * step + 1) % 16;
    case 2:
      return (3 * step + 5) % 16;
    default:
      return 7 * step % 16;
  }
}

// What a step adds to `a`, with `rest` (its word, its constant and `a` itself). `b` is the word
// that the step before has just made: it enters as late as can be.
template <std::size_t kRound>
std::uint32_t Mix(std::uint32_t rest, std::uint32_t b, std::uint32_t c, std::uint32_t d) {
  if constexpr (kRound == 0) return rest + (((c ^ d) & b) ^ d);
  if constexpr (kRound == 1) return rest + (c & ~d) + (b & d);  // the two share no bit
  if constexpr (kRound == 2) return rest + ((c ^ d) ^ b);
  if constexpr (kRound == 3) return rest + ((b | ~d) ^ c);
}

std::uint32_t LoadWord(const std::uint8_t* bytes) {
  return static_cast<std::uint32_t>(bytes[0]) | static_cast<std::uint32_t>(bytes[1]) << 8 |
         static_cast<std::uint32_t>(bytes[2]) << 16 | static_cast<std::uint32_t>(bytes[3]) << 24;
}

template <typename Number>
void StoreLittleEndian(Number number, std::uint8_t* bytes) {
  for (std::size_t i = 0; i < sizeof(number); ++i) {
    bytes[i] = static_cast<std::uint8_t>(number >> (8 * i));
  }
}

}  // namespace

// The roles of the four words turn by one with every step; all indices are known to the compiler,
// which keeps the words in registers.
template <std::size_t kStep>
inline void MD5::Step(Chain& chain, const std::array<std::uint32_t, 16>& words) {
  constexpr std::size_t kTurn = 64 - kStep;
  std::uint32_t& a = chain[kTurn % 4];
  const std::uint32_t b = chain[(kTurn + 1) % 4];
  const std::uint32_t c = chain[(kTurn + 2) % 4];
  const std::uint32_t d = chain[(kTurn + 3) % 4];
  const std::uint32_t rest = a + words[WordOf(kStep)] + kSine[kStep];
  a = b + std::rotl(Mix<kStep / 16>(rest, b, c, d), kRotations[kStep / 16][kStep % 4]);
}

void MD5::Transform(Chain& chain, const std::uint8_t* blocks, std::size_t count) {
  Chain sum = chain;
  for (; count > 0; --count, blocks += kBlockBytes) {
    std::array<std::uint32_t, 16> words{};
    for (std::size_t i = 0; i < words.size(); ++i) words[i] = LoadWord(blocks + 4 * i);
    Chain turning = sum;
    [&]<std::size_t... kSteps>(std::index_sequence<kSteps...>) {
      (Step<kSteps>(turning, words), ...);
    }
    (std::make_index_sequence<64>());
    for (std::size_t i = 0; i < sum.size(); ++i) sum[i] += turning[i];
  }
  chain = sum;
}

void MD5::Update(const void* bytes, std::size_t length) {
  const auto* input = static_cast<const std::uint8_t*>(bytes);
  const auto held = static_cast<std::size_t>(m_bits / 8 % kBlockBytes);
  m_bits += static_cast<std::uint64_t>(length) * 8;
  if (held > 0) {
    const std::size_t taken = std::min(length, kBlockBytes - held);
    std::copy_n(input, taken, m_block.data() + held);
    input += taken;
    length -= taken;
    if (held + taken < kBlockBytes) return;
    Transform(m_chain, m_block.data(), 1);
  }
  const std::size_t blocks = length / kBlockBytes;
  Transform(m_chain, input, blocks);
  std::copy_n(input + blocks * kBlockBytes, length % kBlockBytes, m_block.data());
}

void MD5::Finalize() {
  static constexpr std::array<std::uint8_t, kBlockBytes> kPadding = {0x80};
  std::array<std::uint8_t, kLengthBytes> bits{};
  StoreLittleEndian(m_bits, bits.data());
  const auto held = static_cast<std::size_t>(m_bits / 8 % kBlockBytes);
  const std::size_t room = kBlockBytes - kLengthBytes;
  Update(kPadding.data(), held < room ? room - held : kBlockBytes + room - held);
  Update(bits.data(), bits.size());
  for (std::size_t i = 0; i < m_chain.size(); ++i) {
    StoreLittleEndian(m_chain[i], m_digest.data() + 4 * i);
  }
}

std::wstring MD5::HexDigest() const {
  static constexpr wchar_t kDigits[] = L"0123456789ABCDEF";
  std::wstring text;
  text.reserve(2 * m_digest.size());
  for (const std::uint8_t byte : m_digest) {
    text += kDigits[byte >> 4];
    text += kDigits[byte & 15];
  }
  return text;
}

}  // namespace Tarnlo
