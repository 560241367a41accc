// MD5 digests of what tests download, in the capital hexadecimal digits that a job compares with.
#pragma once

#include <string>

#include "tests/support/body.h"

namespace Tarnlo::test {

std::wstring Md5Of(const std::string& bytes);
std::wstring Md5Of(const Body& body);

}  // namespace Tarnlo::test
