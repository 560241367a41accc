// Facts that the library keeps for the life of the process: it writes them and never reads them.
#pragma once

#include <cstdint>
#include <list>
#include <map>
#include <string>
#include <string_view>

#include "support/os/lock.h"

namespace Tarnlo {

// Threads: any thread may call any operation; each takes one lock for its own duration.
class CReportStore {
 public:
  CReportStore();
  CReportStore(const CReportStore&) = delete;
  CReportStore& operator=(const CReportStore&) = delete;

  // The one store of the process.
  static CReportStore& Shared();

  void IncrementCounter(const std::wstring& key);
  void SetProperty(const std::wstring& key, const std::wstring& text);
  void SetPropertyInt(const std::wstring& key, std::int32_t number);
  // Appends {"key":"value"}, or {"key":value} when not quoted, unless the same text is there.
  // Nothing is escaped.
  void AddRecord(const std::wstring& key, const std::wstring& value, bool quoted);

  // Copies, for whoever wants to look.
  std::map<std::wstring, std::uint32_t> Counters() const;
  std::map<std::wstring, std::wstring> Properties() const;
  std::list<std::wstring> Records() const;
  [[nodiscard]] std::int64_t load_time() const { return m_load_time; }

 private:
  mutable os::Lock m_counter_lock;
  std::map<std::wstring, std::uint32_t> m_counters GUARDED_BY(m_counter_lock);
  mutable os::Lock m_property_lock;
  std::map<std::wstring, std::wstring> m_properties GUARDED_BY(m_property_lock);
  mutable os::Lock m_record_lock;
  std::list<std::wstring> m_records GUARDED_BY(m_record_lock);
  const std::int64_t m_load_time;
  const std::wstring m_platform_address;
};

}  // namespace Tarnlo
