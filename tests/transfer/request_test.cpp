#include "transfer/request.h"

#include <gtest/gtest.h>

#include <limits>

#include "transfer/base64.h"

namespace Tarnlo {
namespace {

RequestFields Fields() {
  RequestFields fields;
  fields.object = L"/dir/f.zip?x=1";
  fields.referer = L"http://host:8080/dir";
  fields.user_agent = L"Agent";
  fields.host = L"host";
  fields.port = 8080;
  return fields;
}

TEST(RequestTest, HoldsItsHeadersInAFixedOrder) {
  RequestFields fields = Fields();
  fields.credentials = L"dTpw";
  fields.cookie = L"a=b";
  EXPECT_EQ(BuildRequest(fields, L"Range: bytes=0-9\r\n"),
            L"GET /dir/f.zip?x=1 HTTP/1.1\r\n"
            L"Authorization: Basic dTpw\r\n"
            L"Accept: */*\r\n"
            L"Referer: http://host:8080/dir\r\n"
            L"User-Agent: Agent\r\n"
            L"Host: host:8080\r\n"
            L"Connection: Close\r\n"
            L"Cookie: a=b\r\n"
            L"Range: bytes=0-9\r\n"
            L"\r\n");
}

TEST(RequestTest, LeavesOutCredentialsAndCookieButNotAnEmptyReferer) {
  RequestFields fields = Fields();
  fields.referer.clear();
  fields.port = 80;
  EXPECT_EQ(BuildRequest(fields, kProbeRangeLine),
            L"GET /dir/f.zip?x=1 HTTP/1.1\r\n"
            L"Accept: */*\r\n"
            L"Referer: \r\n"
            L"User-Agent: Agent\r\n"
            L"Host: host\r\n"
            L"Connection: Close\r\n"
            L"Range: bytes=0-1\r\n"
            L"\r\n");
}

TEST(RequestTest, NamesEveryPortBut80) {
  RequestFields fields = Fields();
  for (const int port : {0, 79, 81, 65535}) {
    fields.port = static_cast<std::uint16_t>(port);
    EXPECT_NE(BuildRequest(fields, L"").find(L"Host: host:" + std::to_wstring(port) + L"\r\n"),
              std::wstring::npos);
  }
}

TEST(RangeLineTest, AsksForWhatIsMissing) {
  EXPECT_EQ(MakeRangeLine(5000, 1000, 200), L"Range: bytes=5200-5999\r\n");
  EXPECT_EQ(MakeRangeLine(0, 1048576, 0), L"Range: bytes=0-1048575\r\n");
  EXPECT_EQ(MakeRangeLine(0, 1, 0), L"Range: bytes=0-0\r\n");
}

TEST(RangeLineTest, IsOpenForALengthOf0OrLess) {
  EXPECT_EQ(MakeRangeLine(0, -1, 0), L"Range: bytes=0-\r\n");
  EXPECT_EQ(MakeRangeLine(10, 0, 7), L"Range: bytes=17-\r\n");
}

TEST(RangeLineTest, HoldsSizesBeyond32Bits) {
  EXPECT_EQ(MakeRangeLine(5'000'000'000, 6'000'000'000, 1),
            L"Range: bytes=5000000001-10999999999\r\n");
  EXPECT_EQ(MakeRangeLine(0, std::numeric_limits<std::int64_t>::max(), 0),
            L"Range: bytes=0-9223372036854775806\r\n");
}

TEST(Base64Test, EncodesEveryPaddingAndTheWholeAlphabet) {
  EXPECT_EQ(EncodeBase64(""), "");
  EXPECT_EQ(EncodeBase64("f"), "Zg==");
  EXPECT_EQ(EncodeBase64("fo"), "Zm8=");
  EXPECT_EQ(EncodeBase64("foo"), "Zm9v");
  EXPECT_EQ(EncodeBase64("foob"), "Zm9vYg==");
  EXPECT_EQ(EncodeBase64("fooba"), "Zm9vYmE=");
  EXPECT_EQ(EncodeBase64("foobar"), "Zm9vYmFy");
  EXPECT_EQ(EncodeBase64("\xFB\xEF\xBE\xFF\xFF\xFF"), "++++////");
  EXPECT_EQ(EncodeBase64(std::string(3, '\0')), "AAAA");
}

TEST(Base64Test, HeaderHoldsTheEncodedCredentials) {
  EXPECT_EQ(MakeBasicAuthHeader(L"dTpw"), L"Authorization: Basic dTpw");
}

}  // namespace
}  // namespace Tarnlo
