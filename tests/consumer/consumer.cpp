// Calls the installed library: before the first task there is nothing to cancel and no list.
#include <tarnlo/tarnlo.h>

#include <cstdio>

int main() {
  const bool cancelled = Tarnlo::cancel_task(1);
  const bool empty = Tarnlo::get_all_tasks().empty();
  std::printf("cancelled %d, no list %d\n", cancelled ? 1 : 0, empty ? 1 : 0);
  return !cancelled && empty ? 0 : 1;
}
