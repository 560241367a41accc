// The DLL loaded and freed by hand, its functions found by name.
#pragma once

#include <windows.h>

#include <cstdint>
#include <string>

#include "api/tarnlo.h"
#include "tests/abi/host_record.h"

namespace Tarnlo::test {

// Lifetime: frees the module, which stays where its threads need it.
class LoadedDll {
 public:
  LoadedDll() : m_module(LoadLibraryW(L"tarnlo.dll")) {}
  LoadedDll(const LoadedDll&) = delete;
  LoadedDll& operator=(const LoadedDll&) = delete;
  ~LoadedDll() { FreeLibrary(m_module); }

  static bool IsThere() { return GetModuleHandleW(L"tarnlo.dll") != nullptr; }
  // After a host that has lost count has freed it so often.
  static bool IsThereAfterFreeing(int times) {
    for (int i = 0; i < times; ++i) FreeLibrary(GetModuleHandleW(L"tarnlo.dll"));
    return IsThere();
  }
  [[nodiscard]] bool valid() const { return m_module != nullptr; }

  std::int32_t create_task(const Task* task) const {
    return Find<std::int32_t (*)(const Task*)>("_ZN6Tarnlo11create_taskEPKNS_4TaskE")(task);
  }
  bool cancel_task(std::int32_t id) const {
    return Find<bool (*)(std::int32_t)>("_ZN6Tarnlo11cancel_taskEi")(id);
  }
  bool pause_task(std::int32_t id) const {
    return Find<bool (*)(std::int32_t)>("_ZN6Tarnlo10pause_taskEi")(id);
  }
  bool continue_task(std::int32_t id) const {
    return Find<bool (*)(std::int32_t)>("_ZN6Tarnlo13continue_taskEi")(id);
  }
  bool cancel_all_task() const { return Find<bool (*)()>("_ZN6Tarnlo15cancel_all_taskEv")(); }
  std::int32_t test_download() const {
    return Find<std::int32_t (*)()>("_ZN6Tarnlo13test_downloadEv")();
  }
  std::int32_t fntarnlo() const { return Find<std::int32_t (*)()>("_ZN6Tarnlo8fntarnloEv")(); }
  std::string get_all_tasks() const {
    return Find<std::string (*)()>("_ZN6Tarnlo13get_all_tasksB5cxx11Ev")();
  }
  std::int32_t ntarnlo() const { return *Find<const std::int32_t*>("_ZN6Tarnlo7ntarnloE"); }
  // The constructor, on memory of the caller's.
  void MakeCtarnlo(void* where) const { Find<void (*)(void*)>("_ZN6Tarnlo7CtarnloC1Ev")(where); }
  void set_callback_start(StartCallback callback) const {
    Find<void (*)(StartCallback)>("_ZN6Tarnlo18set_callback_startEPFviE")(callback);
  }
  void set_callback_process(ProcessCallback callback) const {
    Find<void (*)(ProcessCallback)>("_ZN6Tarnlo20set_callback_processEPFvixxiE")(callback);
  }
  void set_callback_complete(CompleteCallback callback) const {
    Find<void (*)(CompleteCallback)>("_ZN6Tarnlo21set_callback_completeEPFviE")(callback);
  }
  void set_callback_fail(FailCallback callback) const {
    Find<void (*)(FailCallback)>("_ZN6Tarnlo17set_callback_failEPFviNS_12NsResultEnumEE")(callback);
  }
  // All four to the record of this process.
  void SetCallbacks() const {
    set_callback_start(&HostRecord::Start);
    set_callback_process(&HostRecord::Progress);
    set_callback_complete(&HostRecord::Complete);
    set_callback_fail(&HostRecord::Fail);
  }

 private:
  template <typename Function>
  Function Find(const char* name) const {
    return reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(m_module, name)));
  }

  HMODULE m_module;
};

}  // namespace Tarnlo::test
