#include "tests/support/digest.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "engine/md5.h"

namespace Tarnlo::test {

std::wstring Md5Of(const std::string& bytes) {
  MD5 md5;
  md5.Update(bytes.data(), bytes.size());
  md5.Finalize();
  return md5.HexDigest();
}

std::wstring Md5Of(const Body& body) {
  constexpr std::int64_t kPiece = 1'000'000;
  MD5 md5;
  for (std::int64_t at = 0; at < body.size(); at += kPiece) {
    const auto length = static_cast<std::size_t>(std::min(kPiece, body.size() - at));
    md5.Update(body.Bytes(at, length).data(), length);
  }
  md5.Finalize();
  return md5.HexDigest();
}

}  // namespace Tarnlo::test
