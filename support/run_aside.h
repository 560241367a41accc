// Calls that may block for long, made on a thread of their own so that the caller can walk away.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <utility>

#include "support/os/event.h"

namespace Tarnlo {

// Starts a thread that runs `work` and owns it; nobody waits for its end. False when there is no
// thread to be had.
bool StartDetached(std::function<void()> work);

// True when `done` was set within the time and before `stop` (which may be null).
bool WaitUnlessStopped(const os::Event& done, const os::Event* stop, std::uint32_t milliseconds);

// What the two sides of a call share.
template <typename Answer>
struct AsideState {
  os::Event done;
  std::optional<Answer> answer;  // written before `done` is set; nothing when the work threw

  // However the work ends, nobody waits longer than it takes.
  struct DoneAtExit {
    explicit DoneAtExit(AsideState& state) : m_state(state) {}
    DoneAtExit(const DoneAtExit&) = delete;
    DoneAtExit& operator=(const DoneAtExit&) = delete;
    ~DoneAtExit() { m_state.done.Set(); }

   private:
    AsideState& m_state;
  };
};

// Runs `work` on a thread of its own and waits for its answer: nothing when `stop` (which may be
// null) is set first, when the time is over, when the work throws, or when no thread could be
// started. Work that was left behind goes on and its answer is dropped: it must own all that it
// touches.
template <typename Answer>
std::optional<Answer> RunAside(std::function<Answer()> work, const os::Event* stop,
                               std::uint32_t milliseconds) {
  if (stop != nullptr && stop->IsSet()) return std::nullopt;
  using State = AsideState<Answer>;
  const auto state = std::make_shared<State>();
  const bool started = StartDetached([state, work = std::move(work)] {
    const typename State::DoneAtExit done(*state);
    state->answer = work();
  });
  if (!started || !WaitUnlessStopped(state->done, stop, milliseconds)) return std::nullopt;
  return std::move(state->answer);
}

}  // namespace Tarnlo
