#include "hosts/step_relay.h"

#include "support/os/wait.h"
#include "support/run_aside.h"

namespace Tarnlo {

void StepRelay::Step(int number) {
  const os::LockGuard guard(m_lock);
  m_steps.push_back(number);
  m_news->Set();
}

void StepRelay::Finish() {
  const os::LockGuard guard(m_lock);
  m_finished = true;
  m_news->Set();
}

bool StepRelay::WriteUntilFinished(const StepLog& log, const os::Event* stop) {
  for (;;) {
    std::vector<int> steps;
    bool finished = false;
    std::shared_ptr<os::Event> news;
    {
      const os::LockGuard guard(m_lock);
      steps.swap(m_steps);
      finished = m_finished;
      if (m_news->IsSet()) m_news = std::make_shared<os::Event>();
      news = m_news;
    }
    for (const int step : steps) log(step);
    if (finished) return true;
    if (!WaitUnlessStopped(*news, stop, os::kForever)) return false;
  }
}

}  // namespace Tarnlo
