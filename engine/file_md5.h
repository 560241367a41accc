// The digest of a file.
#pragma once

#include <optional>
#include <string>

#include "support/os/event.h"

namespace Tarnlo {

// 32 upper-case hexadecimal digits; empty when the file cannot be had, though someone who holds it
// for a moment is given the time (patient_file.h), or cannot be read; nothing when `stop` (which
// may be null) was set before the end. A read that fails half-way gives the digest of what came
// before it.
std::optional<std::wstring> ComputeFileMd5(const std::wstring& path, const os::Event* stop);

}  // namespace Tarnlo
