// One exchange and the redirects behind it, byte by byte.
#include "tests/transfer/worker_fixture.h"

namespace Tarnlo::test {
namespace {

constexpr char kAgent[] =
    "User-Agent: Mozilla/4.0 (compatible; MSIE 8.0; Windows NT 6.1; Trident/4.0)\r\n";

std::string Slash(const std::string& rest) {
  return std::string("/").append(rest);
}

class ExchangeTest : public WorkerTest {
 protected:
  ExchangeTest() { Prepare(m_worker, "/dir/f.zip?x=1"); }

  // What the server gets for a request with these parts.
  std::string Request(const std::string& object, const std::string& referer,
                      const std::string& range) const {
    return "GET " + object + " HTTP/1.1\r\nAccept: */*\r\nReferer: " + referer + "\r\n" + kAgent +
           "Host: " + Host() + "\r\nConnection: Close\r\nRange: bytes=" + range + "\r\n\r\n" +
           std::string(1, '\0');
  }
  [[nodiscard]] std::string Host() const {
    return std::string("127.0.0.1:").append(std::to_string(m_server.port()));
  }
  [[nodiscard]] std::string Base() const { return std::string("http://").append(Host()); }
  [[nodiscard]] Lines WireRequests() {
    m_worker.connection().Close();
    EXPECT_TRUE(m_server.AwaitIdle());
    Lines lines;
    for (const RecordedRequest& request : m_server.Requests()) lines.push_back(request.bytes);
    return lines;
  }
  // Goes through the exchange for 16 leading bytes at most; the lines of it, without the prefixes.
  Lines Exchange(bool expected) {
    const LogReader log;
    m_body.fill(0);
    m_count = static_cast<int>(m_body.size());
    EXPECT_EQ(m_worker.RequestHttpData(m_body.data(), &m_count), expected);
    return log.LinesOfThisThread();
  }

  const Body m_file{1000};
  TestWorker m_worker;
  std::array<char, 16> m_body{};
  int m_count = 0;
};

TEST_F(ExchangeTest, SendsARangeRequestWithItsTrailingZero) {
  m_server.Serve("/dir/f.zip?x=1", m_file).LeadingBody(16);
  m_worker.TakeRange(100, 500, 200);
  EXPECT_EQ(
      Exchange(true),
      (Lines{"[INFO] CDownloadHttp RequestHttpData 1", "[INFO] CDownloadHttp SendRequest 1",
             "[INFO] CCustomizeSocket Connect ip: 127.0.0.1", "[INFO] CDownloadHttp SendRequest 4",
             "[INFO] CDownloadHttp SendRequest 6", "[INFO] CDownloadHttp ParseResponseString 9",
             "[INFO] CDownloadHttp RequestHttpData 4"}));
  EXPECT_EQ(m_count, 16);
  EXPECT_EQ(std::string(m_body.data(), 16), m_file.Bytes(300, 16));
  EXPECT_TRUE(m_worker.IsRangeSupported());
  EXPECT_EQ(WireRequests(), Lines{Request("/dir/f.zip?x=1", Base() + "/dir", "300-599")});
}

TEST_F(ExchangeTest, SendsAnOpenRange) {
  m_server.Serve("/dir/f.zip?x=1", m_file);
  m_worker.TakeRange(5, kOpenEnd, 2);
  Exchange(true);
  EXPECT_EQ(WireRequests(), Lines{Request("/dir/f.zip?x=1", Base() + "/dir", "7-")});
}

TEST_F(ExchangeTest, SendsCredentialsAndCookie) {
  m_server.Serve("/dir/f.zip?x=1", m_file);
  m_worker.SetCredentials(L"us\x00E9r", L"p:w");
  m_worker.SetCookie(L"a=b; c=d");
  m_worker.TakeRange(0, 10, 0);
  Exchange(true);
  // The bytes of the code page: 75 73 E9 72 3A 70 3A 77.
  std::string wanted = Request("/dir/f.zip?x=1", Base() + "/dir", "0-9");
  wanted.insert(wanted.find("Accept"), "Authorization: Basic dXPpcjpwOnc=\r\n");
  wanted.insert(wanted.find("Range"), "Cookie: a=b; c=d\r\n");
  EXPECT_EQ(WireRequests(), Lines{wanted});
}

TEST_F(ExchangeTest, CredentialsWithoutUserAreNone) {
  m_worker.SetCredentials(L"u", nullptr);
  EXPECT_EQ(m_worker.user(), L"u");
  EXPECT_EQ(m_worker.password(), L"");
  m_worker.SetCredentials(nullptr, L"p");
  EXPECT_EQ(m_worker.user(), L"");
  EXPECT_EQ(m_worker.password(), L"");
}

TEST_F(ExchangeTest, HostLineOfPort80IsTheNameAlone) {
  ASSERT_TRUE(m_worker.SetUrl(L"http://SomeHost/dir/f"));
  std::wstring request;
  m_worker.BuildProbeRequest(request);
  EXPECT_NE(request.find(L"\r\nHost: somehost\r\n"), std::wstring::npos);
  EXPECT_TRUE(request.ends_with(L"Connection: Close\r\nRange: bytes=0-1\r\n\r\n"));
}

TEST_F(ExchangeTest, RefererIsFilledOnceAndKept) {
  std::wstring request;
  m_worker.BuildRangeRequest(request);
  EXPECT_EQ(m_worker.referer(), m_server.Url("/dir"));
  ASSERT_TRUE(m_worker.SetUrl(L"http://other/elsewhere/f"));
  m_worker.BuildRangeRequest(request);
  EXPECT_EQ(m_worker.referer(), m_server.Url("/dir"));
}

TEST_F(ExchangeTest, FollowsAPathAndNamesThePageItCameFrom) {
  m_server.Serve("/dir/f.zip?x=1").RedirectingTo("/new/file.zip");
  m_server.Serve("/new/file.zip", m_file);
  m_worker.TakeRange(0, 10, 0);
  EXPECT_EQ(
      Exchange(true),
      (Lines{"[INFO] CDownloadHttp RequestHttpData 1", "[INFO] CDownloadHttp SendRequest 1",
             "[INFO] CCustomizeSocket Connect ip: 127.0.0.1", "[INFO] CDownloadHttp SendRequest 4",
             "[INFO] CDownloadHttp SendRequest 6", "[INFO] CDownloadHttp ParseResponseString 4",
             "[INFO] CDownloadHttp RequestHttpData 1", "[INFO] CDownloadHttp SendRequest 1",
             "[INFO] CCustomizeSocket Connect ip: 127.0.0.1", "[INFO] CDownloadHttp SendRequest 4",
             "[INFO] CDownloadHttp SendRequest 6", "[INFO] CDownloadHttp ParseResponseString 9",
             "[INFO] CDownloadHttp RequestHttpData 4"}));
  EXPECT_EQ(WireRequests(), (Lines{Request("/dir/f.zip?x=1", Base() + "/dir", "0-9"),
                                   Request("/new/file.zip", Base() + "/dir", "0-9")}));
  EXPECT_EQ(m_worker.effective_url(), L"");
}

TEST_F(ExchangeTest, FollowsAnAbsoluteUrlToAnotherServer) {
  FaultServer other("127.0.0.2");
  const std::wstring target = other.Url("/Y/z");
  m_server.Serve("/dir/f.zip?x=1")
      .RedirectingTo(std::string(target.begin(), target.end()), "301 Moved");
  other.Serve("/Y/z", m_file);
  m_worker.TakeRange(0, 10, 0);
  const Lines lines = Exchange(true);
  EXPECT_EQ(lines[5], "[INFO] CDownloadHttp ParseResponseString 3");
  EXPECT_EQ(lines[8], "[INFO] CCustomizeSocket Connect ip: 127.0.0.2");
  EXPECT_EQ(m_worker.effective_url(), target);
  m_worker.connection().Close();
  ASSERT_TRUE(other.AwaitIdle());
  std::string wanted = Request("/Y/z", Base() + "/dir", "0-9");
  wanted.replace(wanted.find(Host() + "\r\nConn"), Host().size(),
                 std::string("127.0.0.2:").append(std::to_string(other.port())));
  EXPECT_EQ(other.Requests().at(0).bytes, wanted);
}

TEST_F(ExchangeTest, FollowsARelativeLocation) {
  m_server.Serve("/dir/f.zip?x=1").RedirectingTo("../other/g.zip", "307 Temporary");
  m_server.Serve("/other/g.zip", m_file);
  // The query's slash would be cut first.
  m_worker.TakeRange(0, 10, 0);
  const Lines lines = Exchange(true);
  EXPECT_EQ(lines[5], "[INFO] CDownloadHttp ParseResponseString 5");
  EXPECT_EQ(WireRequests().at(1), Request("/other/g.zip", Base() + "/dir", "0-9"));
}

TEST_F(ExchangeTest, FollowsAnEncodedLocation) {
  const std::string target = std::string("http%3A%2F%2F").append(Host()).append("%2Fg");
  m_server.Serve("/dir/f.zip?x=1").RedirectingTo(target, "308 Permanent");
  m_server.Serve("/g", m_file);
  m_worker.TakeRange(0, 10, 0);
  EXPECT_EQ(Exchange(true)[5], "[INFO] CDownloadHttp ParseResponseString 3");
  EXPECT_EQ(WireRequests().at(1), Request("/g", Base() + "/dir", "0-9"));
}

TEST_F(ExchangeTest, LocationThatCannotBeParsedFails) {
  m_server.Serve("/dir/f.zip?x=1").RedirectingTo("http://nowhere");
  m_worker.TakeRange(0, 10, 0);
  const Lines lines = Exchange(false);
  EXPECT_EQ(lines[5], "[INFO] CDownloadHttp ParseResponseString 2");
  EXPECT_EQ(lines[6], "[INFO] CDownloadHttp RequestHttpData 3");
  EXPECT_EQ(m_worker.effective_url(), L"");
}

TEST_F(ExchangeTest, LongRedirectChainIsFollowedToItsEnd) {
  constexpr int kHops = 40;
  ASSERT_TRUE(m_worker.SetUrl(m_server.Url("/0")));
  for (int hop = 0; hop < kHops; ++hop) {
    m_server.Serve(Slash(std::to_string(hop))).RedirectingTo(Slash(std::to_string(hop + 1)));
  }
  m_server.Serve(Slash(std::to_string(kHops)), m_file);
  m_worker.TakeRange(0, 10, 0);
  Exchange(true);
  EXPECT_EQ(m_server.Requests().size(), 41U);
}

TEST_F(ExchangeTest, ErrorStatusFailsWithoutALineOfItsOwn) {
  for (const char* status : {"404 Not Found", "500 Oops", "100 Continue", "416 Range"}) {
    FaultServer server;
    server.Serve("/f", m_file).WithStatus(status);
    TestWorker worker;
    worker.Configure(MakeSetup());
    ASSERT_TRUE(worker.SetUrl(server.Url("/f")));
    worker.TakeRange(0, 10, 0);
    const LogReader log;
    EXPECT_FALSE(worker.RequestHttpData(nullptr, nullptr)) << status;
    EXPECT_EQ(log.LinesOfThisThread(),
              (Lines{"[INFO] CDownloadHttp RequestHttpData 1", "[INFO] CDownloadHttp SendRequest 1",
                     "[INFO] CCustomizeSocket Connect ip: 127.0.0.1",
                     "[INFO] CDownloadHttp SendRequest 4", "[INFO] CDownloadHttp SendRequest 6",
                     "[INFO] CDownloadHttp RequestHttpData 3"}))
        << status;
  }
}

TEST_F(ExchangeTest, GarbageFails) {
  m_server.Serve("/dir/f.zip?x=1").AnsweringRaw("\x01\x02no\r\n\r\n");
  m_worker.TakeRange(0, 10, 0);
  const Lines lines = Exchange(false);
  EXPECT_EQ(lines[5], "[INFO] CDownloadHttp ParseResponseString 1");
  EXPECT_EQ(lines[6], "[INFO] CDownloadHttp RequestHttpData 3");
}

TEST_F(ExchangeTest, ErrorPageTypedAsSuchFails) {
  m_server.Serve("/dir/f.zip?x=1", m_file)
      .AnsweringRaw("HTTP/1.1 200 OK\r\nContent-Type: text/error-page\r\n\r\n");
  m_worker.TakeRange(0, 10, 0);
  EXPECT_EQ(Exchange(false)[5], "[INFO] CDownloadHttp ParseResponseString 6");
}

TEST_F(ExchangeTest, ServerThatClosesBeforeItsHeadEndsFails) {
  m_server.Serve("/dir/f.zip?x=1").AnsweringRaw("HTTP/1.1 206 Partial\r\nA: b\r\n");
  m_worker.TakeRange(0, 10, 0);
  EXPECT_EQ(
      Exchange(false),
      (Lines{"[INFO] CDownloadHttp RequestHttpData 1", "[INFO] CDownloadHttp SendRequest 1",
             "[INFO] CCustomizeSocket Connect ip: 127.0.0.1", "[INFO] CDownloadHttp SendRequest 4",
             "[INFO] CDownloadHttp SendRequest 4", "[INFO] CCustomizeSocket Receive err 5",
             "[INFO] CDownloadHttp SendRequest 5", "[INFO] CDownloadHttp RequestHttpData 2"}));
}

TEST_F(ExchangeTest, NameThatDoesNotResolveFails) {
  ASSERT_TRUE(m_worker.SetUrl(L"http://no-such-host.invalid/f"));
  m_worker.TakeRange(0, 10, 0);
  EXPECT_EQ(Exchange(false),
            (Lines{"[INFO] CDownloadHttp RequestHttpData 1", "[INFO] CDownloadHttp SendRequest 1",
                   "[WARN] CCustomizeSocket Connect 2", "[INFO] CDownloadHttp SendRequest 2",
                   "[INFO] CDownloadHttp RequestHttpData 2"}));
}

TEST_F(ExchangeTest, RequestBeyondTheBufferIsNotSent) {
  ASSERT_TRUE(m_worker.SetUrl(m_server.Url(Slash(std::string(CCustomizeSocket::kMaxText, 'a')))));
  m_worker.TakeRange(0, 10, 0);
  const Lines lines = Exchange(false);
  EXPECT_EQ(lines[3], "[INFO] CDownloadHttp SendRequest 3");
  EXPECT_EQ(lines[4], "[INFO] CDownloadHttp RequestHttpData 2");
  EXPECT_EQ(WireRequests(), Lines{});
}

TEST_F(ExchangeTest, BodyBufferOfLength0StaysEmpty) {
  m_server.Serve("/dir/f.zip?x=1", m_file).LeadingBody(16);
  m_worker.TakeRange(0, 100, 0);
  m_count = 0;
  EXPECT_TRUE(m_worker.RequestHttpData(m_body.data(), &m_count));
  EXPECT_EQ(m_count, 0);
  EXPECT_EQ(m_body[0], 0);
}

TEST_F(ExchangeTest, StopEndsTheExchangeBeforeItBegins) {
  m_worker.SignalStop();
  const Lines lines = Exchange(false);
  EXPECT_EQ(lines, (Lines{"[INFO] CDownloadHttp RequestHttpData 1",
                          "[INFO] CDownloadHttp RequestHttpData 2"}));
}

// --- Heads of every size and cut ---------------------------------------------------------------

// A head is sent at once, with its leading body. The loopback carries up to 64 KiB of that as one
// segment, so a receive gets as much of it as it has room for; a longer head ends far from the ends
// of its segments and of its chunks.
class HeadTest : public ExchangeTest {
 protected:
  int Chunks(const Lines& lines) const {
    return static_cast<int>(
        std::count(lines.begin(), lines.end(), "[INFO] CDownloadHttp SendRequest 4"));
  }
};

TEST_F(HeadTest, HeadThatFillsOneChunkIsReadInOne) {
  m_server.Serve("/dir/f.zip?x=1", m_file).PaddingHeadTo(20480);
  m_worker.TakeRange(0, 10, 0);
  EXPECT_EQ(Chunks(Exchange(true)), 1);
  EXPECT_EQ(m_count, 0);
}

TEST_F(HeadTest, LeadingByteOfAHeadOneByteShorterIsHandedOn) {
  m_server.Serve("/dir/f.zip?x=1", m_file).PaddingHeadTo(20479).LeadingBody(10);
  m_worker.TakeRange(0, 10, 0);
  EXPECT_EQ(Chunks(Exchange(true)), 1);
  EXPECT_EQ(m_count, 1);
  EXPECT_EQ(m_body[0], m_file.Bytes(0, 1)[0]);
}

TEST_F(HeadTest, EmptyLineSplitByTheChunkIsNotFound) {
  m_server.Serve("/dir/f.zip?x=1", m_file).PaddingHeadTo(20481).ClosingAfter(0);
  m_worker.TakeRange(0, 10, 0);
  const Lines lines = Exchange(false);
  EXPECT_EQ(lines[lines.size() - 2], "[INFO] CDownloadHttp SendRequest 5");
}

TEST_F(HeadTest, LongHeadIsReadInSeveralChunks) {
  m_server.Serve("/dir/f.zip?x=1", m_file).PaddingHeadTo(100'000);
  m_worker.TakeRange(0, 10, 0);
  EXPECT_GE(Chunks(Exchange(true)), 5);
}

TEST_F(HeadTest, HeadOfAMebibyteIsTakenAndOneByteMoreIsNot) {
  constexpr std::size_t kMebibyte = 1024 * 1024;
  m_server.Serve("/dir/f.zip?x=1", m_file).Times(1).PaddingHeadTo(kMebibyte).LeadingBody(8);
  m_server.Serve("/dir/f.zip?x=1", m_file).PaddingHeadTo(kMebibyte + 1).LeadingBody(8);
  m_worker.TakeRange(0, 10, 0);
  Exchange(true);
  const Lines lines = Exchange(false);
  EXPECT_EQ(lines[lines.size() - 2], "[INFO] CDownloadHttp SendRequest 5");
}

TEST_F(HeadTest, HeadOf10MegabytesFailsEarly) {
  // The server keeps what lies beyond the bound; who asked for it would wait.
  const Gate never;
  m_server.Serve("/dir/f.zip?x=1", m_file)
      .PaddingHeadTo(10'000'000)
      .SplittingHeadAt(1024 * 1024, never);
  m_worker.TakeRange(0, 10, 0);
  const Lines lines = Exchange(false);
  EXPECT_EQ(lines[lines.size() - 3], "[INFO] CDownloadHttp SendRequest 4");
  EXPECT_EQ(lines[lines.size() - 2], "[INFO] CDownloadHttp SendRequest 5");
  EXPECT_EQ(lines.back(), "[INFO] CDownloadHttp RequestHttpData 2");
}

// The head's length does not depend on where it is cut; inside the empty line a cut hides it.
TEST_F(HeadTest, HeadMayBeSplitAnywhereButInItsEmptyLine) {
  constexpr std::size_t kHead = 200;
  for (std::size_t at = 1; at < kHead; at += at < kHead - 8 ? 16 : 1) {
    Gate gate;
    FaultServer server;
    server.Serve("/f", m_file).PaddingHeadTo(kHead).SplittingHeadAt(at, gate);
    TestWorker worker;
    worker.Configure(MakeSetup());
    ASSERT_TRUE(worker.SetUrl(server.Url("/f")));
    worker.TakeRange(0, 10, 0);
    const LogReader log;
    bool result = false;
    std::thread client([&] { result = worker.RequestHttpData(nullptr, nullptr); });
    // The second look for bytes says that the first part has been taken in.
    EXPECT_TRUE(log.Await("CDownloadHttp SendRequest 4", 2));
    gate.Open();
    client.join();
    EXPECT_EQ(result, at <= kHead - 4) << at;
  }
}

// --- What the answers leave behind -------------------------------------------------------------

TEST_F(ExchangeTest, LastModifiedIsKeptWithItsLine) {
  m_server.Serve("/dir/f.zip?x=1", m_file)
      .WithHeader("Last-Modified: Sun, 06 Nov 1994 08:49:37 GMT");
  m_worker.TakeRange(0, 10, 0);
  const Lines lines = Exchange(true);
  EXPECT_EQ(lines[5], "[INFO] CDownloadHttp ParseResponseString 8");
  EXPECT_EQ(lines[6], "[INFO] CDownloadHttp ParseResponseString 9");
  EXPECT_EQ(m_worker.last_modified(), L"1994-11-06 08:49:37");
}

TEST_F(ExchangeTest, AnswerOf200SaysThatRangesAreNotSupported) {
  m_server.Serve("/dir/f.zip?x=1", m_file).Times(1);
  m_server.Serve("/dir/f.zip?x=1", m_file).IgnoringRanges();
  m_worker.TakeRange(0, 10, 0);
  Exchange(true);
  EXPECT_TRUE(m_worker.IsRangeSupported());
  EXPECT_EQ(Exchange(true)[5], "[INFO] CDownloadHttp ParseResponseString 10");
  EXPECT_FALSE(m_worker.IsRangeSupported());
}

TEST_F(ExchangeTest, WorkerOfARangeDoesNotReadTheContentLength) {
  m_server.Serve("/dir/f.zip?x=1", m_file);
  m_worker.TakeRange(0, 10, 0);
  Exchange(true);
  EXPECT_EQ(m_worker.content_length(), -1);
  EXPECT_TRUE(m_observer.Events().empty());
}

class ProbeTest : public ExchangeTest {
 protected:
  ProbeTest() { m_worker.Configure(MakeSetup(kProbeIndex)); }
};

TEST_F(ProbeTest, LearnsNameAndLengthAndTellsThem) {
  m_server.Serve("/dir/f.zip?x=1", m_file);
  const LogReader log;
  EXPECT_TRUE(m_worker.GetRemoteSiteInfo_Pro());
  EXPECT_EQ(
      log.LinesOfThisThread(),
      (Lines{"[INFO] CDownloadHttp GetRemoteSiteInfo_Pro 1",
             "[INFO] CDownloadHttp RequestHttpData 1", "[INFO] CDownloadHttp SendRequest 1",
             "[INFO] CCustomizeSocket Connect ip: 127.0.0.1", "[INFO] CDownloadHttp SendRequest 4",
             "[INFO] CDownloadHttp SendRequest 6", "[INFO] CDownloadHttp ParseResponseString 7",
             "[INFO] CDownloadHttp ParseResponseString 9", "[INFO] CDownloadHttp RequestHttpData 4",
             "[INFO] CDownloadHttp GetRemoteSiteInfo_Pro 3"}));
  EXPECT_EQ(m_worker.content_length(), 1000);
  EXPECT_TRUE(m_worker.IsRangeSupported());
  EXPECT_EQ(m_worker.RemoteFileName(), L"f.zip");
  const auto events = m_observer.Events();
  ASSERT_EQ(events.size(), 2U);
  EXPECT_EQ(events[0].type, kEventRemoteName);
  EXPECT_EQ(events[0].code, kWholeJob);
  EXPECT_EQ(events[0].task_id, 7);
  EXPECT_EQ(events[0].text, L"f.zip");
  EXPECT_EQ(events[1].type, kEventContentLength);
  EXPECT_EQ(events[1].code, kWholeJob);
  EXPECT_EQ(events[1].number, 1000);
  EXPECT_FALSE(m_observer.SawStrangeParameter());
  EXPECT_EQ(WireRequests(), Lines{Request("/dir/f.zip?x=1", Base() + "/dir", "0-")});
}

TEST_F(ProbeTest, AsksForTwoBytesWhenTheFirstAnswerWasWhole) {
  m_server.Serve("/dir/f.zip?x=1", m_file).Times(1).IgnoringRanges();
  m_server.Serve("/dir/f.zip?x=1", m_file);
  EXPECT_TRUE(m_worker.GetRemoteSiteInfo_Pro());
  EXPECT_TRUE(m_worker.IsRangeSupported());
  EXPECT_EQ(m_worker.content_length(), 1000);
  EXPECT_EQ(WireRequests(), (Lines{Request("/dir/f.zip?x=1", Base() + "/dir", "0-"),
                                   Request("/dir/f.zip?x=1", Base() + "/dir", "0-1")}));
}

TEST_F(ProbeTest, SecondRequestFollowsRedirectsWithoutLines) {
  m_server.Serve("/dir/f.zip?x=1", m_file).Times(1).IgnoringRanges();
  m_server.Serve("/dir/f.zip?x=1").RedirectingTo("/g");
  m_server.Serve("/g", m_file);
  const LogReader log;
  EXPECT_TRUE(m_worker.GetRemoteSiteInfo_Pro());
  EXPECT_TRUE(m_worker.IsRangeSupported());
  EXPECT_EQ(log.Count("CDownloadHttp ParseResponseString 4"), 0);
  EXPECT_EQ(WireRequests().at(2), Request("/g", Base() + "/dir", "0-1"));
}

TEST_F(ProbeTest, SecondRequestThatFailsChangesNothing) {
  m_server.Serve("/dir/f.zip?x=1", m_file).Times(1).IgnoringRanges();
  m_server.Serve("/dir/f.zip?x=1", m_file).WithStatus("403 Forbidden");
  EXPECT_TRUE(m_worker.GetRemoteSiteInfo_Pro());
  EXPECT_FALSE(m_worker.IsRangeSupported());
}

TEST_F(ProbeTest, ServerThatRefusesGivesNothing) {
  m_server.Serve("/dir/f.zip?x=1", m_file).WithStatus("404 Not Found");
  const LogReader log;
  EXPECT_FALSE(m_worker.GetRemoteSiteInfo_Pro());
  EXPECT_EQ(log.LinesOfThisThread().back(), "[INFO] CDownloadHttp GetRemoteSiteInfo_Pro 2");
  EXPECT_EQ(m_worker.content_length(), -1);
}

TEST_F(ProbeTest, MissingLengthIs0AndAHugeOneIsTheLargest) {
  m_server.Serve("/dir/f.zip?x=1", m_file).Times(1).WithoutContentLength();
  m_server.Serve("/dir/f.zip?x=1", m_file).WithContentLength("99999999999999999999");
  Exchange(true);
  EXPECT_EQ(m_worker.content_length(), 0);
  Exchange(true);
  EXPECT_EQ(m_worker.content_length(), std::numeric_limits<std::int64_t>::max());
}

TEST_F(ProbeTest, NegativeLengthIsNone) {
  m_server.Serve("/dir/f.zip?x=1", m_file).WithContentLength("-5");
  Exchange(true);
  EXPECT_EQ(m_worker.content_length(), 0);
}

TEST_F(ProbeTest, SilentOwnerHearsNothing) {
  m_server.Serve("/dir/f.zip?x=1", m_file);
  TestOwner owner(false);
  WorkerSetup setup = MakeSetup(kProbeIndex);
  setup.owner = &owner;
  m_worker.Configure(setup);
  EXPECT_TRUE(m_worker.GetRemoteSiteInfo_Pro());
  EXPECT_EQ(m_worker.content_length(), 1000);
  EXPECT_TRUE(m_observer.Events().empty());
}

TEST_F(ProbeTest, HostThatCannotBePreparedEndsItAtOnce) {
  ASSERT_TRUE(m_worker.SetUrl(L"http://no-such-host.invalid/f"));
  const LogReader log;
  EXPECT_FALSE(m_worker.GetRemoteSiteInfo());
  EXPECT_EQ(log.LinesOfThisThread().front(), "[INFO] CDownloadBase GetRemoteSiteInfo 1");
  EXPECT_EQ(log.Count("CDownloadBase GetRemoteSiteInfo 2"), 0);
}

}  // namespace
}  // namespace Tarnlo::test
