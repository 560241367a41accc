// The name of a file that is downloaded.
#pragma once

#include <string>

namespace host {

// The name that the library gives the file: what follows the last slash of the URL, its extension
// up to the first character that is no letter or digit.
std::wstring NameOf(std::wstring url);

}  // namespace host
