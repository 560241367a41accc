// Whether the body of an answer holds the bytes that were asked for.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace Tarnlo {

enum class RangeAnswer {
  kRefused,    // no byte of the body may be written
  kAccepted,   // the body begins at the byte asked for
  kStartOver,  // the body is the whole file, and so begins at the range's own first byte
};

// For a request of the bytes from `asked` on, for a range that begins at `range_start`. A 206 must
// begin where asked, as far as it says where it begins; any other 2xx is the file from byte 0.
// Reads the head up to its empty line, whatever follows.
RangeAnswer AcceptRangeAnswer(std::wstring_view head, std::int64_t range_start, std::int64_t asked);

// The first byte that a Content-Range value names ("bytes 5-9/10", spelled with some freedom).
std::optional<std::int64_t> ParseContentRangeStart(std::wstring_view value);

}  // namespace Tarnlo
