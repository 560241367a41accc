#include "support/paths.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/temp_folder.h"

namespace Tarnlo {
namespace {

struct CleanCase {
  std::wstring text;
  std::wstring as_name;
  std::wstring as_path;
};

TEST(CleanNameTest, TableOfCases) {
  const std::vector<CleanCase> cases = {
      {L"", L"", L""},
      {L"a:b*c", L"a_b_c", L"a:b_c"},
      {L"ab:c", L"ab_c", L"ab_c"},
      {L"1:c", L"1_c", L"1_c"},
      {L"C:", L"C_", L"C:"},
      {L"C:\\", L"C__", L"C:\\"},
      {L"z:/", L"z__", L"z:/"},
      {L"C::", L"C__", L"C:_"},
      {L"C:\\dir\\x?y", L"C__dir_x_y", L"C:\\dir\\x_y"},
      {L"C:\\a:b\\", L"C__a_b_", L"C:\\a_b\\"},
      {L"dir/sub\\file", L"dir_sub_file", L"dir/sub\\file"},
      {L"\\", L"_", L"\\"},
      {L"/", L"_", L"/"},
      {L":", L"_", L"_"},
      {L"plain name.zip", L"plain name.zip", L"plain name.zip"},
      {L"..\\..\\x", L".._.._x", L"..\\..\\x"},
      {L"caf\u00E9\u65E5", L"caf\u00E9\u65E5", L"caf\u00E9\u65E5"},
  };
  for (const CleanCase& item : cases) {
    EXPECT_EQ(CleanName(item.text, CleanMode::kName), item.as_name);
    EXPECT_EQ(CleanName(item.text, CleanMode::kPath), item.as_path);
  }
}

TEST(CleanNameTest, EveryForbiddenCharacterBecomesOneUnderscoreAtEveryPlace) {
  for (const wchar_t c : std::wstring(L":*?\"<>|")) {
    for (std::size_t at = 0; at < 5; ++at) {
      std::wstring text = L"12345";  // no letter, so that no colon makes a drive
      std::wstring expected = text;
      text[at] = c;
      expected[at] = L'_';
      EXPECT_EQ(CleanName(text, CleanMode::kName), expected);
      EXPECT_EQ(CleanName(text, CleanMode::kPath), expected);
    }
  }
}

TEST(CleanNameTest, EverythingElseStays) {
  for (int code = 1; code < 128; ++code) {
    const auto c = static_cast<wchar_t>(code);
    if (std::wstring(L":*?\"<>|\\/").find(c) != std::wstring::npos) continue;
    const std::wstring text = {L'1', c, L'2'};
    EXPECT_EQ(CleanName(text, CleanMode::kName), text) << code;
    EXPECT_EQ(CleanName(text, CleanMode::kPath), text) << code;
  }
}

struct PathCase {
  std::wstring path;
  std::wstring folder;
  std::wstring name;
};

TEST(SplitPathTest, TableOfCases) {
  const std::vector<PathCase> cases = {
      {L"", L"", L""},
      {L"file.bin", L"", L"file.bin"},
      {L"C:\\no_dir\\file.bin", L"C:\\no_dir\\", L"file.bin"},
      {L"C:\\no_dir\\", L"C:\\no_dir\\", L""},
      {L"C:/no_dir/file.bin", L"C:/no_dir/", L"file.bin"},
      {L"C:\\no_dir/sub\\file.bin", L"C:\\no_dir/", L"sub\\file.bin"},
      {L"C:no_file.bin", L"", L"C:no_file.bin"},
      {L"\\no_file", L"\\", L"no_file"},
  };
  for (const PathCase& item : cases) {
    const auto parts = SplitPath(item.path);
    ASSERT_TRUE(parts.has_value());
    EXPECT_EQ(parts->folder, item.folder);
    EXPECT_EQ(parts->name, item.name);
  }
}

TEST(SplitPathTest, ExistingFolderIsAllFolderWithOneSeparatorAtItsEnd) {
  test::TempFolder temp;
  const std::wstring folder = temp.MakeFolder(L"sub.v2");
  for (const std::wstring& path : {folder, folder + L"\\"}) {
    const auto parts = SplitPath(path);
    ASSERT_TRUE(parts.has_value());
    EXPECT_EQ(parts->folder, folder + L"\\");
    EXPECT_EQ(parts->name, L"");
  }
}

TEST(SplitPathTest, ExistingFolderWithForwardSlashesGetsOneOfThose) {
  const test::TempFolder temp;
  std::wstring folder = temp.path();
  folder.pop_back();
  for (wchar_t& c : folder) c = c == L'\\' ? L'/' : c;
  const auto parts = SplitPath(folder);
  ASSERT_TRUE(parts.has_value());
  EXPECT_EQ(parts->folder, folder + L"/");
}

TEST(SplitPathTest, ExistingFileIsSplit) {
  const test::TempFolder temp;
  test::WriteFileBytes(temp.File(L"file.bin"), "x");
  const auto parts = SplitPath(temp.File(L"file.bin"));
  ASSERT_TRUE(parts.has_value());
  EXPECT_EQ(parts->folder, temp.path());
  EXPECT_EQ(parts->name, L"file.bin");
}

TEST(SplitPathTest, FolderOf259CharactersFitsAndOneMoreDoesNot) {
  const auto folder_of = [](std::size_t count) {
    return L"Q:\\" + std::wstring(count - 4, L'x') + L"\\";
  };
  const auto parts = SplitPath(folder_of(259) + L"name");
  ASSERT_TRUE(parts.has_value());
  EXPECT_EQ(parts->folder, folder_of(259));
  EXPECT_EQ(parts->name, L"name");
  EXPECT_FALSE(SplitPath(folder_of(260) + L"name").has_value());
  EXPECT_FALSE(SplitPath(folder_of(261) + L"name").has_value());
}

TEST(SplitPathTest, NameIsCutAt259Characters) {
  for (const std::size_t count : {258U, 259U, 260U, 261U}) {
    const auto parts = SplitPath(L"Q:\\" + std::wstring(count, L'x'));
    ASSERT_TRUE(parts.has_value());
    EXPECT_EQ(parts->name.size(), std::min<std::size_t>(count, 259));
  }
}

struct NameCase {
  std::wstring text;
  std::wstring base;
  std::wstring extension;
};

TEST(SplitNameTest, TableOfCases) {
  const std::vector<NameCase> cases = {
      {L"", L"", L""},
      {L"file", L"file", L""},
      {L"file.bin", L"file", L"bin"},
      {L".bin", L"", L"bin"},
      {L"file.", L"file.", L""},
      {L".", L".", L""},
      {L"..", L"..", L""},
      {L"a..b", L"a.", L"b"},
      {L"f.i.l.e", L"f.i.l", L"e"},
      {L"file.tar.gz", L"file.tar", L"gz"},
      {L"pkg.zip?x=1", L"pkg", L"zip"},
      {L"pkg.?zip", L"pkg", L""},
      {L"pkg.7Z_x", L"pkg", L"7Z"},
      {L"pkg.\u00E9x", L"pkg", L""},
      {L"C:\\dir.v2\\file", L"C:\\dir", L""},
      {L"C:\\dir.v2\\file.bin", L"C:\\dir.v2\\file", L"bin"},
      {L"C:/dir.v2/file", L"C:/dir", L""},
      {L"C:\\dir.v2\\", L"C:\\dir", L""},
      {L"a/b.c\\d", L"a/b", L"c"},  // the forward slash alone separates here
      {L"a.b/c\\d.e", L"a.b/c\\d", L"e"},
  };
  for (const NameCase& item : cases) {
    const auto parts = SplitName(item.text);
    ASSERT_TRUE(parts.has_value());
    EXPECT_EQ(parts->base, item.base);
    EXPECT_EQ(parts->extension, item.extension);
  }
}

TEST(SplitNameTest, PointAtEveryPlaceOfANameCutsThere) {
  for (std::size_t at = 0; at < 8; ++at) {
    std::wstring text = L"abcdefgh";
    text[at] = L'.';
    const auto parts = SplitName(text);
    ASSERT_TRUE(parts.has_value());
    const bool last = at == 7;
    EXPECT_EQ(parts->base, last ? text : text.substr(0, at));
    EXPECT_EQ(parts->extension, text.substr(at + 1));
  }
}

TEST(SplitNameTest, TextWithoutPointIsCutAt259Characters) {
  for (const std::size_t count : {258U, 259U, 260U, 261U, 5000U}) {
    const auto parts = SplitName(std::wstring(count, L'x'));
    ASSERT_TRUE(parts.has_value());
    EXPECT_EQ(parts->base.size(), std::min<std::size_t>(count, 259));
    EXPECT_EQ(parts->extension, L"");
  }
}

TEST(SplitNameTest, PointAt259SplitsAndOneFurtherInFails) {
  const auto parts = SplitName(std::wstring(259, L'x') + L".zip");
  ASSERT_TRUE(parts.has_value());
  EXPECT_EQ(parts->base, std::wstring(259, L'x'));
  EXPECT_EQ(parts->extension, L"zip");
  EXPECT_FALSE(SplitName(std::wstring(260, L'x') + L".zip").has_value());
  EXPECT_FALSE(SplitName(std::wstring(261, L'x') + L".zip").has_value());
}

TEST(SplitNameTest, ClosingPointBeyond259CharactersIsCutWithTheBase) {
  const auto parts = SplitName(std::wstring(259, L'x') + L".");
  ASSERT_TRUE(parts.has_value());
  EXPECT_EQ(parts->base, std::wstring(259, L'x'));
  EXPECT_EQ(parts->extension, L"");
}

TEST(SplitNameTest, LongExtensionIsCutAt259Characters) {
  const auto parts = SplitName(L"a." + std::wstring(300, L'x'));
  ASSERT_TRUE(parts.has_value());
  EXPECT_EQ(parts->base, L"a");
  EXPECT_EQ(parts->extension, std::wstring(259, L'x'));
}

TEST(SplitFileTest, PathComesApartInThree) {
  const auto parts = SplitFile(L"Q:\\dir.v2\\file.bin");
  ASSERT_TRUE(parts.has_value());
  EXPECT_EQ(parts->folder, L"Q:\\dir.v2\\");
  EXPECT_EQ(parts->base, L"file");
  EXPECT_EQ(parts->extension, L"bin");
}

TEST(SplitFileTest, PointOfTheFolderDoesNotReachTheName) {
  const auto parts = SplitFile(L"Q:\\dir.v2\\file");
  ASSERT_TRUE(parts.has_value());
  EXPECT_EQ(parts->base, L"file");
  EXPECT_EQ(parts->extension, L"");
}

TEST(SplitFileTest, ExistingFolderHasNoName) {
  const test::TempFolder temp;
  const auto parts = SplitFile(temp.path());
  ASSERT_TRUE(parts.has_value());
  EXPECT_EQ(parts->folder, temp.path());
  EXPECT_EQ(parts->base, L"");
  EXPECT_EQ(parts->extension, L"");
}

TEST(SplitFileTest, FailsWhereAPartFails) {
  EXPECT_FALSE(SplitFile(L"Q:\\" + std::wstring(260, L'x') + L"\\file.bin").has_value());
}

}  // namespace
}  // namespace Tarnlo
