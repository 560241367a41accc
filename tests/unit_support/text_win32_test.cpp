// The default locale's code page is the system's here; elsewhere they have nothing in common.
#include <gtest/gtest.h>

#include "support/text.h"

namespace Tarnlo {
namespace {

TEST(NarrowToWideWin32Test, BytesOfTheSystemsCodePageBecomeItsCharacters) {
  EXPECT_EQ(NarrowToWide(WideToNarrow(L"caf\u00E9 \u20AC")), L"caf\u00E9 \u20AC");
}

}  // namespace
}  // namespace Tarnlo
