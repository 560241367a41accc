#include "transfer/redirect.h"

#include <gtest/gtest.h>

namespace Tarnlo {
namespace {

class RedirectTest : public testing::Test {
 protected:
  void From(const std::wstring& url) { ASSERT_TRUE(SetUrl(m_url, url)); }
  LocationResult Follow(const std::wstring& location) {
    return ApplyLocation(location, m_url, m_referer);
  }
  // "host:port path"
  std::wstring Target() const {
    return m_url.m_strHost + L":" + std::to_wstring(m_url.m_nPort) + L" " + m_url.m_strObject;
  }

  UrlRecord m_url;
  std::wstring m_referer;
};

TEST_F(RedirectTest, AbsoluteLocationReplacesAll) {
  From(L"http://old:81/d/f.zip?q=a/b");
  const LocationResult result = Follow(L"https://New:8080/X/y z");
  EXPECT_EQ(result.kind, LocationKind::kAbsolute);
  EXPECT_TRUE(result.usable);
  EXPECT_EQ(Target(), L"new:8080 /X/y%20z");
  EXPECT_EQ(m_url.m_strUrl, L"https://New:8080/X/y z");
  EXPECT_EQ(m_referer, L"http://old:81/d");
}

TEST_F(RedirectTest, AbsoluteLocationMayBeEncoded) {
  From(L"http://old/f");
  EXPECT_TRUE(Follow(L"http%3A%2F%2Fh2%2Ff").usable);
  EXPECT_EQ(Target(), L"h2:80 /f");
  EXPECT_EQ(m_url.m_strUrl, L"http://h2/f");
}

TEST_F(RedirectTest, AbsoluteLocationWithoutPathIsUnusable) {
  From(L"http://old/d/f");
  const LocationResult result = Follow(L"http://new");
  EXPECT_EQ(result.kind, LocationKind::kAbsolute);
  EXPECT_FALSE(result.usable);
  EXPECT_EQ(m_referer, L"http://old/d");
}

TEST_F(RedirectTest, PathKeepsHostPortAndUrl) {
  From(L"http://h:81/d/f.zip");
  const LocationResult result = Follow(L"/new/file.zip");
  EXPECT_EQ(result.kind, LocationKind::kPath);
  EXPECT_TRUE(result.usable);
  EXPECT_EQ(Target(), L"h:81 /new/file.zip");
  EXPECT_EQ(m_url.m_strUrl, L"http://h:81/d/f.zip");
  EXPECT_EQ(m_referer, L"http://h:81/d");
}

TEST_F(RedirectTest, PathIsTakenAsWritten) {
  From(L"http://h/f");
  EXPECT_EQ(Follow(L"\\a b\\c+d").kind, LocationKind::kPath);
  EXPECT_EQ(m_url.m_strObject, L"/a b/c+d");
}

TEST_F(RedirectTest, RelativeLocationJoinsTheDirectory) {
  From(L"http://h/a/x/f.zip");
  const LocationResult result = Follow(L"g.zip");
  EXPECT_EQ(result.kind, LocationKind::kRelative);
  EXPECT_TRUE(result.usable);
  EXPECT_EQ(m_url.m_strUrl, L"http://h/a/x/g.zip");
  EXPECT_EQ(Target(), L"h:80 /a/x/g.zip");
}

TEST_F(RedirectTest, RelativeLocationGoesUp) {
  From(L"http://h/a/x/f.zip");
  EXPECT_TRUE(Follow(L"../b/f.zip").usable);
  EXPECT_EQ(m_url.m_strUrl, L"http://h/a/b/f.zip");
  From(L"http://h/a/x/f.zip");
  EXPECT_TRUE(Follow(L"..\\..\\f").usable);
  EXPECT_EQ(m_url.m_strUrl, L"http://h/f");
}

TEST_F(RedirectTest, RelativeLocationDropsWhatStandsBeforeAStepUp) {
  From(L"http://h/a/x/f.zip");
  EXPECT_TRUE(Follow(L"b/../c").usable);
  EXPECT_EQ(m_url.m_strUrl, L"http://h/a/c");
}

TEST_F(RedirectTest, RelativeLocationLosesOneDotSlash) {
  From(L"http://h/a/f");
  EXPECT_TRUE(Follow(L"./g").usable);
  EXPECT_EQ(m_url.m_strUrl, L"http://h/a/g");
  From(L"http://h/a/f");
  EXPECT_TRUE(Follow(L"././g").usable);
  EXPECT_EQ(m_url.m_strUrl, L"http://h/a/./g");
}

TEST_F(RedirectTest, MissingLocationLeadsToTheDirectory) {
  From(L"http://h/a/f");
  const LocationResult result = Follow(L"");
  EXPECT_EQ(result.kind, LocationKind::kRelative);
  EXPECT_TRUE(result.usable);
  EXPECT_EQ(m_url.m_strUrl, L"http://h/a/");
}

TEST_F(RedirectTest, RelativeLocationCutsInsideTheQueryToo) {
  From(L"http://h/a/f?x=1/2");
  EXPECT_TRUE(Follow(L"g").usable);
  EXPECT_EQ(m_url.m_strUrl, L"http://h/a/f?x=1/g");
}

TEST_F(RedirectTest, MoreStepsUpThanThereAreLeaveNoHost) {
  From(L"http://h/f");
  std::wstring location;
  for (int i = 0; i < 300'000; ++i) location += L"../";
  EXPECT_TRUE(Follow(location + L"x").usable);
  EXPECT_EQ(m_url.m_strUrl, L"http:/x");
  EXPECT_EQ(Target(), L"http:0 /x");
}

}  // namespace
}  // namespace Tarnlo
