#include "engine/resume_trailer.h"

#include <gtest/gtest.h>

#include <limits>

#include "engine/range_planner.h"

namespace Tarnlo {
namespace {

using Bytes = std::vector<std::uint8_t>;
using Ranges = std::vector<RangeRecord>;
constexpr std::int64_t kMost = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t kLeast = std::numeric_limits<std::int64_t>::min();

TEST(ResumeTrailerTest, CountIsFourBytesLowestFirst) {
  const auto bytes = EncodeCount(0x01020306);
  EXPECT_EQ(Bytes(bytes.begin(), bytes.end()), (Bytes{6, 3, 2, 1}));
  for (const std::uint32_t count : {0U, 1U, 6U, 63U, 64U, 0x80000000U, 0xFFFFFFFFU}) {
    EXPECT_EQ(DecodeCount(EncodeCount(count)), count);
  }
}

TEST(ResumeTrailerTest, RecordIsThreeNumbersOfEightBytesLowestFirst) {
  EXPECT_EQ(EncodeRecords(Ranges{{0x0102030405060708, 0x200, -1}}),
            (Bytes{8,   7,   6,   5,   4,   3,   2,   1,  //
                   0,   2,   0,   0,   0,   0,   0,   0,  //
                   255, 255, 255, 255, 255, 255, 255, 255}));
}

TEST(ResumeTrailerTest, RecordsSurviveTheBytes) {
  const Ranges records = {{0, 170, 170}, {170, 166, 0}, {kMost, kLeast, -1}, {1, 2, 3}};
  const Bytes bytes = EncodeRecords(records);
  EXPECT_EQ(bytes.size(), records.size() * kRecordBytes);
  EXPECT_EQ(DecodeRecords(bytes), records);
  EXPECT_TRUE(DecodeRecords(Bytes()).empty());
}

TEST(ResumeTrailerTest, PartOfARecordIsNone) {
  const Bytes bytes = EncodeRecords(Ranges{{1, 2, 3}, {4, 5, 6}});
  EXPECT_EQ(DecodeRecords(std::span(bytes).first(47)), (Ranges{{1, 2, 3}}));
  EXPECT_TRUE(DecodeRecords(std::span(bytes).first(23)).empty());
}

TEST(ResumeTrailerTest, CountsFrom1To63AreValid) {
  EXPECT_FALSE(ValidRangeCount(0));
  EXPECT_TRUE(ValidRangeCount(1));
  EXPECT_TRUE(ValidRangeCount(63));
  EXPECT_FALSE(ValidRangeCount(64));
  EXPECT_FALSE(ValidRangeCount(0x80000000));
  EXPECT_FALSE(ValidRangeCount(0xFFFFFFFF));
}

TEST(ResumeTrailerTest, TemporaryFileIsTheFileAndItsTrailer) {
  EXPECT_EQ(TemporaryFileSize(1000, 6), 1148);
  EXPECT_EQ(TemporaryFileSize(0, 1), 28);
  EXPECT_EQ(TemporaryFileSize(1000, 63), 1000 + 63 * 24 + 4);
  EXPECT_EQ(TemporaryFileSize(-1, 6), std::nullopt);
  EXPECT_EQ(TemporaryFileSize(kMost - 148, 6), kMost);
  EXPECT_EQ(TemporaryFileSize(kMost - 147, 6), std::nullopt);
  EXPECT_EQ(TemporaryFileSize(kMost, 1), std::nullopt);
  EXPECT_EQ(TemporaryFileSize(kLeast, 1), std::nullopt);
}

struct RecordsCase {
  const char* what;
  Ranges records;
  std::int64_t content_length;
  bool valid;
};

TEST(ValidRecordsTest, Table) {
  const RecordsCase cases[] = {
      {"fresh plan", {{0, 500, 0}, {500, 500, 0}}, 1000, true},
      {"all done", {{0, 500, 500}, {500, 500, 500}}, 1000, true},
      {"any order", {{500, 500, 1}, {0, 500, 2}}, 1000, true},
      {"finished range replaced by another's tail", {{750, 250, 3}, {500, 250, 9}}, 1000, true},
      {"empty ranges anywhere", {{0, 1, 0}, {1, 0, 0}, {1, 0, 0}, {0, 0, 0}}, 1, true},
      {"no record", {}, 1000, true},
      {"largest file", {{0, kMost, kMost}}, kMost, true},
      {"negative start", {{-1, 500, 0}}, 1000, false},
      {"negative length", {{0, -1, 0}}, 1000, false},
      {"negative done", {{0, 500, -1}}, 1000, false},
      {"more done than long", {{0, 500, 501}}, 1000, false},
      {"ends behind the file", {{501, 500, 0}}, 1000, false},
      {"begins behind the file", {{1001, 0, 0}}, 1000, false},
      {"end overflows", {{1000, kMost, 0}}, 1000, false},
      {"start and end overflow", {{kMost, kMost, 0}}, kMost, false},
      {"least numbers", {{kLeast, kLeast, kLeast}}, 1000, false},
      {"same range twice", {{0, 500, 0}, {0, 500, 0}}, 1000, false},
      {"one byte shared", {{0, 501, 0}, {500, 500, 0}}, 1000, false},
      {"one byte shared, other order", {{500, 500, 0}, {0, 501, 0}}, 1000, false},
      {"one inside another", {{0, 1000, 0}, {10, 5, 0}}, 1000, false},
      {"third inside the first", {{0, 500, 0}, {600, 5, 0}, {499, 1, 0}}, 1000, false},
      {"negative content length", {{0, 0, 0}}, -1, false},
      {"least content length", {{kMost, 0, 0}}, kLeast, false},
  };
  for (const RecordsCase& entry : cases) {
    EXPECT_EQ(ValidRecords(entry.records, entry.content_length), entry.valid) << entry.what;
  }
}

TEST(ValidRecordsTest, EveryPlanIsValid) {
  for (std::int64_t length = 1; length <= 200; ++length) {
    for (std::size_t count = 1; count <= 63; ++count) {
      ASSERT_TRUE(ValidRecords(PlanRanges(length, count), length));
    }
  }
}

}  // namespace
}  // namespace Tarnlo
