#include "engine/md5_list.h"

#include <algorithm>

namespace Tarnlo {

Md5Verdict CompareWithMd5List(std::wstring_view digest, std::wstring_view list, bool pre_check) {
  if (pre_check && list.starts_with(L',')) return Md5Verdict::kListRefused;
  for (;;) {
    list.remove_prefix(std::min(list.find_first_not_of(L','), list.size()));
    if (list.empty()) return Md5Verdict::kNoMatch;
    const std::wstring_view token = list.substr(0, list.find(L','));
    if (token == digest) return Md5Verdict::kMatch;
    if (pre_check) return Md5Verdict::kNoMatch;
    list.remove_prefix(token.size());
  }
}

}  // namespace Tarnlo
