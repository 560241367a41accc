// What a run leaves when it does not end well, and how the next one goes on from it.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <random>
#include <string>

#include "tests/engine/job_fixture.h"
#include "tests/faults/faults.h"

namespace Tarnlo::test {
namespace {

constexpr std::int64_t kThousand = 1000;

Trailer SixRanges(std::int64_t content_length, std::array<std::int64_t, 6> done) {
  Trailer trailer{6, {}};
  std::int64_t start = 0;
  for (std::size_t i = 0; i < 6; ++i) {
    const std::int64_t length = content_length / 6 + (i == 0 ? content_length % 6 : 0);
    trailer.records.push_back({start, length, done[i]});
    start += length;
  }
  return trailer;
}

class ResumeTest : public JobTest {
 protected:
  // A temporary file whose done bytes are the body's and whose others are not.
  void WriteTemporary(const Body& body, const Trailer& trailer) {
    std::string bytes(static_cast<std::size_t>(body.size()), '\xEE');
    for (const RangeRecord& record : trailer.records) {
      body.Fill(record.start, bytes.data() + record.start, static_cast<std::size_t>(record.done));
    }
    WriteFileBytes(Temporary(L"f"), bytes + EncodeTrailer(trailer));
  }

  void ExpectDoneBytesToBeTheBodys(const Body& body, const Trailer& trailer) {
    ASSERT_EQ(trailer.count, 6u);
    for (const RangeRecord& record : trailer.records) {
      EXPECT_LE(record.done, record.length);
      EXPECT_EQ(FileDifference(Temporary(L"f"), body, record.start, record.start + record.done),
                "");
    }
  }

  // Every byte asked for from request `first` on was missing.
  void ExpectToHaveAskedForMissingBytesOnly(const Trailer& trailer, std::size_t first) {
    const std::vector<Interval> missing = trailer.Missing();
    for (const Interval& asked : RangesAskedFor(first)) {
      EXPECT_TRUE(std::ranges::any_of(
          missing,
          [&](const Interval& gap) { return gap.begin <= asked.begin && asked.end <= gap.end; }))
          << asked.begin << " to " << asked.end;
    }
  }
};

TEST_F(ResumeTest, ThousandBytesTake1148AndAreHidden) {
  Gate& gate = NewGate();
  Serve("/f", Body(kThousand)).Times(1);
  Serve("/f", Body(kThousand)).HoldingAnswer(gate);
  ASSERT_TRUE(Start("/f"));
  ASSERT_TRUE(gate.AwaitArrivals(6));
  EXPECT_EQ(SizeOf(Temporary(L"f")), 1148);
  EXPECT_TRUE(IsHidden(Temporary(L"f")));
  EXPECT_EQ(ReadFileBytes(Temporary(L"f")), std::string(1148, '\0'));
  Pause();
  EXPECT_EQ(SizeOf(Temporary(L"f")), 1148);
  EXPECT_EQ(Files(), std::vector<std::wstring>{L"f.~P2S"});
}

TEST_F(ResumeTest, StoppedRunLeavesATrailerThatIsRightToTheByte) {
  const Body body(600'000);
  Gate& gate = NewGate();
  Serve("/f", body).Times(1);
  Serve("/f", body).StallingAfter(30'001, gate);
  ASSERT_TRUE(Start("/f"));
  ASSERT_TRUE(gate.AwaitArrivals(6));
  AwaitDownloaded(6 * 30'001);
  Pause();
  const Trailer trailer = ReadTrailer(Temporary(L"f"), body.size());
  ExpectDoneBytesToBeTheBodys(body, trailer);
  EXPECT_EQ(trailer.MissingBytes(), body.size() - 6 * 30'001);
  EXPECT_TRUE(IsHidden(Temporary(L"f")));
}

TEST_F(ResumeTest, NextRunAsksForTheMissingBytesOnly) {
  const Body body(60'000);
  const Trailer trailer = SixRanges(body.size(), {10'000, 9'999, 5'000, 1, 0, 10'000});
  WriteTemporary(body, trailer);
  Serve("/f", body);
  EXPECT_EQ(Download("/f"), kResultSuccess);
  ExpectOneCleanAttempt();
  EXPECT_EQ(FileDifference(Target(L"f"), body), "");
  EXPECT_EQ(JobLines(),
            "T1 T3 T4 T5 T6 S1 S5 S12 S13 S14 S15 R1 R2 R3 R4 R5 R6 R7 R8 S16 A1 A11x6 S22 T7 "
            "T12 T13 T14 F2 F3 F4 F5 F7 F9 F15 T19 T20 T2");
  std::vector<Interval> asked = RangesAskedFor();
  std::ranges::sort(asked, {}, &Interval::begin);
  EXPECT_EQ(asked, trailer.Missing());
}

// Workers without a range would count as done, and the whole file as fetched.
TEST_F(ResumeTest, NothingIsToldOfBytesBeforeTheWorkersHaveTheirRanges) {
  const Body body(60'000);
  WriteTemporary(body, SixRanges(body.size(), {5'000, 5'000, 5'000, 5'000, 5'000, 5'000}));
  Gate& gate = NewGate();
  Serve("/f", body).Times(1);
  Serve("/f", body).HoldingAnswer(gate);
  Faults faults;
  faults.Hold(os::Call::kRead);
  ASSERT_TRUE(Start("/f"));
  ASSERT_TRUE(faults.AwaitCalls(os::Call::kRead, 1));  // of the trailer's count
  EXPECT_EQ(Job().Progress().downloaded, -1);
  faults.LetThrough();
  ASSERT_TRUE(faults.AwaitCalls(os::Call::kRead, 2));  // of the records: the workers are there
  EXPECT_EQ(Job().Progress().total, body.size());
  EXPECT_EQ(Job().Progress().downloaded, -1);
  faults.LetThrough();
  ASSERT_TRUE(gate.AwaitArrivals(6));
  EXPECT_EQ(Job().Progress().downloaded, 30'000);
  Pause();
}

TEST_F(ResumeTest, BytesThatNoRecordNamesAreKept) {
  const Body body(60'000);
  Trailer trailer = SixRanges(body.size(), {0, 10'000, 10'000, 10'000, 10'000, 10'000});
  // The second connection has finished its range and taken over the first one's tail.
  trailer.records[0].length = 5'000;
  trailer.records[1] = {5'000, 5'000, 0};
  WriteTemporary(body, trailer);
  std::string bytes = ReadFileBytes(Temporary(L"f"));
  body.Fill(10'000, bytes.data() + 10'000, 10'000);
  WriteFileBytes(Temporary(L"f"), bytes);
  Serve("/f", body);
  EXPECT_EQ(Download("/f"), kResultSuccess);
  ExpectOneCleanAttempt();
  EXPECT_EQ(FileDifference(Target(L"f"), body), "");
  ExpectToHaveAskedForMissingBytesOnly(trailer, 0);
}

TEST_F(ResumeTest, CompleteTrailerCostsNoBodyByte) {
  const Body body(60'000);
  WriteTemporary(body, SixRanges(body.size(), {10'000, 10'000, 10'000, 10'000, 10'000, 10'000}));
  Serve("/f", body);
  EXPECT_EQ(Download("/f"), kResultSuccess);
  ExpectOneCleanAttempt();
  EXPECT_EQ(FileDifference(Target(L"f"), body), "");
  EXPECT_EQ(Server().RequestsFor("/f").size(), 1u);
}

// The example of docs/resume-format.md.
TEST_F(ResumeTest, WorkedExampleIsReadAndWrittenByteByByte) {
  const Body body(kThousand);
  const Trailer example = SixRanges(kThousand, {170, 100, 0, 0, 0, 0});
  constexpr char kExample[] =
      "\x00\x00\x00\x00\x00\x00\x00\x00\xaa\x00\x00\x00\x00\x00\x00\x00"
      "\xaa\x00\x00\x00\x00\x00\x00\x00"
      "\xaa\x00\x00\x00\x00\x00\x00\x00\xa6\x00\x00\x00\x00\x00\x00\x00"
      "\x64\x00\x00\x00\x00\x00\x00\x00"
      "\x50\x01\x00\x00\x00\x00\x00\x00\xa6\x00\x00\x00\x00\x00\x00\x00"
      "\x00\x00\x00\x00\x00\x00\x00\x00"
      "\xf6\x01\x00\x00\x00\x00\x00\x00\xa6\x00\x00\x00\x00\x00\x00\x00"
      "\x00\x00\x00\x00\x00\x00\x00\x00"
      "\x9c\x02\x00\x00\x00\x00\x00\x00\xa6\x00\x00\x00\x00\x00\x00\x00"
      "\x00\x00\x00\x00\x00\x00\x00\x00"
      "\x42\x03\x00\x00\x00\x00\x00\x00\xa6\x00\x00\x00\x00\x00\x00\x00"
      "\x00\x00\x00\x00\x00\x00\x00\x00"
      "\x06\x00\x00\x00";
  const std::string expected(kExample, sizeof(kExample) - 1);
  ASSERT_EQ(EncodeTrailer(example), expected);
  WriteTemporary(body, example);

  Gate& gate = NewGate();
  Serve("/f", body).Times(1);
  Serve("/f", body).HoldingAnswer(gate);
  ASSERT_TRUE(Start("/f"));
  ASSERT_TRUE(gate.AwaitArrivals(5));
  EXPECT_TRUE(IsHidden(Temporary(L"f")));  // which it was not
  // Away with what was read: what stands there afterwards was written.
  std::string bytes = ReadFileBytes(Temporary(L"f"));
  ASSERT_EQ(bytes.size(), 1148u);
  WriteFileBytes(Temporary(L"f"), bytes.substr(0, 1000) + std::string(148, '\0'));
  Pause();
  EXPECT_EQ(ReadFileBytes(Temporary(L"f")).substr(1000), expected);
  std::vector<Interval> asked = RangesAskedFor();
  std::ranges::sort(asked, {}, &Interval::begin);
  EXPECT_EQ(asked,
            (std::vector<Interval>{{270, 336}, {336, 502}, {502, 668}, {668, 834}, {834, 1000}}));
}

struct Interruptions {
  int count;
  bool new_job;  // as a new process has it
};

class InterruptedResume : public ResumeTest, public testing::WithParamInterface<Interruptions> {};

TEST_P(InterruptedResume, AtRandomPointsCostsNoByteTwice) {
  const unsigned seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  // However late a pause comes, it finds every connection at work.
  const Body body(3'000'000, seed);
  Gate& gate = NewGate();
  Serve("/f", body).Trickling(300'000).StallingAfter(60'000, gate);
  std::int64_t had = 0;
  Trailer left;
  std::size_t requests = 0;
  for (int run = 0; run <= GetParam().count; ++run) {
    const bool last = run == GetParam().count;
    if (run > 0 && GetParam().new_job) RenewJob();
    if (run > 0 && !GetParam().new_job) {
      ASSERT_TRUE(Job().RenewStopEvent());
    }
    Job().SetNotifying(true);
    if (last) gate.Open();
    ASSERT_TRUE(Start("/f"));
    if (last) {
      EXPECT_EQ(AwaitResult(), kResultSuccess);
      AwaitRunEnd();
      ExpectOneCleanAttempt();
    } else {
      AwaitDownloaded(had + std::uniform_int_distribution<std::int64_t>(1, 200'000)(random));
      Pause();
    }
    if (run > 0) {
      ExpectToHaveAskedForMissingBytesOnly(left, requests);
      EXPECT_NE(JobLines().find("S16 "), std::string::npos) << JobLines();
    }
    if (last) break;
    left = ReadTrailer(Temporary(L"f"), body.size());
    ExpectDoneBytesToBeTheBodys(body, left);
    EXPECT_GE(body.size() - left.MissingBytes(), had);
    had = body.size() - left.MissingBytes();
    requests = Server().Requests().size();
  }
  EXPECT_EQ(FileDifference(Target(L"f"), body), "");
  EXPECT_EQ(Files(), std::vector<std::wstring>{L"f"});
}

INSTANTIATE_TEST_SUITE_P(Once, InterruptedResume,
                         testing::Values(Interruptions{1, false}, Interruptions{1, true}));
INSTANTIATE_TEST_SUITE_P(FiveTimes, InterruptedResume,
                         testing::Values(Interruptions{5, false}, Interruptions{5, true}));

// --- Damage ------------------------------------------------------------------------------------

constexpr std::int64_t kDamagedLength = 60'000;
constexpr std::int64_t kLargest = std::numeric_limits<std::int64_t>::max();

struct Damage {
  const char* name;
  void (*apply)(std::string& bytes, Trailer& trailer);
  const char* reader_lines;  // what the reader of the trailer says
};

void Truncate(std::string& bytes, Trailer& /*trailer*/) {
  bytes.resize(bytes.size() - 1000);
}

constexpr char kRefusedCount[] = "S15 R1 R2 R3 R4 S17 ";
constexpr char kRefusedRecords[] = "S15 R1 R2 R3 R4 R5 R6 R7 R9 S17 ";

const Damage kDamages[] = {
    {"CountOf0", [](std::string&, Trailer& trailer) { trailer.count = 0; }, kRefusedCount},
    {"CountOf64", [](std::string&, Trailer& trailer) { trailer.count = 64; }, kRefusedCount},
    {"CountOf63", [](std::string&, Trailer& trailer) { trailer.count = 63; }, kRefusedRecords},
    {"CountOf5", [](std::string&, Trailer& trailer) { trailer.count = 5; }, kRefusedRecords},
    {"CountOf7", [](std::string&, Trailer& trailer) { trailer.count = 7; }, kRefusedRecords},
    {"CountOfMinus1", [](std::string&, Trailer& trailer) { trailer.count = 0xFFFFFFFF; },
     kRefusedCount},
    {"NegativeStart", [](std::string&, Trailer& trailer) { trailer.records[2].start = -1; },
     kRefusedRecords},
    {"NegativeLength", [](std::string&, Trailer& trailer) { trailer.records[5].length = -1; },
     kRefusedRecords},
    {"NegativeDone", [](std::string&, Trailer& trailer) { trailer.records[0].done = -1; },
     kRefusedRecords},
    {"DoneBeyondLength", [](std::string&, Trailer& trailer) { trailer.records[3].done = 10'001; },
     kRefusedRecords},
    {"StartPlusLengthOverflows",
     [](std::string&, Trailer& trailer) {
       trailer.records[1] = {kLargest - 5, kLargest - 5, 0};
     },
     kRefusedRecords},
    {"EndBeyondTheFile", [](std::string&, Trailer& trailer) { trailer.records[5].length = 10'001; },
     kRefusedRecords},
    {"Overlap", [](std::string&, Trailer& trailer) { trailer.records[4].start -= 1; },
     kRefusedRecords},
    {"SameRangeTwice",
     [](std::string&, Trailer& trailer) { trailer.records[4] = trailer.records[3]; },
     kRefusedRecords},
    {"ShortFile", Truncate, "S14 S17 "},
};

class DamagedTrailer : public ResumeTest, public testing::WithParamInterface<Damage> {};

TEST_P(DamagedTrailer, EndsInACorrectDownloadOverSixConnections) {
  const Body body(kDamagedLength);
  Trailer trailer = SixRanges(kDamagedLength, {5'000, 5'000, 5'000, 5'000, 5'000, 5'000});
  std::string bytes(static_cast<std::size_t>(kDamagedLength), '\xEE');
  GetParam().apply(bytes, trailer);
  WriteFileBytes(Temporary(L"f"), bytes + EncodeTrailer(trailer));
  Serve("/f", body);
  EXPECT_EQ(Download("/f"), kResultSuccess);
  ExpectOneCleanAttempt();
  EXPECT_EQ(FileDifference(Target(L"f"), body), "");
  const std::string lines = JobLines();
  EXPECT_NE(lines.find(GetParam().reader_lines), std::string::npos) << lines;
  EXPECT_NE(lines.find("A9x5 A11x6 "), std::string::npos) << lines;
}

INSTANTIATE_TEST_SUITE_P(ResumeTest, DamagedTrailer, testing::ValuesIn(kDamages),
                         [](const auto& test) { return test.param.name; });

TEST_F(ResumeTest, TrailerOfOtherContentLengthIsNotResumed) {
  WriteTemporary(Body(60'001), SixRanges(60'001, {1, 1, 1, 1, 1, 1}));
  Serve("/f", Body(60'000));
  EXPECT_EQ(Download("/f"), kResultSuccess);
  ExpectOneCleanAttempt();
  EXPECT_EQ(FileDifference(Target(L"f"), Body(60'000)), "");
  EXPECT_NE(JobLines().find("S13 S14 S17 "), std::string::npos) << JobLines();
}

TEST_F(ResumeTest, EmptyRecordsArePlannedAfresh) {
  const Body body(60'000);
  WriteFileBytes(Temporary(L"f"),
                 std::string(60'000, 'x') + EncodeTrailer({6, std::vector<RangeRecord>(6)}));
  Serve("/f", body);
  EXPECT_EQ(Download("/f"), kResultSuccess);
  ExpectOneCleanAttempt();
  EXPECT_EQ(FileDifference(Target(L"f"), body), "");
}

// --- No ranges, no length ------------------------------------------------------------------------

TEST_F(ResumeTest, ServerWithoutRangesLeavesNoTrailer) {
  const Body body(60'000);
  Gate& gate = NewGate();
  Serve("/f", body).IgnoringRanges().Times(2);  // what it has, whether ranges
  Serve("/f", body).IgnoringRanges().StallingAfter(10'000, gate);
  ASSERT_TRUE(Start("/f"));
  ASSERT_TRUE(gate.AwaitArrivals());
  AwaitDownloaded(10'000);
  Pause();
  EXPECT_EQ(FileDifference(Temporary(L"f"), Body(10'000)), "");
  EXPECT_TRUE(IsHidden(Temporary(L"f")));
}

TEST_F(ResumeTest, ServerWithoutRangesBeginsWithAnEmptyFile) {
  const Body body(60'000);
  Gate& gate = NewGate();
  WriteFileBytes(Temporary(L"f"), "left from before");
  Serve("/f", body).IgnoringRanges().Times(2);
  Serve("/f", body).IgnoringRanges().HoldingAnswer(gate);
  ASSERT_TRUE(Start("/f"));
  ASSERT_TRUE(gate.AwaitArrivals());
  EXPECT_EQ(SizeOf(Temporary(L"f")), 0);
  Pause();
  EXPECT_EQ(SizeOf(Temporary(L"f")), 0);
}

}  // namespace
}  // namespace Tarnlo::test
