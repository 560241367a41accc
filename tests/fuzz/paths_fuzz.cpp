// Cleaning and splitting paths and names.
#include <optional>
#include <string>

#include "support/paths.h"
#include "tests/fuzz/fuzz.h"

namespace Tarnlo::fuzz {
namespace {

constexpr std::wstring_view kForbidden = L":*?\"<>|";

void CheckClean(const std::wstring& text) {
  const std::wstring name = CleanName(text, CleanMode::kName);
  Require(!ContainsAny(name, kForbidden) && !ContainsAny(name, L"\\/"), "a clean name");
  Require(CleanName(name, CleanMode::kName) == name, "a clean name stays");
  const std::wstring path = CleanName(text, CleanMode::kPath);
  const std::size_t drive = path.size() >= 2 && path[1] == L':' ? 2 : 0;
  Require(!ContainsAny(path.substr(drive), kForbidden), "a clean path");
  Require(CleanName(path, CleanMode::kPath) == path, "a clean path stays");
  Require(name.size() == text.size() && path.size() == text.size(), "a character for each");
  for (std::size_t i = 0; i < text.size(); ++i) {
    const bool separator = text[i] == L'\\' || text[i] == L'/';
    Require(path[i] == text[i] || (path[i] == L'_' && !separator), "separators stay in a path");
    Require(name[i] == text[i] || name[i] == L'_', "and become underscores in a name");
  }
}

void CheckPath(const std::wstring& text) {
  const std::optional<PathParts> parts = SplitPath(text);
  if (!parts) return Require(text.size() >= kNameCapacity - 1, "only a long folder is refused");
  Require(parts->folder.size() < kNameCapacity && parts->name.size() < kNameCapacity, "parts fit");
  const wchar_t separator = Contains(text, L"/") ? L'/' : L'\\';
  Require(parts->name.find(separator) == std::wstring::npos, "a name has no separator");
  Require(parts->folder.empty() || parts->folder.back() == separator, "a folder is closed");
  if (parts->name.empty()) return;  // the text may name a folder of this machine
  Require(text.starts_with(parts->folder + parts->name), "the parts make the path");
}

void CheckName(const std::wstring& text) {
  const std::optional<NameParts> parts = SplitName(text);
  if (!parts) return Require(text.rfind(L'.') >= kNameCapacity, "only a late point is refused");
  Require(parts->base.size() < kNameCapacity && parts->extension.size() < kNameCapacity,
          "parts fit");
  Require(text.starts_with(parts->base), "a base is the beginning");
  for (const wchar_t c : parts->extension) {
    const bool plain =
        (c >= L'0' && c <= L'9') || (c >= L'A' && c <= L'Z') || (c >= L'a' && c <= L'z');
    Require(plain, "an extension is letters and digits");
  }
  if (parts->extension.empty()) return;
  Require(Contains(text, parts->base + L"." + parts->extension), "the parts make the name");
}

void RunInput(Input input) {
  const std::wstring text = Wide(input.rest());
  CheckClean(text);
  CheckPath(text);
  CheckName(text);
  const std::optional<FileParts> parts = SplitFile(text);
  if (parts) Require(SplitPath(text)->folder == parts->folder, "a file's folder is its path's");
}

}  // namespace
}  // namespace Tarnlo::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Tarnlo::fuzz::RunInput(Tarnlo::fuzz::Input(data, size));
  return 0;
}
