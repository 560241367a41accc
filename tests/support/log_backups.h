// What processes leave of their logs in the temp folder they are given.
#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <regex>
#include <string>
#include <vector>

#include "support/os/clock.h"
#include "support/text.h"
#include "tests/support/temp_folder.h"

namespace Tarnlo::test {

// Lifetime: made before the first process; the folder outlives it.
class LogBackups {
 public:
  explicit LogBackups(const TempFolder& folder) : m_folder(folder) {}

  // The one without a counter first.
  [[nodiscard]] std::vector<std::wstring> Names() const {
    auto names = m_folder.Names();
    std::erase_if(names, [](const std::wstring& name) { return name == L"tarnlo.log"; });
    for (const std::wstring& name : names) {
      EXPECT_TRUE(std::regex_match(WideToNarrow(name),
                                   std::regex(R"(tarnlo\.log\.\d{4}-\d\d-\d\d(\.\d+)?)")));
    }
    return names;
  }
  // As many as processes ran; in the hour of the daily backup each may have made one more.
  void ExpectOf(std::size_t processes) const {
    const bool in_backup_hour = m_first_hour == 23 || os::LocalTimeNow().hour == 23;
    EXPECT_GE(Names().size(), processes);
    EXPECT_LE(Names().size(), in_backup_hour ? 2 * processes : processes);
  }

 private:
  const TempFolder& m_folder;
  const int m_first_hour = os::LocalTimeNow().hour;
};

}  // namespace Tarnlo::test
