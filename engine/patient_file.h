// Files that someone else holds open for a moment, as a virus scanner does.
#pragma once

#include <string>

#include "support/os/event.h"
#include "support/os/file.h"

namespace Tarnlo {

// Both try again after 200, 400 and 800 ms; a stop cuts the waits short and the tries with them.

// A file that is there, for reading and writing, shared with readers and writers. Not valid when it
// cannot be had.
os::File OpenPatiently(const std::wstring& path, const os::Event& stop);

// `from` in the place of `to`; on failure both stay as they were. True when it is done.
bool ReplacePatiently(const std::wstring& from, const std::wstring& to, const os::Event& stop);

}  // namespace Tarnlo
