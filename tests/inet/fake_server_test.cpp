// Faults against the scripted server: each test asserts the commands the
// client sent and the error it reported.
#include "fake_server.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <ctime>
#include <set>

#include "ftp_servers.h"
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
using fake::Silence;
using fake::Step;
using fake::Transfer;
using Strings = std::vector<std::string>;

std::vector<Step> LoggedIn(const std::vector<Step>& more) { return fake::Plus(fake::Login(), more); }
Step TypeA() { return On("TYPE A", "200 ok\r\n"); }
Step TypeI() { return On("TYPE I", "200 ok\r\n"); }
uint64_t FileTime(int64_t unixTime) { return static_cast<uint64_t>(unixTime + 11644473600) * 10000000ull; }

// Reads to the end (or past `limit` bytes); the error a read threw, or 0.
uint32_t ReadAll(CInternetFile& file, std::string& got, size_t limit = 1 << 24) {
  char block[4096];
  try {
    for (uint32_t n; got.size() <= limit && (n = file.Read(block, sizeof block)) > 0;) got.append(block, n);
  } catch (const CInternetException& e) {
    return e.m_dwError;
  }
  return 0;
}

class FakeServerTest : public ::testing::Test {
 protected:
  void SetUp() override { SetTimeouts(3000); }
  void SetTimeouts(uint32_t ms) {
    for (uint32_t option : {INTERNET_OPTION_CONNECT_TIMEOUT, INTERNET_OPTION_RECEIVE_TIMEOUT, INTERNET_OPTION_SEND_TIMEOUT})
      m_session.SetOption(option, ms);
  }
  std::unique_ptr<CFtpConnection> Connect(FakeServer& server, bool passive = true, TlsMode tls = TlsMode::None) {
    return m_session.GetFtpConnection(L"127.0.0.1", L"user", L"secret", server.Port(), passive, tls);
  }
  // The code of the exception GetFtpConnection throws, 0 if it succeeds.
  uint32_t ConnectError(uint16_t port, const std::wstring& host = L"127.0.0.1", TlsMode tls = TlsMode::None) {
    try {
      m_session.GetFtpConnection(host, L"user", L"secret", port, true, tls);
    } catch (const CInternetException& e) {
      return e.m_dwError;
    }
    return 0;
  }
  // The client left and the server found nothing wrong on its side.
  static void Done(std::unique_ptr<CFtpConnection>& c, FakeServer& server) {
    c.reset();
    server.Finish();
    EXPECT_EQ(server.Problem(), "");
  }
  // The scripted server's own self-signed certificate is taken.
  struct TrustingSession : CInternetSession {
    bool OnUntrustedCertificate(const std::wstring&, uint16_t, const TlsPeerInfo&) override { return true; }
  } m_session;
};

TEST_F(FakeServerTest, MultiLineAndSplitReplies) {
  Step greeting = Greet("220-Welcome\r\n220-a line with 220 inside\r\n123 looks like an end but is not\r\n220\r\n");
  greeting.pieceSize = 1;  // every byte its own read
  Step feat = On("FEAT", "211-Features:\n MLST type*;size*;modify*;\r\n UTF8\n EPSV\r\n211 End\n");  // bare LFs too
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
  Done(c, server);
  EXPECT_EQ(server.Received(), (Strings{"USER user", "PASS secret", "FEAT", "OPTS UTF8 ON", "PWD", "QUIT"}));
}

// Failures before there is a session: each ends in its error and reason
// within the time-out. Not a performance figure: a hang would show as the
// server's own 5 s bound, or forever.
TEST_F(FakeServerTest, ConnectFailures) {
  std::string manyLines = "220-start\r\n";
  for (int i = 0; i < 5000; ++i) manyLines += " more\r\n";
  const Step hi = Greet("220 hi\r\n"), user = On("USER", "331 pw\r\n");
  struct Case {
    std::string what;
    std::vector<Step> script;
    uint32_t error;
    std::wstring says;  // part of the last response; all of it if `whole`
    bool whole = false;
    int minMs = 0;
    TlsMode tls = TlsMode::None;
  };
  // clang-format off
  std::vector<Case> cases = {
      {"cut reply", {hi, CloseWith("331 Passw", "USER")}, 12030, L"middle of a reply"},
      {"wrong password", {hi, user, On("PASS", "530 Login incorrect.\r\n")}, 12014, L"530 Login incorrect.", true},
      {"user refused", {hi, On("USER", "530 Not allowed\r\n")}, 12013, L"530 Not allowed", true},
      {"account needed", {hi, user, On("PASS", "332 Need account\r\n")}, 12015, L"332 Need account", true},
      {"greeting refuses", {CloseWith("550 go away\r\n")}, 12015, L"550 go away", true},
      {"long line", {CloseWith("220 " + std::string(1 << 20, 'a') + "\r\n")}, 12030, L"invalid reply"},
      {"many lines", {CloseWith(manyLines)}, 12030, L"invalid reply"},
      {"NUL", {CloseWith(std::string("220 nul\0here\r\n", 14))}, 12030, L"invalid reply"},
      {"no code", {CloseWith("hello there\r\n")}, 12030, L"invalid reply"},
      {"silent greeting", {Silence()}, 12002, L"timed out", false, 350},
      {"silent after USER", {hi, Silence("USER")}, 12002, L"timed out", false, 350},
      // The handshake ends with the time-out, not with the server's patience.
      {"silent TLS handshake", {hi, On("AUTH TLS", "234 go ahead\r\n"), Silence()}, kErrTimeout, L"", false, 0, TlsMode::Explicit},
  };
  // clang-format on
  const std::vector<Step> login = fake::Login();
  for (size_t at = 0; at < login.size(); ++at) {  // 421 at each step of the log-in
    std::vector<Step> script(login.begin(), login.begin() + static_cast<std::ptrdiff_t>(at));
    script.push_back(CloseWith("421 Too many users, try later\r\n", login[at].expect));
    cases.push_back({"421 at step " + std::to_string(at), script, 12030, L"421 Too many users, try later", true});
  }
  SetTimeouts(400);
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    FakeServer server(c.script);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(ConnectError(server.Port(), L"127.0.0.1", c.tls), c.error);
    const auto elapsed = std::chrono::steady_clock::now() - start;
    EXPECT_GE(elapsed, std::chrono::milliseconds(c.minMs));
    EXPECT_LT(elapsed, std::chrono::milliseconds(2500));
    const std::wstring said = InternetGetLastResponseInfo();
    EXPECT_TRUE(c.whole ? said == c.says : said.find(c.says) != std::wstring::npos) << WideToWire(said);
  }
  // Nothing listening, and no such host.
  const uint16_t closed = testing::ClosedPort();
  EXPECT_EQ(ConnectError(closed), 12029u);
  EXPECT_EQ(InternetGetLastResponseInfo(), L"connect to 127.0.0.1 port " + std::to_wstring(closed) + L": Connection refused");
  EXPECT_EQ(ConnectError(21, L"no-such-host.invalid"), 12007u);
}

// A fault in the middle of a command: that call fails with its error and
// the reply, the next finds the session gone. A late reply could not be
// told from the next one's; a transfer without its end reply fails all the
// same, after what came before the end was delivered.
TEST_F(FakeServerTest, FaultsAfterLoginEndTheSession) {
  enum Call { kPwd, kCwd, kList, kRead };
  const std::vector<Step> listing = {TypeA(), Epsv(), Transfer("LIST", "")};
  auto at = [&](size_t n, const std::string& command) {
    std::vector<Step> script(listing.begin(), listing.begin() + static_cast<std::ptrdiff_t>(n));
    script.push_back(On(command, "421 Idle timeout\r\n"));
    return script;
  };
  const struct { const char* what; std::vector<Step> script; Call call; uint32_t error; const wchar_t* says; } cases[] = {
      {"silent PWD", {Silence("PWD")}, kPwd, 12002, nullptr},
      {"421 at TYPE", at(0, "TYPE A"), kList, 12030, L"421 Idle timeout"},
      {"421 at EPSV", at(1, "EPSV"), kList, 12030, L"421 Idle timeout"},
      {"421 at LIST", at(2, "LIST"), kList, 12030, L"421 Idle timeout"},
      {"421 at CWD", at(0, "CWD"), kCwd, 12030, L"421 Idle timeout"},
      {"closed in RETR", {TypeI(), On("EPSV", "500 no\r\n"), Pasv(), Transfer("RETR big", std::string(100000, 'x'), "")}, kRead, 12030, nullptr},
  };
  SetTimeouts(300);
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    FakeServer server(LoggedIn(c.script));
    auto connection = Connect(server);
    std::wstring dir;
    bool done = false;
    if (c.call == kPwd) done = connection->GetCurrentDirectory(dir);
    if (c.call == kCwd) done = connection->SetCurrentDirectory(L"pub");
    if (c.call == kList) done = CFtpFileFind(connection.get()).FindFile();
    EXPECT_FALSE(done);
    if (c.call == kRead) {
      auto file = connection->OpenFile(L"big");
      std::string got;
      EXPECT_EQ(ReadAll(*file, got), 12030u);
      EXPECT_EQ(got.size(), 100000u);
      file->Close();
    } else {
      EXPECT_EQ(GetLastError(), c.error);
    }
    if (c.says) {
      EXPECT_EQ(InternetGetLastResponseInfo(), c.says);
    }
    EXPECT_FALSE(connection->SetCurrentDirectory(L"pub"));
    EXPECT_EQ(GetLastError(), 12111u);
  }
}

// EPRT is not tried again once refused. An empty listing ends at once,
// without a data connection. A data connection from another address than
// the server's is closed unread, and the server's own is taken.
TEST_F(FakeServerTest, ActiveFallsBackFromEprtToPort) {
  Step port = On("PORT 127,0,0,1,", "200 ok\r\n");
  Step stolen = Transfer("RETR f", "active bytes");
  stolen.activeFrom = "127.0.0.2";
  FakeServer server(LoggedIn({TypeA(), On("EPRT |1|127.0.0.1|", "500 what\r\n"), port, On("LIST", "226 nothing to list\r\n"), TypeI(), port, stolen}));
  auto c = Connect(server, false);
  {
    CFtpFileFind find(c.get());
    EXPECT_FALSE(find.FindFile());
    EXPECT_EQ(GetLastError(), 18u);
    EXPECT_EQ(InternetGetLastResponseInfo(), L"226 nothing to list");
  }
  auto file = c->OpenFile(L"f");
  std::string got;
  EXPECT_EQ(ReadAll(*file, got), 0u);
  EXPECT_EQ(got, "active bytes");
  file->Close();
  EXPECT_EQ(GetLastError(), 0u);
  Done(c, server);
}

// Latin-1 bytes from a server that does not speak UTF-8 round-trip. A NUL
// (from "%00" in a URL, say) is refused like a line break: the server would
// cut the name short. A refused EPSV is not tried again, and an address in
// PASV's reply that cannot be reached from here gives way to the server's.
TEST_F(FakeServerTest, NamesAreBytesOnTheWireAndPassiveFallsBack) {
  const std::string latin1 = "caf\xe9.txt", listing = "-rw-r--r-- 1 a a 5 Jan 10 2020 " + latin1 + "\r\ndrwxr-xr-x 2 a a 4096 Jan 10 2020 sub\r\n";
  FakeServer server(LoggedIn({TypeA(), On("EPSV", "502 EPSV not implemented\r\n"), Pasv("227 Entering Passive Mode (10,1,2,3,{P1},{P2}).\r\n"), Transfer("LIST", listing),
                              Pasv("227 =0,0,0,0,{P1},{P2}\r\n"), Transfer("LIST", listing), On("DELE " + latin1, "250 gone\r\n")}));
  auto c = Connect(server);
  std::wstring name;
  for (int round = 0; round < 2; ++round) {
    CFtpFileFind find(c.get());
    ASSERT_TRUE(find.FindFile()) << WideToWire(InternetGetLastResponseInfo());
    EXPECT_TRUE(find.FindNextFile());
    name = find.GetFileName();
    EXPECT_EQ(name, std::wstring(L"caf") + wchar_t(0xDC80 + 0xE9) + L".txt");
    EXPECT_EQ(find.GetLength(), 5u);
    EXPECT_FALSE(find.FindNextFile());
    EXPECT_EQ(find.GetFileName(), L"sub");
    EXPECT_TRUE(find.MatchesMask(FILE_ATTRIBUTE_DIRECTORY));
  }
  EXPECT_FALSE(c->Remove(std::wstring(L"a\0b", 3)));
  EXPECT_EQ(GetLastError(), 12003u);
  EXPECT_TRUE(c->Remove(name)) << WideToWire(InternetGetLastResponseInfo());
  c->Close();
  Done(c, server);
  EXPECT_EQ(server.Received(), (Strings{"USER user", "PASS secret", "FEAT", "TYPE A", "EPSV", "PASV", "LIST", "PASV", "LIST", "DELE " + latin1, "QUIT"}));
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
  auto fileTimeOf = [](int y) {
    std::tm tm{};
    tm.tm_year = y - 1900;
    tm.tm_mday = 10;
    return FileTime(timegm(&tm));
  };
  constexpr int kLines = 40000;  // several blocks of storage
  std::string listing;
  for (int i = 0; i < kLines; ++i) {
    const std::string n = std::to_string(i), date = " Jan 10  " + std::to_string(year(i)) + " ";
    listing += i % 7 == 3 ? "lrwxrwxrwx 1 a a " + n + date + "link " + n + " -> to/" + n + "\r\n" : "-rw-r--r-- 1 a a " + n + date + "file " + n + "\r\n";
    if (i == 1500) listing += "-rw-r--r-- 1 a a 7 Jan 10  2020 " + longName + "\r\n";
  }
  listing += "drwxr-xr-x 2 a a 4096 Jan 10  2020 last";
  for (int pauseMs : {0, 60}) {
    SCOPED_TRACE(pauseMs);
    Step list = Transfer("LIST", listing);
    list.dataPauseMs = pauseMs;
    FakeServer server(LoggedIn({TypeA(), Epsv(), list}));
    auto c = Connect(server);
    CFtpFileFind find(c.get());
    ASSERT_TRUE(find.FindFile()) << WideToWire(InternetGetLastResponseInfo());
    struct Got { std::string name, target; uint64_t size, time = 0; bool link = false; };
    std::vector<Got> got;
    for (bool more = true; more && got.size() < kLines + 10;) {
      more = find.FindNextFile();
      Got g{find.GetEntry().name, find.GetEntry().linkTarget, find.GetLength()};
      EXPECT_TRUE(find.GetLastWriteTime(g.time));
      g.link = find.MatchesMask(FILE_ATTRIBUTE_REPARSE_POINT);
      got.push_back(g);
    }
    find.Close();
    ASSERT_EQ(got.size(), kLines + 2u);
    int wrong = 0;  // one report for a run of wrong entries, not thousands
    for (int i = 0; i < kLines && wrong < 5; ++i) {
      const Got& g = got[static_cast<size_t>(i > 1500 ? i + 1 : i)];
      const bool link = i % 7 == 3;
      if (g.name != (link ? "link " : "file ") + std::to_string(i) || g.target != (link ? "to/" + std::to_string(i) : "") ||
          g.link != link || g.size != static_cast<uint64_t>(i) || g.time != fileTimeOf(year(i))) {
        ++wrong;
        ADD_FAILURE() << "entry " << i << ": " << g.name << " -> " << g.target << ", " << g.size << " bytes, time " << g.time;
      }
    }
    EXPECT_EQ(got[1501].name, longName);
    EXPECT_EQ(got[1501].size, 7u);
    EXPECT_EQ(got.back().name, "last");
    EXPECT_TRUE(find.IsDirectory());
    Done(c, server);
  }
}

// A listing beyond its bounds, or one that stops flowing, ends in 12030 or
// 12002 with the reason, holding nothing; times a file time cannot hold are
// no time.
TEST_F(FakeServerTest, HostileListingsEndInClearErrors) {
  std::string lines;
  for (int i = 0; i < 3000; ++i) lines += "+i" + std::to_string(i) + ",r,s1,\tf" + std::to_string(i) + "\r\n";
  const struct { const char* what; std::string data; ListingLimits limits; int pauseMs; uint32_t error; const wchar_t* says; } cases[] = {
      {"no line feed", std::string(200000, 'a'), {}, 0, 12030, L"a listing line is longer than 65536 bytes"},
      {"too many entries", lines, {.entries = 1000}, 0, 12030, L"the listing holds more than 1000 entries"},
      {"too many bytes", lines, {.totalBytes = 10000}, 0, 12030, L"the listing is longer than 10000 bytes"},
      {"silent data connection", lines, {}, 2500, 12002, L"receive from 127.0.0.1"},
  };
  SetTimeouts(500);
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    CFtpFileFind::SetLimitsForTesting(c.limits);
    Step list = Transfer("LIST", c.data);
    list.dataPauseMs = c.pauseMs;
    FakeServer server(LoggedIn({TypeA(), Epsv(), list}));
    auto connection = Connect(server);
    CFtpFileFind find(connection.get());
    EXPECT_FALSE(find.FindFile());
    EXPECT_EQ(GetLastError(), c.error);
    EXPECT_NE(InternetGetLastResponseInfo().find(c.says), std::wstring::npos) << WideToWire(InternetGetLastResponseInfo());
    EXPECT_FALSE(find.FindNextFile());
  }
  CFtpFileFind::SetLimitsForTesting({});

  const std::string times = "+m9223372036854775807,r,\thuge\r\n+m1833029933770,r,\tlatest\r\n+m1833029933771,r,\tbeyond\r\n+m1578651072,r,\tusual\r\n";
  FakeServer server(LoggedIn({TypeA(), Epsv(), Transfer("LIST", times)}));
  auto connection = Connect(server);
  CFtpFileFind find(connection.get());
  ASSERT_TRUE(find.FindFile());
  std::vector<std::pair<std::wstring, bool>> got;
  for (bool more = true; more && got.size() < 10;) {
    more = find.FindNextFile();
    uint64_t fileTime = 0;
    got.emplace_back(find.GetFileName(), find.GetLastWriteTime(fileTime));
  }
  EXPECT_EQ(got, (std::vector<std::pair<std::wstring, bool>>{{L"huge", false}, {L"latest", true}, {L"beyond", false}, {L"usual", true}}));
}

// MLSD's cdir and pdir and LIST's dots are left out; "550 No files found."
// is an empty directory, any other 550 a failure.
TEST_F(FakeServerTest, DotsAndEmptyListings) {
  const std::string listing =
      "drwxr-xr-x 2 a a 4096 Jan 10  2020 .\r\ndrwxr-xr-x 9 a a 4096 Jan 10  2020 ..\r\n"
      "type=cdir;modify=20200110000000; /pub\r\nType=PDir;modify=20200110000000; ..\r\n"
      "type=file;size=3;modify=20200110101112; only.txt\r\n";
  FakeServer server({Greet("220 hi\r\n"), On("USER", "331 pw\r\n"), On("PASS", "230 ok\r\n"), On("FEAT", "211-x\r\n MLST type*;size*;modify*;\r\n211 end\r\n"),
                     TypeA(), Epsv(), Transfer("MLSD", listing), Epsv(), On("MLSD", "550 No files found.\r\n"), Epsv(), On("MLSD", "550 Permission denied.\r\n")});
  auto c = Connect(server);
  {
    CFtpFileFind find(c.get());
    ASSERT_TRUE(find.FindFile());
    EXPECT_FALSE(find.FindNextFile());  // one entry only
    EXPECT_EQ(find.GetFileName(), L"only.txt");
    uint64_t fileTime = 0;
    ASSERT_TRUE(find.GetLastWriteTime(fileTime));
    EXPECT_EQ(fileTime, FileTime(1578651072));  // 2020-01-10 10:11:12 UTC
  }
  for (uint32_t error : {18u, 12003u}) {
    CFtpFileFind find(c.get());
    EXPECT_FALSE(find.FindFile());
    EXPECT_EQ(GetLastError(), error);
  }
  EXPECT_EQ(InternetGetLastResponseInfo(), L"550 Permission denied.");
  Done(c, server);
}

// The replies are still in step after the refusal: the next command gets
// its own.
TEST_F(FakeServerTest, UploadStoppedByTheServerReportsItsReply) {
  FakeServer server(LoggedIn({TypeI(), Epsv(), Transfer("STOR big", "", "552 Quota exceeded\r\n"), On("PWD", "257 \"/\" ok\r\n")}));
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
  std::wstring dir;
  EXPECT_TRUE(c->GetCurrentDirectory(dir)) << WideToWire(InternetGetLastResponseInfo());
  EXPECT_EQ(dir, L"/");
}

class RecordingSession : public CInternetSession {
 public:
  std::vector<std::pair<uintptr_t, uint32_t>> notices;
  std::vector<std::wstring> infos;
  Strings trace;
  void OnStatusCallback(uintptr_t context, uint32_t status, const void* info, uint32_t length) override {
    notices.emplace_back(context, status);
    if (info) {
      EXPECT_EQ(length % sizeof(wchar_t), 0u);
      infos.emplace_back(static_cast<const wchar_t*>(info), length / sizeof(wchar_t) - 1);
    }
  }
  void OnProtocolTrace(bool sent, const std::string& line) override { trace.push_back((sent ? "> " : "< ") + line); }
  bool Has(uintptr_t context, uint32_t status) const {
    return std::find(notices.begin(), notices.end(), std::pair{context, status}) != notices.end();
  }
};

// The notices of a log-in, a listing, a download and a command in order,
// each under its handle's context (a find's and a file's their own, the
// connection's the session's); the password never reaches the trace; and
// without EnableStatusCallback nothing is reported.
TEST_F(FakeServerTest, StatusCallbackContextsAndTrace) {
  FakeServer server(LoggedIn({TypeA(), Epsv(), Transfer("LIST", "-rw-r--r-- 1 a a 3 Jan 10  2020 f\r\n"), TypeI(), Epsv(), Transfer("RETR f", "abc"), On("PWD", "257 \"/\"\r\n")}));
  RecordingSession session;
  session.EnableStatusCallback(true);
  auto c = session.GetFtpConnection(L"127.0.0.1", L"user", L"secret", server.Port(), true);
  // The notices since the last look all have `context`; a handle's include
  // its creation (60) and closing (70).
  size_t seen = 0;
  auto since = [&](uintptr_t context, bool handle) {
    std::set<uintptr_t> contexts;
    std::set<uint32_t> statuses;
    for (; seen < session.notices.size(); ++seen) {
      contexts.insert(session.notices[seen].first);
      statuses.insert(session.notices[seen].second);
    }
    EXPECT_EQ(contexts, std::set<uintptr_t>{context});
    EXPECT_TRUE(!handle || (statuses.count(60) && statuses.count(70))) << context;
  };
  ASSERT_GE(session.notices.size(), 4u);
  const std::vector<std::pair<uintptr_t, uint32_t>> first(session.notices.begin(), session.notices.begin() + 4);
  EXPECT_EQ(first, (std::vector<std::pair<uintptr_t, uint32_t>>{{1, 10}, {1, 11}, {1, 20}, {1, 21}}));
  EXPECT_EQ(session.infos, (std::vector<std::wstring>{L"127.0.0.1", L"127.0.0.1"}));
  since(1, false);
  {
    CFtpFileFind find(c.get(), 7);
    ASSERT_TRUE(find.FindFile());
    find.Close();
  }
  since(7, true);
  {
    auto file = c->OpenFile(L"f", GENERIC_READ, FTP_TRANSFER_TYPE_BINARY, 9);
    std::string got;
    EXPECT_EQ(ReadAll(*file, got), 0u);
    file->Close();
  }
  since(9, true);
  std::wstring dir;
  EXPECT_TRUE(c->GetCurrentDirectory(dir));
  since(1, false);
  c->Close();
  for (uint32_t code : {30u, 31u, 40u, 41u, 60u, 70u, 50u, 51u}) EXPECT_TRUE(session.Has(1, code)) << code;
  EXPECT_EQ(session.notices.back().second, 51u);
  EXPECT_NE(std::find(session.trace.begin(), session.trace.end(), "> PASS ****"), session.trace.end());
  for (const auto& line : session.trace) EXPECT_EQ(line.find("secret"), std::string::npos) << line;
  Done(c, server);

  FakeServer quiet(fake::Login());
  RecordingSession off;
  off.GetFtpConnection(L"127.0.0.1", L"user", L"secret", quiet.Port(), true);
  EXPECT_TRUE(off.notices.empty());
}

// A file outliving its connection, and a connection its session, is closed,
// not dangling.
TEST_F(FakeServerTest, ObjectsOutlivingTheirConnection) {
  FakeServer server(LoggedIn({TypeI(), Epsv(), On("RETR f", "150 go\r\n")}));
  auto session = std::make_unique<CInternetSession>();
  auto c = session->GetFtpConnection(L"127.0.0.1", L"user", L"secret", server.Port(), true);
  auto file = c->OpenFile(L"f");
  c.reset();
  std::string got;
  EXPECT_EQ(ReadAll(*file, got), 12017u);
  file->Close();
  file.reset();

  FakeServer second(fake::Login());
  auto c2 = session->GetFtpConnection(L"127.0.0.1", L"user", L"secret", second.Port(), true);
  session.reset();
  std::wstring dir;
  EXPECT_FALSE(c2->GetCurrentDirectory(dir));
  EXPECT_EQ(GetLastError(), 12017u);
}

// A "230" injected in clear text behind "234" must not answer USER from
// inside TLS: the login goes on with PASS, as the real replies ask. A
// download whose TLS stream ends without close_notify was cut short by
// someone: the bytes that came are given, the transfer fails all the same.
TEST_F(FakeServerTest, TlsInjectedRepliesAndCutDataStreams) {
  // The engine reads its trust store with its first TLS connection, once for
  // the process: the real servers' tests in this binary need the test CA.
  std::string error;
  ASSERT_TRUE(testing::TrustTestCertificates(error)) << error;
  const std::string body(100000, 'z');
  for (const bool closeNotify : {true, false}) {
    SCOPED_TRACE(closeNotify ? "with close_notify" : "cut");
    Step retr = Transfer("RETR f", body);
    retr.dataTls = true;
    retr.dataCloseNotify = closeNotify;
    FakeServer server(fake::Plus(fake::TlsLogin("234 go ahead\r\n230 injected, no password needed\r\n"), {On("PWD", "257 \"/inside\" is current\r\n"), TypeI(), Epsv(), retr}));
    auto c = Connect(server, true, TlsMode::Explicit);
    std::wstring dir;
    ASSERT_TRUE(c->GetCurrentDirectory(dir)) << WideToWire(InternetGetLastResponseInfo());
    EXPECT_EQ(dir, L"/inside");
    auto file = c->OpenFile(L"f");
    std::string got;
    uint32_t error = ReadAll(*file, got, body.size());
    file->Close();
    if (error == 0) error = GetLastError();
    EXPECT_EQ(got, body);
    EXPECT_EQ(error, closeNotify ? 0u : kErrConnectionAborted) << WideToWire(InternetGetLastResponseInfo());
    if (!closeNotify) {
      EXPECT_NE(InternetGetLastResponseInfo().find(L"close_notify"), std::wstring::npos);
    }
    Done(c, server);
    EXPECT_EQ(server.Received().at(2), "PASS secret");
  }
}

}  // namespace
}  // namespace ftpzn::inet
