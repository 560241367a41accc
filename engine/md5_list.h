// Whether a digest is among the expected ones.
#pragma once

#include <string_view>

namespace Tarnlo {

enum class Md5Verdict { kMatch, kNoMatch, kListRefused };

// `list` holds digests separated by ","; empty entries do not count, and case matters. Before a
// download only the first entry is tried, and a list that begins with "," is refused.
Md5Verdict CompareWithMd5List(std::wstring_view digest, std::wstring_view list, bool pre_check);

}  // namespace Tarnlo
