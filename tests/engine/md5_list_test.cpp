#include "engine/md5_list.h"

#include <gtest/gtest.h>

namespace Tarnlo {
namespace {

constexpr auto kMatch = Md5Verdict::kMatch;
constexpr auto kNoMatch = Md5Verdict::kNoMatch;
constexpr auto kListRefused = Md5Verdict::kListRefused;

struct ListCase {
  const wchar_t* list;
  Md5Verdict before_download;
  Md5Verdict after_download;
};

TEST(Md5ListTest, Table) {
  const ListCase cases[] = {
      {L"", kNoMatch, kNoMatch},
      {L"AB12", kMatch, kMatch},
      {L"CD34", kNoMatch, kNoMatch},
      {L"AB12,CD34", kMatch, kMatch},
      {L"CD34,AB12", kNoMatch, kMatch},  // before a download only the first is tried
      {L"CD34,EF56,AB12", kNoMatch, kMatch},
      {L",AB12", kListRefused, kMatch},
      {L",,AB12", kListRefused, kMatch},
      {L",", kListRefused, kNoMatch},
      {L",,,", kListRefused, kNoMatch},
      {L"AB12,", kMatch, kMatch},
      {L"CD34,,,AB12", kNoMatch, kMatch},
      {L"ab12", kNoMatch, kNoMatch},
      {L"AB1", kNoMatch, kNoMatch},
      {L"AB123", kNoMatch, kNoMatch},
      {L" AB12", kNoMatch, kNoMatch},
      {L"CD34, AB12", kNoMatch, kNoMatch},
      {L"CD34;AB12", kNoMatch, kNoMatch},
  };
  for (const ListCase& entry : cases) {
    EXPECT_EQ(CompareWithMd5List(L"AB12", entry.list, true), entry.before_download) << entry.list;
    EXPECT_EQ(CompareWithMd5List(L"AB12", entry.list, false), entry.after_download) << entry.list;
  }
}

TEST(Md5ListTest, EmptyDigestMatchesNothing) {
  for (const wchar_t* list : {L"", L",", L"AB12", L"AB12,", L"AB12,,CD34"}) {
    EXPECT_NE(CompareWithMd5List(L"", list, false), kMatch) << list;
    EXPECT_NE(CompareWithMd5List(L"", list, true), kMatch) << list;
  }
}

}  // namespace
}  // namespace Tarnlo
