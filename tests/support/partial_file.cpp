#include "tests/support/partial_file.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <utility>

#include "tests/support/system.h"

namespace Tarnlo::test {

PartialFile::PartialFile(std::wstring path, const Body& body)
    : m_path(std::move(path)),
      m_body(body),
      m_trailer(ReadTrailer(m_path, m_body.size())),
      m_has_right_size(SizeOf(m_path) == m_body.size() + kTrailerBytes) {
  std::ifstream stream(LocalPath(m_path), std::ios::binary);
  stream.seekg(m_body.size());
  const std::string bytes{std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
  m_blank = m_has_right_size && std::ranges::count(bytes, '\0') == kTrailerBytes;
}

std::vector<Interval> PartialFile::Missing() const {
  if (!saved()) return {{0, m_body.size()}};
  return Merged(m_trailer.Missing());
}

std::int64_t PartialFile::InNoRecord() const {
  std::int64_t bytes = m_body.size();
  for (const RangeRecord& record : m_trailer.records) bytes -= record.length;
  return bytes;
}

std::string PartialFile::RecordFault() const {
  std::vector<RangeRecord> sorted = m_trailer.records;
  std::ranges::sort(sorted, {}, &RangeRecord::start);
  std::int64_t covered_to = 0;
  for (const RangeRecord& record : sorted) {
    if (record.length < 0) return "a record of less than nothing";
    if (record.done < 0 || record.done > record.length) return "more done than there is";
    if (record.length > 0 && record.start < covered_to) return "records share bytes";
    if (record.start + record.length > m_body.size()) return "a record beyond the end";
    covered_to = std::max(covered_to, record.start + record.length);
  }
  return {};
}

std::string PartialFile::Fault() const {
  if (!m_has_right_size) return "the file has another size";
  if (m_blank) return {};
  if (m_trailer.count != kConnections) return "another count";
  std::string fault = RecordFault();
  if (!fault.empty()) return fault;
  for (const Interval& claimed : Complement(Missing(), m_body.size())) {
    fault += FileDifference(m_path, m_body, claimed.begin, claimed.end);
  }
  return fault;
}

}  // namespace Tarnlo::test
