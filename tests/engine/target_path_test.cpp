#include "engine/target_path.h"

#include <gtest/gtest.h>

namespace Tarnlo {
namespace {

using Path = std::optional<std::wstring>;

Path GivenName(const std::wstring& given, const std::wstring& in_url = L"url.bin",
               const std::wstring& remote = L"remote.bin") {
  return BuildTargetPath({L"C:\\dir", given, in_url, remote});
}
Path RemoteName(const std::wstring& remote) {
  return GivenName(L"", L"url.bin", remote);
}

TEST(TargetPathTest, FolderGetsItsBackslash) {
  EXPECT_EQ(BuildTargetPath({L"C:\\dir", L"a.zip", L"", L""}), L"C:\\dir\\a.zip");
  EXPECT_EQ(BuildTargetPath({L"C:\\dir\\", L"a.zip", L"", L""}), L"C:\\dir\\a.zip");
  EXPECT_EQ(BuildTargetPath({L"C:", L"a.zip", L"", L""}), L"C:\\a.zip");
}

TEST(TargetPathTest, FolderKeepsDriveAndSeparators) {
  EXPECT_EQ(BuildTargetPath({L"D:\\a?b\\c*d", L"f", L"", L""}), L"D:\\a_b\\c_d\\f");
}

TEST(TargetPathTest, GivenNameIsTaken) {
  EXPECT_EQ(GivenName(L"setup.exe"), L"C:\\dir\\setup.exe");
  EXPECT_EQ(GivenName(L"setup"), L"C:\\dir\\setup");
  EXPECT_EQ(GivenName(L"a.b.zip"), L"C:\\dir\\a.b.zip");
}

TEST(TargetPathTest, ExtensionEndsAtItsFirstOddCharacter) {
  EXPECT_EQ(GivenName(L"pkg.zip?x=1"), L"C:\\dir\\pkg.zip");
}

TEST(TargetPathTest, NoGivenNameGivesWayToTheServers) {
  EXPECT_EQ(GivenName(L""), L"C:\\dir\\remote.bin");
  EXPECT_EQ(GivenName(L".bin"), L"C:\\dir\\remote.bin");  // no base
}

TEST(TargetPathTest, NameThatRepeatsTheUrlsGivesWayToTheServers) {
  EXPECT_EQ(GivenName(L"url.bin"), L"C:\\dir\\remote.bin");
  EXPECT_EQ(GivenName(L"URL.Bin"), L"C:\\dir\\remote.bin");
  EXPECT_EQ(GivenName(L"url.bin2"), L"C:\\dir\\url.bin2");
}

TEST(TargetPathTest, ForbiddenCharactersBecomeUnderscores) {
  EXPECT_EQ(RemoteName(L"a:b*c?d\"e<f>g|h"), L"C:\\dir\\a_b_c_d_e_f_g_h");
  EXPECT_EQ(GivenName(L"a:b*.zip"), L"C:\\dir\\a_b_.zip");
}

TEST(TargetPathTest, ServersNameStaysInTheFolder) {
  EXPECT_EQ(RemoteName(L"..\\..\\evil.exe"), L"C:\\dir\\.._.._evil.exe");
  EXPECT_EQ(RemoteName(L"../evil.exe"), L"C:\\dir\\.._evil.exe");
  EXPECT_EQ(RemoteName(L"C:\\evil.exe"), L"C:\\dir\\C__evil.exe");
  EXPECT_EQ(RemoteName(L"\\\\server\\share"), L"C:\\dir\\__server_share");
  EXPECT_EQ(RemoteName(L"f:stream"), L"C:\\dir\\f_stream");
}

TEST(TargetPathTest, NameOfDotsAndBlanksIsRefused) {
  for (const wchar_t* name : {L"", L".", L"..", L"...", L" ", L"   ", L". .", L" ..", L".. "}) {
    EXPECT_EQ(RemoteName(name), std::nullopt) << name;
  }
  for (const wchar_t* name : {L".", L"..", L"...", L" ", L" . "}) {
    EXPECT_EQ(GivenName(name, L"url.bin", L""), std::nullopt) << name;
  }
}

TEST(TargetPathTest, DotsAndBlanksAtTheEndAreLeftOut) {
  EXPECT_EQ(RemoteName(L"a.zip."), L"C:\\dir\\a.zip");
  EXPECT_EQ(RemoteName(L"a.zip . ."), L"C:\\dir\\a.zip");
  EXPECT_EQ(RemoteName(L" a.zip "), L"C:\\dir\\ a.zip");
  EXPECT_EQ(RemoteName(L"..a"), L"C:\\dir\\..a");
  EXPECT_EQ(GivenName(L"name."), L"C:\\dir\\name");
}

TEST(TargetPathTest, DevicesAreRefused) {
  for (const wchar_t* name :
       {L"CON", L"con", L"PRN", L"AUX", L"NUL", L"nul.txt", L"Con.tar.gz", L"COM1", L"com9.log",
        L"LPT1", L"lpt0.x", L"COM\u00B9", L"LPT\u00B2.txt", L"CON .txt", L"NUL.", L"NUL  ",
        L"CONIN$", L"conout$", L"AUX.a:b"}) {
    EXPECT_EQ(RemoteName(name), std::nullopt) << name;
    EXPECT_EQ(GivenName(name), std::nullopt) << name;
  }
}

TEST(TargetPathTest, NamesThatOnlyLookLikeDevicesAreFiles) {
  for (const wchar_t* name :
       {L"CON1", L"COM", L"COM10", L"LPTX", L"NULL.txt", L"xCON", L"console.txt", L"a.con"}) {
    EXPECT_EQ(RemoteName(name), L"C:\\dir\\" + std::wstring(name));
  }
}

TEST(TargetPathTest, ControlCharactersAreRefused) {
  EXPECT_EQ(RemoteName(L"a\nb"), std::nullopt);
  EXPECT_EQ(RemoteName(L"a\tb"), std::nullopt);
  EXPECT_EQ(RemoteName(std::wstring(L"a\0b", 3)), std::nullopt);
}

TEST(TargetPathTest, LongestNameHas255Characters) {
  const std::wstring longest(255, L'x');
  EXPECT_EQ(RemoteName(longest), L"C:\\dir\\" + longest);
  EXPECT_EQ(RemoteName(longest + L"x"), std::nullopt);
  EXPECT_EQ(GivenName(longest), L"C:\\dir\\" + longest);
  EXPECT_EQ(GivenName(longest + L"x"), std::nullopt);
  EXPECT_EQ(GivenName(std::wstring(251, L'x') + L".zip"),
            L"C:\\dir\\" + std::wstring(251, L'x') + L".zip");
  EXPECT_EQ(GivenName(std::wstring(252, L'x') + L".zip"), std::nullopt);
  EXPECT_EQ(GivenName(std::wstring(300, L'x') + L".zip"), std::nullopt);
}

}  // namespace
}  // namespace Tarnlo
