// Files that someone else holds open for a moment, as a virus scanner does.
#pragma once

#include <string>

#include "support/os/event.h"
#include "support/os/file.h"

namespace Tarnlo {

// Both try again after 200, 400 and 800 ms; a stop cuts the waits short and the tries with them.
// Without a stop event (null) they try once.

// For reading, shared with readers, or for writing, shared with writers as well. Not valid when the
// file cannot be had; at once when there is none.
os::File OpenPatiently(const std::wstring& path, os::FileAccess access, const os::Event* stop);

// `from` in the place of `to`; on failure both stay as they were. True when it is done.
bool ReplacePatiently(const std::wstring& from, const std::wstring& to, const os::Event* stop);

}  // namespace Tarnlo
