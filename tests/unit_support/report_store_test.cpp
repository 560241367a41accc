#include "support/report_store.h"

#include <gtest/gtest.h>

#include <list>
#include <string>
#include <thread>
#include <vector>

#include "support/os/clock.h"

namespace Tarnlo {
namespace {

TEST(ReportStoreTest, CounterOfANewKeyIsOneAndGrows) {
  CReportStore store;
  store.IncrementCounter(L"10.0.0.1");
  EXPECT_EQ(store.Counters(), (std::map<std::wstring, std::uint32_t>{{L"10.0.0.1", 1}}));
  store.IncrementCounter(L"10.0.0.1");
  store.IncrementCounter(L"10.0.0.2");
  EXPECT_EQ(store.Counters(),
            (std::map<std::wstring, std::uint32_t>{{L"10.0.0.1", 2}, {L"10.0.0.2", 1}}));
}

TEST(ReportStoreTest, PropertySetTwiceKeepsTheSecondValue) {
  CReportStore store;
  store.SetProperty(L"downpackagemd5", L"first");
  store.SetProperty(L"downpackagemd5", L"second");
  EXPECT_EQ(store.Properties(),
            (std::map<std::wstring, std::wstring>{{L"downpackagemd5", L"second"}}));
}

TEST(ReportStoreTest, NumberIsKeptAsItsDecimalText) {
  CReportStore store;
  store.SetPropertyInt(L"retrytips", 0);
  EXPECT_EQ(store.Properties().at(L"retrytips"), L"0");
  store.SetPropertyInt(L"retrytips", 1);
  EXPECT_EQ(store.Properties().at(L"retrytips"), L"1");
  store.SetPropertyInt(L"retrytips", -2147483647 - 1);
  EXPECT_EQ(store.Properties().at(L"retrytips"), L"-2147483648");
}

TEST(ReportStoreTest, RecordIsOneMemberQuotedOrBare) {
  CReportStore store;
  store.AddRecord(L"filemd5_7", L"9E107D9D372BB6826BD81D3542A419D6", true);
  store.AddRecord(L"matchmd5_7", L"1", false);
  EXPECT_EQ(store.Records(),
            (std::list<std::wstring>{L"{\"filemd5_7\":\"9E107D9D372BB6826BD81D3542A419D6\"}",
                                     L"{\"matchmd5_7\":1}"}));
}

TEST(ReportStoreTest, RecordIsNotEscaped) {
  CReportStore store;
  store.AddRecord(L"a\"b", L"c\\d", true);
  EXPECT_EQ(store.Records(), (std::list<std::wstring>{L"{\"a\"b\":\"c\\d\"}"}));
}

TEST(ReportStoreTest, SameRecordIsKeptOnceAndAnotherValueBesides) {
  CReportStore store;
  store.AddRecord(L"k", L"1", false);
  store.AddRecord(L"k", L"1", false);
  store.AddRecord(L"k", L"2", false);
  store.AddRecord(L"k", L"1", true);
  EXPECT_EQ(store.Records(),
            (std::list<std::wstring>{L"{\"k\":1}", L"{\"k\":2}", L"{\"k\":\"1\"}"}));
}

TEST(ReportStoreTest, ManyThreadsAtOnceLoseNothing) {
  CReportStore store;
  {
    std::vector<std::jthread> threads;
    for (int i = 0; i < 8; ++i) {
      threads.emplace_back([&store, i] {
        for (int round = 0; round < 500; ++round) {
          store.IncrementCounter(L"all");
          store.SetPropertyInt(L"p" + std::to_wstring(i), round);
          store.AddRecord(L"r" + std::to_wstring(i), std::to_wstring(round % 10), false);
        }
      });
    }
  }
  EXPECT_EQ(store.Counters().at(L"all"), 4000U);
  EXPECT_EQ(store.Properties().size(), 8U);
  EXPECT_EQ(store.Records().size(), 80U);
}

TEST(ReportStoreTest, SharedStoreIsOneAndKnowsWhenItWasLoaded) {
  EXPECT_EQ(&CReportStore::Shared(), &CReportStore::Shared());
  const std::int64_t now = os::UnixSeconds();
  EXPECT_LE(CReportStore::Shared().load_time(), now);
  EXPECT_GT(CReportStore::Shared().load_time(), now - 24 * 3600);
}

}  // namespace
}  // namespace Tarnlo
