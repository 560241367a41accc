// Versions as text: two of them, one a line.
#include <algorithm>
#include <cstdlib>
#include <limits>
#include <string>
#include <vector>

#include "engine/file_version.h"
#include "tests/fuzz/fuzz.h"

namespace Tarnlo::fuzz {
namespace {

std::string Joined(const std::vector<int>& numbers) {
  std::string text;
  for (const int number : numbers) {
    if (!text.empty()) text += '.';
    text += std::to_string(number);
  }
  return text;
}

// What the C library reads at the same place, the nearest there is.
int Expected(const std::string& piece) {
  const long long number = std::strtoll(piece.c_str(), nullptr, 10);
  using Limits = std::numeric_limits<int>;
  return static_cast<int>(std::clamp<long long>(number, Limits::min(), Limits::max()));
}

std::vector<int> Check(std::string_view text) {
  const std::vector<int> numbers = ParseVersion(text);
  Require(ParseVersion(Joined(numbers)) == numbers, "numbers that are written are read");
  std::size_t at = 0;
  for (std::size_t begin = 0; begin < text.size();) {
    const std::size_t end = std::min(text.find('.', begin), text.size());
    if (end > begin) {
      Require(at < numbers.size(), "a number for each piece");
      Require(numbers[at++] == Expected(std::string(text.substr(begin, end - begin))),
              "a piece is its number");
    }
    begin = end + 1;
  }
  Require(at == numbers.size(), "and no other numbers");
  return numbers;
}

void RunInput(Input input) {
  const std::vector<int> has = Check(input.Line());
  const std::vector<int> needs = Check(input.rest());
  Require(VersionReaches(has, has) == (has.size() >= 3), "a version reaches itself");
  const bool comparable = has.size() >= 3 && needs.size() >= 3;
  const bool reaches = comparable && has[0] >= needs[0] && has[1] >= needs[1] && has[2] >= needs[2];
  Require(VersionReaches(has, needs) == reaches, "each of the first three reaches its own");
}

}  // namespace
}  // namespace Tarnlo::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Tarnlo::fuzz::RunInput(Tarnlo::fuzz::Input(data, size));
  return 0;
}
