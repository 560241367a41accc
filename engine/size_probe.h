// The size of a remote file, by the vote of its host's addresses.
#pragma once

#include <cstdint>
#include <string>

#include "support/os/event.h"

namespace Tarnlo {

// The low 32 bits of the length that most addresses report; 0 when none does, when the name does
// not resolve, or when `stop` (which may be null) was set.
std::uint32_t ProbeCdnFileSize(const std::wstring& url, const os::Event* stop);

}  // namespace Tarnlo
