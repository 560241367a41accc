// Who calls by the table finds each operation where it was.
#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <cstring>
#include <vector>

#include "manager/callback.h"
#include "manager/downloader_manager.h"

namespace Tarnlo {
namespace {

// A pointer to a virtual operation begins with its place in the table, in bytes, plus 1.
template <typename Operation>
std::ptrdiff_t SlotOf(Operation operation) {
  std::array<std::ptrdiff_t, 2> parts{};
  static_assert(sizeof(operation) == sizeof(parts));
  std::memcpy(parts.data(), &operation, sizeof(parts));
  return (parts[0] - 1) / static_cast<std::ptrdiff_t>(sizeof(void*));
}

template <typename... Operations>
std::vector<std::ptrdiff_t> SlotsOf(Operations... operations) {
  return {SlotOf(operations)...};
}

TEST(OperationSlotsTest, OfTheCallback) {
  using Callback = IDownloaderManagerCallBack;
  EXPECT_EQ(SlotsOf(&Callback::OnTaskMessage, &Callback::OnTaskValue, &Callback::OnTaskProgress,
                    &Callback::OnTaskComplete, &Callback::OnTaskFail, &Callback::OnTaskStage,
                    &Callback::OnTaskStart),
            (std::vector<std::ptrdiff_t>{0, 1, 2, 3, 4, 5, 6}));
}

// The destructor comes first and takes two places.
TEST(OperationSlotsTest, OfTheManager) {
  using Manager = IDownloaderManager;
  EXPECT_EQ(SlotsOf(&Manager::PauseTask, &Manager::ContinueTask, &Manager::AddTask,
                    &Manager::RemoveTask, &Manager::GetTaskProgress, &Manager::CancelTask,
                    &Manager::SetNotifyWindow, &Manager::SetCallBack, &Manager::GetDownloadInfo,
                    &DownloaderManager::GetTaskCount, &DownloaderManager::CancelAllTasks),
            (std::vector<std::ptrdiff_t>{2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}));
}

}  // namespace
}  // namespace Tarnlo
