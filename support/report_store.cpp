#include "support/report_store.h"

#include <algorithm>

#include "support/os/clock.h"
#include "support/process_object.h"
#include "support/text.h"

namespace Tarnlo {
namespace {

ProcessObject<CReportStore> g_store;

}  // namespace

CReportStore::CReportStore()
    : m_load_time(os::UnixSeconds()), m_platform_address(L"http://localhost/") {}

CReportStore& CReportStore::Shared() {
  return *g_store;
}

void CReportStore::IncrementCounter(const std::wstring& key) {
  const os::LockGuard guard(m_counter_lock);
  ++m_counters[key];
}

void CReportStore::SetProperty(const std::wstring& key, const std::wstring& text) {
  const os::LockGuard guard(m_property_lock);
  m_properties[key] = text;
}

void CReportStore::SetPropertyInt(const std::wstring& key, std::int32_t number) {
  SetProperty(key, NumberToWide(number));
}

void CReportStore::AddRecord(const std::wstring& key, const std::wstring& value, bool quoted) {
  const std::wstring mark = quoted ? L"\"" : L"";
  std::wstring record = L"{\"" + key + L"\":" + mark + value + mark + L"}";
  const os::LockGuard guard(m_record_lock);
  if (std::find(m_records.begin(), m_records.end(), record) != m_records.end()) return;
  m_records.push_back(std::move(record));
}

std::map<std::wstring, std::uint32_t> CReportStore::Counters() const {
  const os::LockGuard guard(m_counter_lock);
  return m_counters;
}

std::map<std::wstring, std::wstring> CReportStore::Properties() const {
  const os::LockGuard guard(m_property_lock);
  return m_properties;
}

std::list<std::wstring> CReportStore::Records() const {
  const os::LockGuard guard(m_record_lock);
  return m_records;
}

}  // namespace Tarnlo
