// Faults against the scripted server: each test asserts the commands the
// client sent and the error it reported.
#include "fake_server.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <ctime>

#include "inet/inet.h"
#include "inet/wirename.h"

namespace ftpzn::inet {
namespace {

using fake::CloseWith;
using fake::Epsv;
using fake::FakeServer;
using fake::Greet;
using fake::On;
using fake::Pasv;
using fake::Plus;
using fake::Silence;
using fake::Step;
using fake::Transfer;

class FakeServerTest : public ::testing::Test {
 protected:
  std::unique_ptr<CFtpConnection> Connect(FakeServer& server, bool passive = true) {
    return m_session.GetFtpConnection(L"127.0.0.1", L"user", L"secret", server.Port(), passive);
  }
  // The code of the exception GetFtpConnection throws, 0 if it succeeds.
  uint32_t ConnectError(FakeServer& server) {
    try {
      Connect(server);
    } catch (const CInternetException& e) {
      return e.m_dwError;
    }
    return 0;
  }
  void SetTimeouts(uint32_t ms) {
    m_session.SetOption(INTERNET_OPTION_CONNECT_TIMEOUT, ms);
    m_session.SetOption(INTERNET_OPTION_RECEIVE_TIMEOUT, ms);
    m_session.SetOption(INTERNET_OPTION_SEND_TIMEOUT, ms);
  }
  void SetUp() override { SetTimeouts(3000); }

  CInternetSession m_session;
};

TEST_F(FakeServerTest, MultiLineAndSplitReplies) {
  Step greeting = Greet(
      "220-Welcome\r\n"
      "220-a line with 220 inside\r\n"
      "123 looks like an end but is not\r\n"
      "220\r\n");
  greeting.pieceSize = 1;  // every byte its own read
  Step feat = On("FEAT", "211-Features:\r\n MLST type*;size*;modify*;\r\n UTF8\r\n EPSV\r\n211 End\r\n");
  feat.pieceSize = 7;
  Step pwd = On("PWD", "257 \"/with \"\"quotes\"\"\" is current\r\n");
  pwd.pieceSize = 5;
  FakeServer server({greeting, On("USER", "331 pw\r\n"), On("PASS", "230-Hello\r\n230 logged in\r\n"), feat,
                     On("OPTS UTF8 ON", "200 ok\r\n"), pwd});
  auto c = Connect(server);
  std::wstring dir;
  ASSERT_TRUE(c->GetCurrentDirectory(dir)) << WideToWire(InternetGetLastResponseInfo());
  EXPECT_EQ(dir, L"/with \"quotes\"");
  EXPECT_TRUE(c->UsesMlsd());
  c->Close();
  server.Finish();
  EXPECT_EQ(server.Problem(), "");
  EXPECT_EQ(server.Received(),
            (std::vector<std::string>{"USER user", "PASS secret", "FEAT", "OPTS UTF8 ON", "PWD", "QUIT"}));
}

TEST_F(FakeServerTest, ReplyCutInTheMiddle) {
  FakeServer server({Greet("220 hi\r\n"), CloseWith("331 Passw", "USER")});
  EXPECT_EQ(ConnectError(server), 12030u);
  EXPECT_NE(InternetGetLastResponseInfo().find(L"middle of a reply"), std::wstring::npos);
}

TEST_F(FakeServerTest, SilentServerTimesOutWithinTheLimit) {
  SetTimeouts(400);
  for (bool atGreeting : {true, false}) {
    SCOPED_TRACE(atGreeting ? "silent greeting" : "silent after USER");
    std::vector<Step> script =
        atGreeting ? std::vector<Step>{Silence()} : std::vector<Step>{Greet("220 hi\r\n"), Silence("USER")};
    FakeServer server(script);
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(ConnectError(server), 12002u);
    auto elapsed = std::chrono::steady_clock::now() - start;
    // Not a performance figure: a hang would show as the 5 s of the
    // server's own bound, or forever.
    EXPECT_GE(elapsed, std::chrono::milliseconds(350));
    EXPECT_LT(elapsed, std::chrono::milliseconds(2500));
    EXPECT_NE(InternetGetLastResponseInfo().find(L"timed out"), std::wstring::npos);
  }
}

TEST_F(FakeServerTest, SilentDuringCommandDropsTheConnection) {
  SetTimeouts(300);
  FakeServer server(Plus(fake::Login(), {Silence("PWD")}));
  auto c = Connect(server);
  std::wstring dir;
  EXPECT_FALSE(c->GetCurrentDirectory(dir));
  EXPECT_EQ(GetLastError(), 12002u);
  // A late reply could not be told from the next one's: the connection is
  // given up.
  EXPECT_FALSE(c->SetCurrentDirectory(L"/"));
  EXPECT_EQ(GetLastError(), 12111u);
}

TEST_F(FakeServerTest, CloseDuringTransfer) {
  FakeServer server(Plus(fake::Login(), {On("TYPE I", "200 ok\r\n"), On("EPSV", "500 no\r\n"), Pasv(),
                                         Transfer("RETR big", std::string(100000, 'x'), "")}));
  auto c = Connect(server);
  auto file = c->OpenFile(L"big");
  std::string got;
  char block[4096];
  try {
    for (int i = 0; i < 1000; ++i) {
      uint32_t n = file->Read(block, sizeof block);
      if (n == 0) break;
      got.append(block, n);
    }
    FAIL() << "a transfer without its end reply succeeded";
  } catch (const CInternetException& e) {
    EXPECT_EQ(e.m_dwError, 12030u);
  }
  EXPECT_EQ(got.size(), 100000u);  // what came before the end is delivered
  file->Close();
  std::wstring dir;
  EXPECT_FALSE(c->GetCurrentDirectory(dir));
  EXPECT_EQ(GetLastError(), 12111u);
}

TEST_F(FakeServerTest, ServiceClosing421InAnyState) {
  const std::vector<Step> login = fake::Login();
  const Step bye = CloseWith("421 Too many users, try later\r\n");
  // At each step of the log-in: the connection fails with the reply.
  for (size_t at = 0; at < login.size(); ++at) {
    SCOPED_TRACE(at);
    std::vector<Step> script(login.begin(), login.begin() + static_cast<std::ptrdiff_t>(at));
    script.push_back(bye);
    script.back().expect = login[at].expect;
    FakeServer server(script);
    EXPECT_EQ(ConnectError(server), 12030u);
    EXPECT_EQ(InternetGetLastResponseInfo(), L"421 Too many users, try later");
  }
  // At each step of a listing, and before a command: that call fails with
  // the reply, the next one finds the session gone.
  const std::vector<Step> listing = {On("TYPE A", "200 ok\r\n"), Epsv(), Transfer("LIST", "")};
  for (size_t at = 0; at <= listing.size(); ++at) {
    SCOPED_TRACE(at);
    std::vector<Step> script = Plus(login, {});
    if (at == listing.size()) {
      script.push_back(On("CWD", "421 Idle timeout\r\n"));
    } else {
      script.insert(script.end(), listing.begin(), listing.begin() + static_cast<std::ptrdiff_t>(at));
      script.push_back(On(listing[at].expect, "421 Idle timeout\r\n"));
    }
    FakeServer server(script);
    auto c = Connect(server);
    if (at == listing.size()) {
      EXPECT_FALSE(c->SetCurrentDirectory(L"pub"));
    } else {
      CFtpFileFind find(c.get());
      EXPECT_FALSE(find.FindFile());
    }
    EXPECT_EQ(GetLastError(), 12030u);
    EXPECT_EQ(InternetGetLastResponseInfo(), L"421 Idle timeout");
    EXPECT_FALSE(c->SetCurrentDirectory(L"pub"));
    EXPECT_EQ(GetLastError(), 12111u);
  }
}

TEST_F(FakeServerTest, LoginRefused) {
  {
    FakeServer server(
        {Greet("220 hi\r\n"), On("USER", "331 pw\r\n"), On("PASS", "530 Login incorrect.\r\n")});
    EXPECT_EQ(ConnectError(server), 12014u);
    EXPECT_EQ(InternetGetLastResponseInfo(), L"530 Login incorrect.");
  }
  {
    FakeServer server({Greet("220 hi\r\n"), On("USER", "530 Not allowed\r\n")});
    EXPECT_EQ(ConnectError(server), 12013u);
  }
  {
    FakeServer server({Greet("220 hi\r\n"), On("USER", "331 pw\r\n"), On("PASS", "332 Need account\r\n")});
    EXPECT_EQ(ConnectError(server), 12015u);
  }
  {
    FakeServer server({CloseWith("550 go away\r\n")});
    EXPECT_EQ(ConnectError(server), 12015u);
  }
}

TEST_F(FakeServerTest, EpsvRefusedThenUnroutablePasv) {
  const std::string listing =
      "-rw-r--r--   1 ftp ftp   1234 Jan 10  2020 a file.txt\r\n"
      "drwxr-xr-x   2 ftp ftp   4096 Jan 10  2020 sub\r\n";
  FakeServer server(Plus(
      fake::Login(), {On("TYPE A", "200 ok\r\n"), On("EPSV", "502 EPSV not implemented\r\n"),
                      Pasv("227 Entering Passive Mode (10,1,2,3,{P1},{P2}).\r\n"), Transfer("LIST", listing),
                      // The fallback is remembered: no second EPSV.
                      Pasv("227 =0,0,0,0,{P1},{P2}\r\n"), Transfer("LIST", listing)}));
  auto c = Connect(server);
  for (int round = 0; round < 2; ++round) {
    CFtpFileFind find(c.get());
    ASSERT_TRUE(find.FindFile()) << WideToWire(InternetGetLastResponseInfo());
    EXPECT_TRUE(find.FindNextFile());
    EXPECT_EQ(find.GetFileName(), L"a file.txt");
    EXPECT_EQ(find.GetLength(), 1234u);
    EXPECT_FALSE(find.FindNextFile());
    EXPECT_EQ(find.GetFileName(), L"sub");
    EXPECT_TRUE(find.IsDirectory());
    EXPECT_TRUE(find.MatchesMask(FILE_ATTRIBUTE_DIRECTORY));
  }
  c->Close();
  server.Finish();
  EXPECT_EQ(server.Problem(), "");
  EXPECT_EQ(server.Received(), (std::vector<std::string>{"USER user", "PASS secret", "FEAT", "TYPE A", "EPSV",
                                                         "PASV", "LIST", "PASV", "LIST", "QUIT"}));
}

// Also: a data connection from another address than the server's is closed
// unread, and the server's own is taken.
TEST_F(FakeServerTest, ActiveFallsBackFromEprtToPort) {
  Step port = On("PORT 127,0,0,1,", "200 ok\r\n");
  Step stolen = Transfer("RETR f", "active bytes");
  stolen.activeFrom = "127.0.0.2";
  FakeServer server(Plus(fake::Login(), {On("TYPE A", "200 ok\r\n"), On("EPRT |1|127.0.0.1|", "500 what\r\n"),
                                         port, On("LIST", "226 nothing to list\r\n"),
                                         // EPRT is not tried again.
                                         On("TYPE I", "200 ok\r\n"), port, stolen}));
  auto c = Connect(server, false);
  {
    // An empty listing ended at once, without a data connection.
    CFtpFileFind find(c.get());
    EXPECT_FALSE(find.FindFile());
    EXPECT_EQ(GetLastError(), 18u);
    EXPECT_EQ(InternetGetLastResponseInfo(), L"226 nothing to list");
  }
  auto file = c->OpenFile(L"f");
  char buf[64];
  uint32_t n = file->Read(buf, sizeof buf);
  EXPECT_EQ(std::string(buf, n), "active bytes");
  EXPECT_EQ(file->Read(buf, sizeof buf), 0u);
  file->Close();
  EXPECT_EQ(GetLastError(), 0u);
  c->Close();
  server.Finish();
  EXPECT_EQ(server.Problem(), "");
}

TEST_F(FakeServerTest, HostileRepliesEndInErrorsNotHangs) {
  std::string longLine = "220 " + std::string(1 << 20, 'a') + "\r\n";
  std::string manyLines = "220-start\r\n";
  for (int i = 0; i < 5000; ++i) manyLines += " more\r\n";
  std::string withNul = std::string("220 nul\0here\r\n", 14);
  for (const std::string& greeting : {longLine, manyLines, withNul, std::string("hello there\r\n")}) {
    FakeServer server({CloseWith(greeting)});
    EXPECT_EQ(ConnectError(server), 12030u) << greeting.substr(0, 20);
    EXPECT_NE(InternetGetLastResponseInfo().find(L"invalid reply"), std::wstring::npos);
  }
}

TEST_F(FakeServerTest, NamesAreBytesOnTheWire) {
  // Latin-1 bytes from a server that does not speak UTF-8 round-trip.
  const std::string latin1 = "caf\xe9.txt";
  FakeServer server(
      Plus(fake::Login(), {On("TYPE A", "200 ok\r\n"), Epsv(),
                           Transfer("LIST", "-rw-r--r-- 1 a a 5 Jan 10 2020 " + latin1 + "\r\n"),
                           On("DELE " + latin1, "250 gone\r\n")}));
  auto c = Connect(server);
  CFtpFileFind find(c.get());
  ASSERT_TRUE(find.FindFile()) << WideToWire(InternetGetLastResponseInfo());
  find.FindNextFile();
  std::wstring name = find.GetFileName();
  EXPECT_EQ(name, std::wstring(L"caf") + wchar_t(0xDC80 + 0xE9) + L".txt");
  find.Close();
  // A NUL (from "%00" in a URL, say) is refused like a line break: the
  // server would cut the name short.
  EXPECT_FALSE(c->Remove(std::wstring(L"a\0b", 3)));
  EXPECT_EQ(GetLastError(), 12003u);
  EXPECT_TRUE(c->Remove(name)) << WideToWire(InternetGetLastResponseInfo());
  c->Close();
  server.Finish();
  EXPECT_EQ(server.Problem(), "");
}

TEST_F(FakeServerTest, RefusedConnectionAndUnknownHost) {
  // A port that was free a moment ago: nothing listens there.
  int fd = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in a{};
  a.sin_family = AF_INET;
  a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t len = sizeof a;
  ASSERT_EQ(bind(fd, reinterpret_cast<sockaddr*>(&a), sizeof a), 0);
  getsockname(fd, reinterpret_cast<sockaddr*>(&a), &len);
  close(fd);
  uint16_t port = ntohs(a.sin_port);
  try {
    m_session.GetFtpConnection(L"127.0.0.1", L"u", L"p", port, true);
    FAIL();
  } catch (const CInternetException& e) {
    EXPECT_EQ(e.m_dwError, 12029u);
    EXPECT_EQ(InternetGetLastResponseInfo(),
              L"connect to 127.0.0.1 port " + std::to_wstring(port) + L": Connection refused");
  }
  try {
    m_session.GetFtpConnection(L"no-such-host.invalid", L"u", L"p", 21, true);
    FAIL();
  } catch (const CInternetException& e) {
    EXPECT_EQ(e.m_dwError, 12007u);
  }
}

// A long listing arrives in many reads: lines cut between two reads, a name
// longer than most reads, and a last line without its line end all come
// through whole; every entry keeps its own time (later or earlier than the
// one before) and link target however the finder stores them: in storage
// it allocates as lines arrive, and in storage made ready while the server
// was still silent.
TEST_F(FakeServerTest, LongListingAcrossReads) {
  const std::string longName(60000, 'n');  // near the longest line a listing may hold
  auto year = [](int i) { return 2020 - (i * 7) % 45; };
  constexpr int kLines = 40000;  // several blocks of storage
  std::string listing;
  for (int i = 0; i < kLines; ++i) {
    std::string date = " Jan 10  " + std::to_string(year(i)) + " ";
    if (i % 7 == 3)
      listing += "lrwxrwxrwx 1 a a " + std::to_string(i) + date + "link " + std::to_string(i) + " -> to/" +
                 std::to_string(i) + "\r\n";
    else
      listing += "-rw-r--r-- 1 a a " + std::to_string(i) + date + "file " + std::to_string(i) + "\r\n";
    if (i == 1500) listing += "-rw-r--r-- 1 a a 7 Jan 10  2020 " + longName + "\r\n";
  }
  listing += "drwxr-xr-x 2 a a 4096 Jan 10  2020 last";
  auto fileTimeOf = [](int y) {
    constexpr uint64_t kEpoch = 11644473600;  // seconds from 1601 to 1970
    std::tm tm{};
    tm.tm_year = y - 1900;
    tm.tm_mday = 10;
    return (static_cast<uint64_t>(timegm(&tm)) + kEpoch) * 10000000ull;
  };
  for (int pauseMs : {0, 60}) {
    SCOPED_TRACE(pauseMs);
    Step list = Transfer("LIST", listing);
    list.dataPauseMs = pauseMs;
    FakeServer server(Plus(fake::Login(), {On("TYPE A", "200 ok\r\n"), Epsv(), list}));
    auto c = Connect(server);
    CFtpFileFind find(c.get());
    ASSERT_TRUE(find.FindFile()) << WideToWire(InternetGetLastResponseInfo());
    std::vector<std::string> names, targets;
    std::vector<uint64_t> sizes, times;
    std::vector<bool> links;
    for (bool more = true; more && names.size() < kLines + 10;) {
      more = find.FindNextFile();
      names.push_back(find.GetEntry().name);
      targets.push_back(find.GetEntry().linkTarget);
      sizes.push_back(find.GetLength());
      uint64_t fileTime = 0;
      EXPECT_TRUE(find.GetLastWriteTime(fileTime));
      times.push_back(fileTime);
      links.push_back(find.MatchesMask(FILE_ATTRIBUTE_REPARSE_POINT));
    }
    find.Close();
    ASSERT_EQ(names.size(), kLines + 2u);
    int wrong = 0;  // one report for a run of wrong entries, not thousands
    for (int i = 0; i < kLines && wrong < 5; ++i) {
      size_t at = static_cast<size_t>(i > 1500 ? i + 1 : i);
      bool link = i % 7 == 3;
      bool right = names[at] == (link ? "link " : "file ") + std::to_string(i) &&
                   targets[at] == (link ? "to/" + std::to_string(i) : "") && links[at] == link &&
                   sizes[at] == static_cast<uint64_t>(i) && times[at] == fileTimeOf(year(i));
      if (!right) {
        ++wrong;
        ADD_FAILURE() << "entry " << i << ": " << names[at] << " -> " << targets[at] << ", " << sizes[at]
                      << " bytes, time " << times[at];
      }
    }
    EXPECT_EQ(names[1501], longName);
    EXPECT_EQ(sizes[1501], 7u);
    EXPECT_EQ(names.back(), "last");
    EXPECT_TRUE(find.IsDirectory());
    c->Close();
    server.Finish();
    EXPECT_EQ(server.Problem(), "");
  }
}

// A listing beyond its bounds, or one that stops flowing, ends in 12030 or
// 12002 with the reason, holding nothing; times a file time cannot hold are
// no time.
TEST_F(FakeServerTest, HostileListingsEndInClearErrors) {
  std::string lines;
  for (int i = 0; i < 3000; ++i) lines += "+i" + std::to_string(i) + ",r,s1,\tf" + std::to_string(i) + "\r\n";
  struct Case {
    const char* what;
    std::string data;
    ListingLimits limits;
    int pauseMs;
    uint32_t error;
    const wchar_t* says;
  } cases[] = {
      {"no line feed", std::string(200000, 'a'), {}, 0, 12030, L"a listing line is longer than 65536 bytes"},
      {"too many entries", lines, {.entries = 1000}, 0, 12030, L"the listing holds more than 1000 entries"},
      {"too many bytes", lines, {.totalBytes = 10000}, 0, 12030, L"the listing is longer than 10000 bytes"},
      {"silent data connection", lines, {}, 2500, 12002, L"receive from 127.0.0.1"},
  };
  SetTimeouts(500);
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    CFtpFileFind::SetLimitsForTesting(c.limits);
    Step list = Transfer("LIST", c.data);
    list.dataPauseMs = c.pauseMs;
    FakeServer server(Plus(fake::Login(), {On("TYPE A", "200 ok\r\n"), Epsv(), list}));
    auto connection = Connect(server);
    CFtpFileFind find(connection.get());
    EXPECT_FALSE(find.FindFile());
    EXPECT_EQ(GetLastError(), c.error);
    EXPECT_NE(InternetGetLastResponseInfo().find(c.says), std::wstring::npos)
        << WideToWire(InternetGetLastResponseInfo());
    EXPECT_FALSE(find.FindNextFile());
    connection->Close();
  }
  CFtpFileFind::SetLimitsForTesting({});

  const std::string times =
      "+m9223372036854775807,r,\thuge\r\n+m1833029933770,r,\tlatest\r\n"
      "+m1833029933771,r,\tbeyond\r\n+m1578651072,r,\tusual\r\n";
  FakeServer server(Plus(fake::Login(), {On("TYPE A", "200 ok\r\n"), Epsv(), Transfer("LIST", times)}));
  auto connection = Connect(server);
  CFtpFileFind find(connection.get());
  ASSERT_TRUE(find.FindFile());
  std::vector<std::pair<std::wstring, bool>> got;
  for (bool more = true; more && got.size() < 10;) {
    more = find.FindNextFile();
    uint64_t fileTime = 0;
    got.emplace_back(find.GetFileName(), find.GetLastWriteTime(fileTime));
  }
  EXPECT_EQ(got, (std::vector<std::pair<std::wstring, bool>>{
                     {L"huge", false}, {L"latest", true}, {L"beyond", false}, {L"usual", true}}));
}

TEST_F(FakeServerTest, DotsAndEmptyListings) {
  const std::string withDots =
      "drwxr-xr-x 2 a a 4096 Jan 10  2020 .\r\n"
      "drwxr-xr-x 9 a a 4096 Jan 10  2020 ..\r\n";
  const std::string mlsd =
      "type=cdir;modify=20200110000000; /pub\r\n"
      "Type=PDir;modify=20200110000000; ..\r\n"
      "type=file;size=3;modify=20200110101112; only.txt\r\n";
  Step feat = On("FEAT", "211-x\r\n MLST type*;size*;modify*;\r\n211 end\r\n");
  FakeServer server({Greet("220 hi\r\n"), On("USER", "331 pw\r\n"), On("PASS", "230 ok\r\n"), feat,
                     On("TYPE A", "200 ok\r\n"), Epsv(), Transfer("MLSD", withDots + mlsd), Epsv(),
                     On("MLSD", "550 No files found.\r\n"), Epsv(),
                     On("MLSD", "550 Permission denied.\r\n")});
  auto c = Connect(server);
  {
    CFtpFileFind find(c.get());
    ASSERT_TRUE(find.FindFile());
    EXPECT_FALSE(find.FindNextFile());  // one entry only
    EXPECT_EQ(find.GetFileName(), L"only.txt");
    uint64_t fileTime = 0;
    ASSERT_TRUE(find.GetLastWriteTime(fileTime));
    EXPECT_EQ(fileTime, (1578651072ull + 11644473600ull) * 10000000ull);  // 2020-01-10 10:11:12 UTC
  }
  {
    CFtpFileFind find(c.get());
    EXPECT_FALSE(find.FindFile());
    EXPECT_EQ(GetLastError(), 18u);
  }
  {
    CFtpFileFind find(c.get());
    EXPECT_FALSE(find.FindFile());
    EXPECT_EQ(GetLastError(), 12003u);
    EXPECT_EQ(InternetGetLastResponseInfo(), L"550 Permission denied.");
  }
  c->Close();
  server.Finish();
  EXPECT_EQ(server.Problem(), "");
}

TEST_F(FakeServerTest, UploadStoppedByTheServerReportsItsReply) {
  Step stor = Transfer("STOR big", "", "552 Quota exceeded\r\n");
  FakeServer server(
      Plus(fake::Login(), {On("TYPE I", "200 ok\r\n"), Epsv(), stor, On("PWD", "257 \"/\" ok\r\n")}));
  auto c = Connect(server);
  auto file = c->OpenFile(L"big", GENERIC_WRITE);
  std::vector<char> block(4096, 'u');
  uint32_t error = 0;
  for (int i = 0; i < 64 * 256 && error == 0; ++i) {  // at most 64 MiB
    try {
      file->Write(block.data(), 4096);
    } catch (const CInternetException& e) {
      error = e.m_dwError;
    }
  }
  EXPECT_EQ(error, 12003u);
  EXPECT_EQ(InternetGetLastResponseInfo(), L"552 Quota exceeded");
  file->Close();
  // The replies are still in step: the next command gets its own.
  std::wstring dir;
  EXPECT_TRUE(c->GetCurrentDirectory(dir)) << WideToWire(InternetGetLastResponseInfo());
  EXPECT_EQ(dir, L"/");
}

class RecordingSession : public CInternetSession {
 public:
  std::vector<uint32_t> statuses;
  std::vector<std::wstring> infos;
  std::vector<std::string> trace;
  void OnStatusCallback(uintptr_t context, uint32_t status, const void* info, uint32_t length) override {
    EXPECT_EQ(context, 1u);
    statuses.push_back(status);
    if (info) {
      EXPECT_EQ(length % sizeof(wchar_t), 0u);
      infos.emplace_back(static_cast<const wchar_t*>(info), length / sizeof(wchar_t) - 1);
    }
  }
  void OnProtocolTrace(bool sent, const std::string& line) override {
    trace.push_back((sent ? "> " : "< ") + line);
  }
};

TEST_F(FakeServerTest, StatusCallbackAndTrace) {
  FakeServer server(Plus(fake::Login(), {On("PWD", "257 \"/\"\r\n")}));
  RecordingSession session;
  session.EnableStatusCallback(true);
  auto c = session.GetFtpConnection(L"127.0.0.1", L"user", L"secret", server.Port(), true);
  std::wstring dir;
  EXPECT_TRUE(c->GetCurrentDirectory(dir));
  c->Close();
  const auto& s = session.statuses;
  ASSERT_GE(s.size(), 6u);
  EXPECT_EQ((std::vector<uint32_t>(s.begin(), s.begin() + 4)), (std::vector<uint32_t>{10, 11, 20, 21}));
  EXPECT_EQ(session.infos, (std::vector<std::wstring>{L"127.0.0.1", L"127.0.0.1"}));
  for (uint32_t code : {30u, 31u, 40u, 41u, 60u, 70u, 50u, 51u}) {
    EXPECT_NE(std::find(s.begin(), s.end(), code), s.end()) << code;
  }
  EXPECT_EQ(s.back(), 51u);
  // The password never reaches the trace.
  EXPECT_NE(std::find(session.trace.begin(), session.trace.end(), "> PASS ****"), session.trace.end());
  for (const auto& line : session.trace) EXPECT_EQ(line.find("secret"), std::string::npos) << line;

  // Without EnableStatusCallback nothing is reported.
  FakeServer quiet(fake::Login());
  RecordingSession off;
  off.GetFtpConnection(L"127.0.0.1", L"user", L"secret", quiet.Port(), true);
  EXPECT_TRUE(off.statuses.empty());
}

// A find's and a file's notices carry their own context, the connection's
// the session's.
TEST_F(FakeServerTest, StatusCallbackContextOfEachHandle) {
  class ContextSession : public CInternetSession {
   public:
    ContextSession() : CInternetSession(nullptr, 5) {}
    std::vector<std::pair<uintptr_t, uint32_t>> notices;
    void OnStatusCallback(uintptr_t context, uint32_t status, const void*, uint32_t) override {
      notices.emplace_back(context, status);
    }
    // The contexts since the last call, and whether 60 and 70 were among them.
    std::set<uintptr_t> Since(size_t& seen, bool& createdAndClosed) {
      std::set<uintptr_t> contexts;
      bool created = false, closed = false;
      for (; seen < notices.size(); ++seen) {
        contexts.insert(notices[seen].first);
        created |= notices[seen].second == 60;
        closed |= notices[seen].second == 70;
      }
      createdAndClosed = created && closed;
      return contexts;
    }
  };
  FakeServer server(
      Plus(fake::Login(),
           {On("TYPE A", "200 ok\r\n"), Epsv(), Transfer("LIST", "-rw-r--r-- 1 a a 3 Jan 10  2020 f\r\n"),
            On("TYPE I", "200 ok\r\n"), Epsv(), Transfer("RETR f", "abc"), On("PWD", "257 \"/\"\r\n")}));
  ContextSession session;
  session.EnableStatusCallback(true);
  auto c = session.GetFtpConnection(L"127.0.0.1", L"user", L"secret", server.Port(), true);
  size_t seen = 0;
  bool both = false;
  EXPECT_EQ(session.Since(seen, both), std::set<uintptr_t>{5});
  {
    CFtpFileFind find(c.get(), 7);
    ASSERT_TRUE(find.FindFile());
    find.Close();
  }
  EXPECT_EQ(session.Since(seen, both), std::set<uintptr_t>{7});
  EXPECT_TRUE(both);
  {
    auto file = c->OpenFile(L"f", GENERIC_READ, FTP_TRANSFER_TYPE_BINARY, 9);
    char buf[8];
    while (file->Read(buf, sizeof buf) > 0) {
    }
    file->Close();
  }
  EXPECT_EQ(session.Since(seen, both), std::set<uintptr_t>{9});
  EXPECT_TRUE(both);
  std::wstring dir;
  EXPECT_TRUE(c->GetCurrentDirectory(dir));
  EXPECT_EQ(session.Since(seen, both), std::set<uintptr_t>{5});
  c->Close();
  server.Finish();
  EXPECT_EQ(server.Problem(), "");
}

TEST_F(FakeServerTest, ObjectsOutlivingTheirConnection) {
  FakeServer server(Plus(fake::Login(), {On("TYPE I", "200 ok\r\n"), Epsv(), On("RETR f", "150 go\r\n")}));
  auto session = std::make_unique<CInternetSession>();
  auto c = session->GetFtpConnection(L"127.0.0.1", L"user", L"secret", server.Port(), true);
  auto file = c->OpenFile(L"f");
  c.reset();  // the file is still held
  char buf[16];
  try {
    file->Read(buf, sizeof buf);
    ADD_FAILURE() << "read on a closed connection";
  } catch (const CInternetException& e) {
    EXPECT_EQ(e.m_dwError, 12017u);
  }
  file->Close();
  file.reset();

  // A session closed under its connection leaves it closed, not dangling.
  FakeServer second(fake::Login());
  auto c2 = session->GetFtpConnection(L"127.0.0.1", L"user", L"secret", second.Port(), true);
  session.reset();
  std::wstring dir;
  EXPECT_FALSE(c2->GetCurrentDirectory(dir));
  EXPECT_EQ(GetLastError(), 12017u);
}

// Over TLS, with the scripted server's own self-signed certificate
// accepted.
class FakeTlsTest : public ::testing::Test {
 protected:
  struct Session : CInternetSession {
    bool OnUntrustedCertificate(const std::wstring&, uint16_t, const TlsPeerInfo&) override { return true; }
  } m_session;
  void SetUp() override {
    for (uint32_t option : {INTERNET_OPTION_CONNECT_TIMEOUT, INTERNET_OPTION_RECEIVE_TIMEOUT,
                            INTERNET_OPTION_SEND_TIMEOUT})
      m_session.SetOption(option, 3000);
  }
  std::unique_ptr<CFtpConnection> Connect(FakeServer& server) {
    return m_session.GetFtpConnection(L"127.0.0.1", L"user", L"secret", server.Port(), true, TlsMode::Explicit);
  }
};

// A "230" injected in clear text behind "234" must not answer USER from
// inside TLS: the login goes on with PASS, as the real replies ask.
TEST_F(FakeTlsTest, BytesAfter234AreNeverReplies) {
  FakeServer server(Plus(fake::TlsLogin("234 go ahead\r\n230 injected, no password needed\r\n"),
                         {On("PWD", "257 \"/inside\" is current\r\n")}));
  auto c = Connect(server);
  std::wstring dir;
  ASSERT_TRUE(c->GetCurrentDirectory(dir)) << WideToWire(InternetGetLastResponseInfo());
  EXPECT_EQ(dir, L"/inside");
  c->Close();
  server.Finish();
  EXPECT_EQ(server.Problem(), "");
  EXPECT_EQ(server.Received(), (std::vector<std::string>{"AUTH TLS", "USER user", "PASS secret", "PBSZ 0",
                                                         "PROT P", "FEAT", "PWD", "QUIT"}));
}

// A download whose TLS stream ends without close_notify was cut short by
// someone: the bytes that came are given, the transfer fails all the same.
TEST_F(FakeTlsTest, DataWithoutCloseNotifyIsAFailedTransfer) {
  const std::string body(100000, 'z');
  for (const bool closeNotify : {true, false}) {
    SCOPED_TRACE(closeNotify ? "with close_notify" : "cut");
    Step retr = Transfer("RETR f", body);
    retr.dataTls = true;
    retr.dataCloseNotify = closeNotify;
    FakeServer server(Plus(fake::TlsLogin(), {On("TYPE I", "200 ok\r\n"), Epsv(), retr}));
    auto c = Connect(server);
    auto file = c->OpenFile(L"f");
    std::string got;
    char block[4096];
    uint32_t error = 0;
    try {
      for (uint32_t n; got.size() <= body.size() && (n = file->Read(block, sizeof block)) > 0;) got.append(block, n);
    } catch (const CInternetException& e) {
      error = e.m_dwError;
    }
    file->Close();
    if (error == 0) error = GetLastError();
    EXPECT_EQ(got, body);
    if (closeNotify) {
      EXPECT_EQ(error, 0u) << WideToWire(InternetGetLastResponseInfo());
    } else {
      EXPECT_EQ(error, kErrConnectionAborted);
      EXPECT_NE(InternetGetLastResponseInfo().find(L"close_notify"), std::wstring::npos)
          << WideToWire(InternetGetLastResponseInfo());
    }
    c.reset();
    server.Finish();
    EXPECT_EQ(server.Problem(), "");
  }
}

// A server that accepts AUTH TLS and then says nothing: the handshake ends
// with the time-out, not with the server's patience.
TEST_F(FakeTlsTest, SilentHandshakeTimesOut) {
  for (uint32_t option : {INTERNET_OPTION_CONNECT_TIMEOUT, INTERNET_OPTION_RECEIVE_TIMEOUT})
    m_session.SetOption(option, 400);
  FakeServer server({Greet("220 hi\r\n"), On("AUTH TLS", "234 go ahead\r\n"), Silence()});
  const auto start = std::chrono::steady_clock::now();
  try {
    Connect(server);
    FAIL() << "connected without a handshake";
  } catch (const CInternetException& e) {
    EXPECT_EQ(e.m_dwError, kErrTimeout);
  }
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(2500));
}

}  // namespace
}  // namespace ftpzn::inet
