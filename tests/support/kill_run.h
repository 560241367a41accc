// Processes that are killed in the middle of a download, and the next one that goes on.
#pragma once

#include <string>

namespace Tarnlo::test {

// What the child finds in its environment: the folder to download into, and the URL. It ends with 0
// when the download is complete.
inline constexpr char kKillFolder[] = "TARNLO_KILL_FOLDER";
inline constexpr char kKillUrl[] = "TARNLO_KILL_URL";

// Kills the child, a test of this program, again and again, several downloads side by side: at any
// moment, around each saving of the trailer, and sometimes a second time when it has gone on. After
// each kill the temporary file is looked at; then a child must complete it, and fetch what the
// trailer misses and nothing else. Prints the figures; a few kills, or all in a long run.
void KillAndComplete(const std::string& child_test);

}  // namespace Tarnlo::test
