// A partial file as a process left it, and what is said behind its bytes of which of them are
// there.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "tests/support/body.h"
#include "tests/support/temp_folder.h"

namespace Tarnlo::test {

// Six records of three numbers (start, length, done), then their count.
class PartialFile {
 public:
  static constexpr std::size_t kTrailerBytes = 6 * 24 + 4;

  PartialFile(const std::wstring& path, const Body& body)
      : m_body(body), m_bytes(ReadFileBytes(path)) {
    if (!HasRightSize()) return;
    const char* trailer = m_bytes.data() + m_body.size();
    std::memcpy(m_records.data(), trailer, sizeof m_records);
    std::memcpy(&m_count, trailer + sizeof m_records, sizeof m_count);
    m_blank = std::count(trailer, trailer + kTrailerBytes, '\0') ==
              static_cast<std::ptrdiff_t>(kTrailerBytes);
  }

  // Nothing was saved yet: nothing is claimed.
  [[nodiscard]] bool blank() const { return m_blank; }

  // Bytes that are said to be there: the done ones of each record, and those that no record names,
  // whose range was complete before its worker was given another.
  [[nodiscard]] std::int64_t Claimed() const {
    std::int64_t bytes = 0;
    for (const Piece& piece : Claims()) bytes += piece.end - piece.begin;
    return bytes;
  }
  [[nodiscard]] std::int64_t InNoRecord() const {
    std::int64_t bytes = m_body.size();
    for (const Record& record : m_records) bytes -= record.length;
    return bytes;
  }

  // Empty when what is said can be and is so.
  [[nodiscard]] std::string Fault() const {
    if (!HasRightSize()) return "the file has another size";
    if (m_blank) return {};
    if (m_count != static_cast<std::int32_t>(m_records.size())) return "another count";
    std::int64_t covered_to = 0;
    for (const Record& record : Sorted()) {
      if (record.done < 0 || record.done > record.length) return "more done than there is";
      if (record.length > 0 && record.start < covered_to) return "records share bytes";
      if (record.start + record.length > m_body.size()) return "a record beyond the end";
      covered_to = std::max(covered_to, record.start + record.length);
    }
    for (const Piece& piece : Claims()) {
      const auto count = static_cast<std::size_t>(piece.end - piece.begin);
      if (m_bytes.compare(static_cast<std::size_t>(piece.begin), count,
                          m_body.Bytes(piece.begin, count)) != 0) {
        return "bytes from " + std::to_string(piece.begin) + " on are not there";
      }
    }
    return {};
  }

 private:
  struct Record {
    std::int64_t start = 0;
    std::int64_t length = 0;
    std::int64_t done = 0;
  };
  struct Piece {
    std::int64_t begin;
    std::int64_t end;
  };

  [[nodiscard]] bool HasRightSize() const {
    return m_bytes.size() == static_cast<std::size_t>(m_body.size()) + kTrailerBytes;
  }
  [[nodiscard]] std::array<Record, 6> Sorted() const {
    std::array<Record, 6> sorted = m_records;
    std::ranges::sort(sorted, {}, &Record::start);
    return sorted;
  }
  [[nodiscard]] std::vector<Piece> Claims() const {
    std::vector<Piece> claims;
    std::int64_t at = 0;
    for (const Record& record : Sorted()) {
      if (record.length == 0) continue;
      claims.push_back({at, record.start});
      claims.push_back({record.start, record.start + record.done});
      at = record.start + record.length;
    }
    claims.push_back({at, m_body.size()});
    return claims;
  }

  const Body m_body;
  const std::string m_bytes;
  std::array<Record, 6> m_records{};
  std::int32_t m_count = 0;
  bool m_blank = false;
};

}  // namespace Tarnlo::test
