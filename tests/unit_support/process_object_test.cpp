#include "support/process_object.h"

#include <gtest/gtest.h>

#include <type_traits>
#include <vector>

#include "tests/support/child_process.h"
#include "tests/support/temp_folder.h"

namespace Tarnlo {
namespace {

std::vector<int> g_notes;

template <int number>
struct Noted {
  Noted() { g_notes.push_back(number); }
  ~Noted() { g_notes.push_back(-number); }
  Noted(const Noted&) = delete;
  Noted& operator=(const Noted&) = delete;
  [[nodiscard]] int value() const { return number; }
};

// A process of its own, since this program's other process objects go too.
TEST(ProcessObjectChild, DISABLED_DestroysAll) {
  static ProcessObject<Noted<1>> first;
  static ProcessObject<Noted<2>> second;
  EXPECT_EQ(first->value(), 1);
  EXPECT_EQ((*second).value(), 2);
  EXPECT_EQ(g_notes, (std::vector<int>{1, 2}));
  ProcessObjectBase::DestroyAll();
  EXPECT_EQ(g_notes, (std::vector<int>{1, 2, -2, -1}));
  ProcessObjectBase::DestroyAll();
  EXPECT_EQ(g_notes.size(), 4U);
}

TEST(ProcessObjectTest, AllAreDestroyedOnceTheNewestFirst) {
  const test::TempFolder temp;
  EXPECT_EQ(test::RunTestInChild("ProcessObjectChild.DISABLED_DestroysAll", temp.path()), 0);
}

// So that the end of the process runs nothing.
static_assert(std::is_trivially_destructible_v<ProcessObject<Noted<1>>>);

}  // namespace
}  // namespace Tarnlo
