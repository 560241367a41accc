// A host that links the import library and uses nothing but the exports.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "api/tarnlo.h"
#include "tests/abi/host_record.h"
#include "tests/support/body.h"
#include "tests/support/fault_server.h"
#include "tests/support/gate.h"
#include "tests/support/temp_folder.h"

namespace Tarnlo::test {

// All four to the record of this process.
inline void SetCallbacks() {
  set_callback_start(&HostRecord::Start);
  set_callback_process(&HostRecord::Progress);
  set_callback_complete(&HostRecord::Complete);
  set_callback_fail(&HostRecord::Fail);
}

inline std::string Narrow(const std::wstring& ascii) {
  return {ascii.begin(), ascii.end()};
}

// A server, a folder and the record of a host whose tasks have ids up to 20.
class AbiTest : public testing::Test {
 protected:
  AbiTest() {
    m_server.Serve("/f", m_body);
    m_server.Serve("/stalled", m_body).StallingAfter(1000, m_gate);
    SetCallbacks();
  }
  ~AbiTest() override {
    for (std::int32_t id = 1; id <= 20; ++id) cancel_task(id);
    m_record.Clear();
  }

  [[nodiscard]] Task TaskOf(std::int32_t id, const std::string& path) const {
    Task task;
    task.save_dir = m_folder.path();
    task.url = Narrow(m_server.Url(path));
    task.id = id;
    return task;
  }
  std::int32_t Create(std::int32_t id, const std::string& path) {
    const Task task = TaskOf(id, path);
    return create_task(&task);
  }
  void ExpectFile(const std::wstring& name) const {
    EXPECT_EQ(FileDifference(m_folder.File(name), m_body), "");
  }

  const Body m_body{600'000};
  Gate m_gate;
  TempFolder m_folder;
  FaultServer m_server;
  HostRecord& m_record = HostRecord::Get();
};

// What answers the same before the first task and after it.
inline void ExpectTheRest() {
  EXPECT_TRUE(cancel_all_task());
  EXPECT_EQ(get_all_tasks(), "");
  EXPECT_EQ(fntarnlo(), 0);
  EXPECT_EQ(ntarnlo, 0);
  const Ctarnlo one;
  Ctarnlo other;
  EXPECT_EQ(&(other = one), &other);
}

}  // namespace Tarnlo::test
