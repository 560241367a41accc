#include "examples/tarnlo_get/outcome.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cwchar>
#include <system_error>

#include "examples/tarnlo_get/figures.h"
#include "examples/tarnlo_get/file_md5.h"

namespace host {
namespace {

using Seconds = std::chrono::duration<double>;

const wchar_t* Meaning(std::int32_t result) {
  switch (result) {
    case Tarnlo::kResultTooFewBytes:
      return L"the connections ended before the whole file had arrived, or its length is unknown";
    case Tarnlo::kResultNoRemoteInfo:
      return L"the server could not be reached or did not say what it has";
    case Tarnlo::kResultAssignmentFailed:
      return L"the connections could not be set to work";
    case Tarnlo::kResultFileFailed:
      return L"the file could not be created or finished";
    case Tarnlo::kResultNoSpace:
      return L"there is no room for the file";
    case Tarnlo::kResultMd5Mismatch:
      return L"the file has none of the expected MD5 values and was deleted";
    case Tarnlo::kResultTooManyBytes:
      return L"more bytes arrived than the file has";
    case Tarnlo::kResultStopped:
      return L"it was stopped";
    case Tarnlo::kResultRangesIncomplete:
      return L"a part of the file is incomplete";
    case Tarnlo::kResultWaitFailed:
      return L"waiting for the connections failed";
    case -1:
      return L"the library refused to start it: look at the URL and the folder";
    default:
      return L"unknown result";
  }
}

// Which of the expected values it was: the library says only that it was one of them. Nothing for a
// file that was there already and was not checked.
std::wstring Verified(const std::filesystem::path& path, const std::wstring& list) {
  const std::wstring digest = HexMd5Of(path);
  for (std::size_t begin = 0; begin <= list.size();) {
    const std::size_t end = std::min(list.find(L',', begin), list.size());
    const std::wstring entry = list.substr(begin, end - begin);
    if (!digest.empty() && _wcsicmp(entry.c_str(), digest.c_str()) == 0) {
      return L"verified MD5 " + digest + L"\n";
    }
    begin = end + 1;
  }
  return {};
}

}  // namespace

std::wstring Success(const Download& download, const std::filesystem::path& folder,
                     const std::wstring& md5) {
  const std::filesystem::path path = folder / download.name;
  std::error_code error;
  const bool there = std::filesystem::is_regular_file(path, error);
  // A server that redirects may have given it another name.
  std::wstring text = L"saved " + (there ? path : folder).wstring() + L"\n";
  if (there && md5.size() > 3) text += Verified(path, md5);
  if (!download.first) return text + L"nothing to fetch: it was there\n";
  const double moving = Seconds(download.last->time - download.first->time).count();
  const auto bytes = static_cast<double>(download.last->downloaded - download.first->downloaded);
  if (moving > 0) {
    text +=
        L"average " + Fixed(bytes / 1e6 / moving, 2) + L" MB/s from first to last progress call\n";
  }
  text += L"start " + Fixed(Seconds(download.first->time - download.created).count(), 2);
  text += L" s, verification " + Fixed(Seconds(*download.ended - download.last->time).count(), 2);
  return text + L" s\n";
}

std::wstring Failure(const Download& download) {
  return L"failed " + download.url + L": " + std::to_wstring(download.result) + L", " +
         Meaning(download.result) + L"\n";
}

}  // namespace host
