// Where the finished file goes.
#pragma once

#include <optional>
#include <string>

namespace Tarnlo {

struct TargetNames {
  std::wstring folder;  // a closing backslash is added when missing
  std::wstring given;   // the caller's name for the file; may be empty
  std::wstring in_url;  // the last segment of the URL's path
  std::wstring remote;  // what the server calls the file
};

// Nothing when the name cannot be that of a plain file in the folder. A given name that merely
// repeats the URL's gives way to the server's.
std::optional<std::wstring> BuildTargetPath(const TargetNames& names);

}  // namespace Tarnlo
