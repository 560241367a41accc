// The tables of the DLL, the layout of what crosses its boundary, and whether the page of the
// interface says the same.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <regex>
#include <set>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "api/tarnlo.h"
#include "tests/abi/pe_tables.h"

namespace Tarnlo {
namespace {

// Hosts that were built earlier have it so.
static_assert(std::is_standard_layout_v<Task>);
static_assert(offsetof(Task, save_dir) == 0);
static_assert(offsetof(Task, url) == 32);
static_assert(offsetof(Task, md5) == 64);
static_assert(offsetof(Task, version) == 96);
static_assert(offsetof(Task, reserved) == 128);
static_assert(offsetof(Task, id) == 132);
static_assert(sizeof(Task) == 136);
static_assert(sizeof(NsResultEnum) == 4);

test::PeFile Dll() {
  static_cast<void>(fntarnlo());  // so that this program imports it
  return test::PeFile(test::FileOfModule(L"tarnlo.dll"));
}

const std::set<std::string> kExports = {"_ZN6Tarnlo10pause_taskEi",
                                        "_ZN6Tarnlo11cancel_taskEi",
                                        "_ZN6Tarnlo11create_taskEPKNS_4TaskE",
                                        "_ZN6Tarnlo13continue_taskEi",
                                        "_ZN6Tarnlo13get_all_tasksB5cxx11Ev",
                                        "_ZN6Tarnlo13test_downloadEv",
                                        "_ZN6Tarnlo15cancel_all_taskEv",
                                        "_ZN6Tarnlo17set_callback_failEPFviNS_12NsResultEnumEE",
                                        "_ZN6Tarnlo18set_callback_startEPFviE",
                                        "_ZN6Tarnlo20set_callback_processEPFvixxiE",
                                        "_ZN6Tarnlo21set_callback_completeEPFviE",
                                        "_ZN6Tarnlo7CtarnloC1Ev",
                                        "_ZN6Tarnlo7CtarnloC2Ev",
                                        "_ZN6Tarnlo7ntarnloE",
                                        "_ZN6Tarnlo8fntarnloEv"};

TEST(TablesTest, ExportsAreTheInterfaceAndNothingElse) {
  EXPECT_EQ(Dll().Exports(), kExports);
}

TEST(TablesTest, ImportsAreSystemLibrariesAlone) {
  std::set<std::string> modules;
  for (std::string name : Dll().ImportedModules()) {
    for (char& c : name) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    modules.insert(name);
  }
  EXPECT_EQ(modules, (std::set<std::string>{"KERNEL32.DLL", "MSVCRT.DLL", "USER32.DLL",
                                            "VERSION.DLL", "WINHTTP.DLL", "WS2_32.DLL"}));
}

// "_ZN6Tarnlo10pause_taskEi" is the function pause_task.
std::string PlainName(const std::string& decorated) {
  std::size_t at = std::string("_ZN6Tarnlo").size();
  const std::size_t length = std::stoul(decorated.substr(at));
  at = decorated.find_first_not_of("0123456789", at);
  return decorated.substr(at, length);
}

std::vector<std::string> LinesOf(const std::filesystem::path& path) {
  const auto root = std::filesystem::path(__FILE__).parent_path().parent_path().parent_path();
  std::ifstream file(root / path);
  EXPECT_TRUE(file.is_open()) << path;
  std::vector<std::string> lines;
  for (std::string line; std::getline(file, line);) lines.push_back(line);
  return lines;
}

using NumberedName = std::pair<int, std::string>;

// Of each line that matches.
std::set<NumberedName> NumberedNames(const std::filesystem::path& path, const std::regex& pattern,
                                     std::size_t number_group, std::size_t name_group) {
  std::set<NumberedName> names;
  for (const std::string& line : LinesOf(path)) {
    std::smatch match;
    if (!std::regex_search(line, match, pattern)) continue;
    names.emplace(std::stoi(match[number_group]), match[name_group]);
  }
  return names;
}

TEST(TablesTest, ApiPageHasASectionForEveryExportAndNoOther) {
  std::set<std::string> sections;
  for (const std::string& line : LinesOf("docs/api.md")) {
    if (line.starts_with("### `")) sections.insert(line.substr(5, line.find('`', 5) - 5));
  }
  std::set<std::string> names;
  for (const std::string& name : kExports) names.insert(PlainName(name));
  EXPECT_EQ(sections, names);
}

TEST(TablesTest, ApiPageHasARowForEveryResultCodeAndNoOther) {
  const auto rows =
      NumberedNames("docs/api.md", std::regex(R"(^\| (\d+) \| `(kResult\w+)` \|)"), 1, 2);
  const auto values =
      NumberedNames("support/result.h", std::regex(R"(^\s*(kResult\w+) = (-?\d+),)"), 2, 1);
  EXPECT_FALSE(values.empty());
  EXPECT_EQ(rows, values);
  // Whatever the header's lines look like, each of its names is one of them.
  const auto names = std::ranges::count_if(
      LinesOf("support/result.h"),
      [](const std::string& line) { return line.find("kResult") != std::string::npos; });
  EXPECT_EQ(static_cast<std::size_t>(names), values.size());
}

}  // namespace
}  // namespace Tarnlo
