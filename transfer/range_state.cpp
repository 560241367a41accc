#include "transfer/range_state.h"

#include <algorithm>

namespace Tarnlo {

void RangeState::Assign(std::int64_t start, std::int64_t length, std::int64_t received) {
  {
    const os::LockGuard guard(m_csRange);
    m_nRangeStart = start;
    m_nRangeLength = length;
    m_nClaimed = received;
  }
  const os::LockGuard guard(m_csReceived);
  m_nReceived = received;
  m_nBuffered = 0;
}

void RangeState::SetLength(std::int64_t length) {
  const os::LockGuard guard(m_csRange);
  m_nRangeLength = length;
}

bool RangeState::TryCut(std::int64_t length) {
  const os::LockGuard guard(m_csRange);
  if (length < 1 || length > m_nRangeLength || length < m_nClaimed) return false;
  m_nRangeLength = length;
  return true;
}

std::int64_t RangeState::Claim(std::int64_t position, std::int64_t wanted) {
  const os::LockGuard guard(m_csRange);
  std::int64_t room = wanted;
  if (m_nRangeLength > 0) {
    room = std::clamp<std::int64_t>(m_nRangeLength - position, 0, wanted);
  }
  m_nClaimed = position + room;
  return room;
}

void RangeState::Unclaim(std::int64_t position) {
  const os::LockGuard guard(m_csRange);
  m_nClaimed = position;
}

void RangeState::SetBuffered(std::int64_t count) {
  const os::LockGuard guard(m_csReceived);
  m_nBuffered = count;
}

std::int64_t RangeState::AddReceived(std::int64_t count) {
  const os::LockGuard guard(m_csReceived);
  m_nReceived += count;
  m_nBuffered -= std::min(count, m_nBuffered);
  return m_nReceived;
}

void RangeState::StartOver() {
  {
    const os::LockGuard guard(m_csReceived);
    m_nReceived = 0;
    m_nBuffered = 0;
  }
  Unclaim(0);
}

std::int64_t RangeState::start() const {
  const os::LockGuard guard(m_csRange);
  return m_nRangeStart;
}

std::int64_t RangeState::length() const {
  const os::LockGuard guard(m_csRange);
  return m_nRangeLength;
}

std::int64_t RangeState::received() const {
  const os::LockGuard guard(m_csReceived);
  return m_nReceived;
}

std::int64_t RangeState::buffered() const {
  const os::LockGuard guard(m_csReceived);
  return m_nBuffered;
}

std::int64_t RangeState::Remaining() const {
  const std::int64_t range_length = length();
  const os::LockGuard guard(m_csReceived);
  return range_length - m_nReceived - m_nBuffered;
}

}  // namespace Tarnlo
