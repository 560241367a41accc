// The path of the finished file, from four names that a host and a server chose: one a line.
#include <algorithm>
#include <array>
#include <optional>
#include <string>

#include "engine/target_path.h"
#include "support/paths.h"
#include "support/text.h"
#include "tests/fuzz/fuzz.h"

namespace Tarnlo::fuzz {
namespace {

bool IsDevice(std::wstring name) {
  name = ToLower(name.substr(0, name.find(L'.')));
  while (name.ends_with(L' ')) name.pop_back();
  for (const std::wstring_view device : {L"con", L"prn", L"aux", L"nul", L"conin$", L"conout$"}) {
    if (name == device) return true;
  }
  if (!name.starts_with(L"com") && !name.starts_with(L"lpt")) return false;
  return name.size() == 4 && (name[3] >= L'0' && name[3] <= L'9');
}

void CheckName(const std::wstring& name) {
  Require(!name.empty() && name.size() <= 255, "a name has a name's length");
  Require(!ContainsAny(name, L":*?\"<>|\\/"), "a name has nothing forbidden");
  Require(std::all_of(name.begin(), name.end(), [](wchar_t c) { return c >= L' '; }),
          "a name has no control characters");
  Require(!name.ends_with(L'.') && !name.ends_with(L' '), "the system takes the name as it is");
  Require(!IsDevice(name), "a name is no device");
}

void RunInput(Input input) {
  TargetNames names;
  names.folder = Wide(input.Line());
  names.given = Wide(input.Line());
  names.in_url = Wide(input.Line());
  names.remote = Wide(input.rest());
  const std::optional<std::wstring> path = BuildTargetPath(names);
  if (!path) return;
  const std::wstring closed = names.folder + (names.folder.ends_with(L'\\') ? L"" : L"\\");
  const std::wstring folder = CleanName(closed, CleanMode::kPath);
  Require(path->starts_with(folder), "a file lies in its folder");
  CheckName(path->substr(folder.size()));
  Require(BuildTargetPath({folder, L"", L"", path->substr(folder.size())}) == path,
          "a name that was made is taken as it is");
}

}  // namespace
}  // namespace Tarnlo::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Tarnlo::fuzz::RunInput(Tarnlo::fuzz::Input(data, size));
  return 0;
}
