// Base64 with the standard alphabet and padding.
#pragma once

#include <string>
#include <string_view>

namespace Tarnlo {

std::string EncodeBase64(std::string_view bytes);

}  // namespace Tarnlo
