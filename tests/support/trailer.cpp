#include "tests/support/trailer.h"

#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "tests/support/system.h"

namespace Tarnlo::test {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kRecordSize = 24;
constexpr std::size_t kCountSize = 4;

}  // namespace

std::vector<Interval> Trailer::Missing() const {
  std::vector<Interval> missing;
  for (const RangeRecord& record : records) {
    if (record.done < record.length) {
      missing.push_back({record.start + record.done, record.start + record.length});
    }
  }
  return missing;
}

std::int64_t Trailer::MissingBytes() const {
  return BytesIn(Missing());
}

std::int64_t SizeOf(const std::wstring& path) {
  std::error_code error;
  const auto size = fs::file_size(LocalPath(path), error);
  return error ? -1 : static_cast<std::int64_t>(size);
}

std::string EncodeTrailer(const Trailer& trailer) {
  static_assert(sizeof(RangeRecord) == kRecordSize);
  std::string bytes(trailer.records.size() * kRecordSize + kCountSize, '\0');
  std::memcpy(bytes.data(), trailer.records.data(), trailer.records.size() * kRecordSize);
  std::memcpy(bytes.data() + bytes.size() - kCountSize, &trailer.count, kCountSize);
  return bytes;
}

Trailer ReadTrailer(const std::wstring& temporary_file, std::int64_t content_length) {
  Trailer trailer;
  std::ifstream stream(LocalPath(temporary_file), std::ios::binary);
  stream.seekg(content_length);
  const std::string bytes{std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
  if (bytes.size() < kCountSize) return trailer;
  std::memcpy(&trailer.count, bytes.data() + bytes.size() - kCountSize, kCountSize);
  if (bytes.size() != trailer.count * kRecordSize + kCountSize) return trailer;
  trailer.records.resize(trailer.count);
  std::memcpy(trailer.records.data(), bytes.data(), trailer.count * kRecordSize);
  return trailer;
}

}  // namespace Tarnlo::test
