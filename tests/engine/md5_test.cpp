#include "engine/md5.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstdint>
#include <string>
#include <type_traits>
#include <vector>

#include "tests/support/body.h"
#include "tests/support/digest.h"

namespace Tarnlo {
namespace {

using test::Md5Of;

// The algorithm as RFC 1321 words it, one operation after another, to compare with.
std::array<std::uint32_t, 4> ReferenceBlock(std::array<std::uint32_t, 4> sum,
                                            const std::uint8_t* block) {
  static constexpr int kShifts[4][4] = {
      {7, 12, 17, 22}, {5, 9, 14, 20}, {4, 11, 16, 23}, {6, 10, 15, 21}};
  auto [a, b, c, d] = sum;
  for (std::uint32_t i = 0; i < 64; ++i) {
    std::uint32_t f = 0;
    std::uint32_t k = 0;
    if (i < 16) {
      f = (b & c) | (~b & d);
      k = i;
    } else if (i < 32) {
      f = (b & d) | (c & ~d);
      k = (5 * i + 1) % 16;
    } else if (i < 48) {
      f = b ^ c ^ d;
      k = (3 * i + 5) % 16;
    } else {
      f = c ^ (b | ~d);
      k = 7 * i % 16;
    }
    std::uint32_t word = 0;
    for (std::uint32_t j = 0; j < 4; ++j) word |= std::uint32_t{block[4 * k + j]} << (8 * j);
    const auto sine =
        static_cast<std::uint32_t>(std::floor(std::fabs(std::sin(i + 1)) * 4294967296.0));
    const std::uint32_t turned = b + std::rotl(a + f + sine + word, kShifts[i / 16][i % 4]);
    a = d;
    d = c;
    c = b;
    b = turned;
  }
  return {sum[0] + a, sum[1] + b, sum[2] + c, sum[3] + d};
}

std::wstring ReferenceMd5(const std::string& text) {
  std::vector<std::uint8_t> bytes(text.begin(), text.end());
  bytes.push_back(0x80);
  while (bytes.size() % 64 != 56) bytes.push_back(0);
  for (int i = 0; i < 8; ++i) {
    bytes.push_back(static_cast<std::uint8_t>(std::uint64_t{text.size()} * 8 >> (8 * i)));
  }
  std::array<std::uint32_t, 4> sum = {0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476};
  for (std::size_t i = 0; i < bytes.size(); i += 64) sum = ReferenceBlock(sum, &bytes[i]);
  std::wstring hex;
  for (const std::uint32_t word : sum) {
    for (int i = 0; i < 4; ++i) {
      hex += L"0123456789ABCDEF"[word >> (8 * i + 4) & 15];
      hex += L"0123456789ABCDEF"[word >> (8 * i) & 15];
    }
  }
  return hex;
}

TEST(Md5Test, VectorsOfRfc1321) {
  EXPECT_EQ(Md5Of(""), L"D41D8CD98F00B204E9800998ECF8427E");
  EXPECT_EQ(Md5Of("a"), L"0CC175B9C0F1B6A831C399E269772661");
  EXPECT_EQ(Md5Of("abc"), L"900150983CD24FB0D6963F7D28E17F72");
  EXPECT_EQ(Md5Of("message digest"), L"F96B697D7CB7938D525A2F31AAF161D0");
  EXPECT_EQ(Md5Of("abcdefghijklmnopqrstuvwxyz"), L"C3FCD3D76192E4007DFB496CCA67E13B");
  EXPECT_EQ(Md5Of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789"),
            L"D174AB98D277D9F5A5611C2C9F419D9F");
  EXPECT_EQ(
      Md5Of("12345678901234567890123456789012345678901234567890123456789012345678901234567890"),
      L"57EDF4A22BE3C955AC49DA2E2107B67A");
}

TEST(Md5Test, EveryLengthTo200AgreesWithTheReference) {
  for (std::size_t length = 0; length <= 200; ++length) {
    const std::string bytes = test::Body(0).Bytes(0, length);
    EXPECT_EQ(Md5Of(bytes), ReferenceMd5(bytes)) << length;
  }
}

// Letters and digits over and over: from `printf %s TEXT | md5sum` for each length, and md5sum of
// these 201 digests, in capitals, one a line.
TEST(Md5Test, EveryLengthTo200AgreesWithMd5sum) {
  std::string text;
  std::string digests;
  for (std::size_t length = 0; length <= 200; ++length) {
    const std::wstring digest = Md5Of(text);
    digests.append(digest.begin(), digest.end()).append("\n");
    text += "abcdefghijklmnopqrstuvwxyz0123456789"[length % 36];
  }
  EXPECT_EQ(Md5Of(digests), L"269F8C17820AB0F6B90876E0925296DF");
}

// From `head -c N /dev/zero | md5sum`.
TEST(Md5Test, ZeroesAround64MiBAgreeWithMd5sum) {
  const std::string zeroes((64U << 20) + 1, '\0');
  const auto md5 = [&](std::size_t length) {
    MD5 made;
    made.Update(zeroes.data(), length);
    made.Finalize();
    return made.HexDigest();
  };
  EXPECT_EQ(md5((64U << 20) - 1), L"E56021D8D7EAC567C0EB1F79F9E8F69F");
  EXPECT_EQ(md5(64U << 20), L"7F614DA9329CD3AEBF59B91AADC30BF0");
  EXPECT_EQ(md5((64U << 20) + 1), L"279F6C15A48C009464BECE2B1BB75A70");
}

TEST(Md5Test, PiecesOfAnySizeGiveTheSameDigest) {
  const std::string bytes = test::Body(0).Bytes(0, 1000);
  const std::wstring whole = ReferenceMd5(bytes);
  for (std::size_t piece = 1; piece <= 200; ++piece) {
    MD5 md5;
    for (std::size_t at = 0; at < bytes.size(); at += piece) {
      md5.Update(bytes.data() + at, std::min(piece, bytes.size() - at));
    }
    md5.Finalize();
    EXPECT_EQ(md5.HexDigest(), whole) << piece;
  }
}

TEST(Md5Test, EmptyPiecesChangeNothing) {
  MD5 md5;
  md5.Update(nullptr, 0);
  md5.Update("ab", 2);
  md5.Update(nullptr, 0);
  md5.Update("c", 1);
  md5.Finalize();
  EXPECT_EQ(md5.HexDigest(), Md5Of("abc"));
}

TEST(Md5Test, InputNeedNotBeAligned) {
  const std::string bytes = test::Body(0).Bytes(0, 300);
  for (std::size_t shift = 0; shift < 8; ++shift) {
    const std::string padded = std::string(shift, 'x') + bytes;
    MD5 md5;
    md5.Update(padded.data() + shift, bytes.size());
    md5.Finalize();
    EXPECT_EQ(md5.HexDigest(), ReferenceMd5(bytes)) << shift;
  }
}

static_assert(std::has_virtual_destructor_v<MD5>);

}  // namespace
}  // namespace Tarnlo
