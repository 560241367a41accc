#include "engine/file_version.h"

#include <gtest/gtest.h>

#include <limits>

#include "tests/support/temp_folder.h"

namespace Tarnlo {
namespace {

using Numbers = std::vector<int>;

TEST(ParseVersionTest, Table) {
  EXPECT_EQ(ParseVersion(""), Numbers{});
  EXPECT_EQ(ParseVersion("..."), Numbers{});
  EXPECT_EQ(ParseVersion("1"), Numbers{1});
  EXPECT_EQ(ParseVersion("1.2.3"), (Numbers{1, 2, 3}));
  EXPECT_EQ(ParseVersion("1.2.3.4"), (Numbers{1, 2, 3, 4}));
  EXPECT_EQ(ParseVersion("10.020.65535.0"), (Numbers{10, 20, 65535, 0}));
  EXPECT_EQ(ParseVersion(".1..2."), (Numbers{1, 2}));  // empty pieces do not count
  EXPECT_EQ(ParseVersion("1.x.3"), (Numbers{1, 0, 3}));
  EXPECT_EQ(ParseVersion("1. 2.-3"), (Numbers{1, 2, -3}));
  EXPECT_EQ(ParseVersion("\xA0\x32.\t3"), (Numbers{0, 3}));
  EXPECT_EQ(ParseVersion("2rc1.5"), (Numbers{2, 5}));
  EXPECT_EQ(ParseVersion("99999999999999999999.1"), (Numbers{std::numeric_limits<int>::max(), 1}));
  EXPECT_EQ(ParseVersion("-99999999999.\xE9"), (Numbers{std::numeric_limits<int>::min(), 0}));
}

struct ReachCase {
  Numbers existing;
  Numbers required;
  bool reaches;
};

TEST(VersionReachesTest, Table) {
  const ReachCase cases[] = {
      {{1, 2, 3}, {1, 2, 3}, true},
      {{1, 2, 4}, {1, 2, 3}, true},
      {{1, 2, 2}, {1, 2, 3}, false},
      {{2, 0, 5}, {1, 9, 0}, false},  // number by number: 0 is below 9
      {{2, 9, 5}, {1, 9, 0}, true},
      {{1, 2, 3, 4}, {1, 2, 3, 9}, true},  // the fourth does not count
      {{1, 2, 3}, {1, 2, 3, 9}, true},
      {{1, 2, 3, 4}, {1, 2, 3}, true},
      {{9, 9, 9}, {1, 2}, false},
      {{9, 9}, {1, 2, 3}, false},
      {{}, {1, 2, 3}, false},
      {{1, 2, 3}, {}, false},
      {{0, 0, 0}, {0, 0, 0}, true},
      {{1, 2, 3}, {-1, -1, -1}, true},
  };
  for (const ReachCase& entry : cases) {
    EXPECT_EQ(VersionReaches(entry.existing, entry.required), entry.reaches)
        << testing::PrintToString(entry.existing) << " for "
        << testing::PrintToString(entry.required);
  }
}

TEST(FileVersionTest, FileWithoutVersionHasNone) {
  const test::TempFolder folder;
  test::WriteFileBytes(folder.File(L"f.exe"), "no program");
  EXPECT_EQ(GetFileVersionString(folder.File(L"f.exe")), L"");
  EXPECT_EQ(GetFileVersionString(folder.File(L"missing.exe")), L"");
  EXPECT_FALSE(CompareFileVersion(folder.File(L"f.exe"), L"0.0.0"));
  EXPECT_FALSE(CompareFileVersion(folder.File(L"missing.exe"), L"0.0.0"));
}

}  // namespace
}  // namespace Tarnlo
