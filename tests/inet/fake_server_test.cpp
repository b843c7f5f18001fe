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

using namespace fake;
using Strings = std::vector<std::string>;

std::vector<Step> LoggedIn(const std::vector<Step>& more) { return Plus(Login(), more); }
Step TypeA() { return On("TYPE A", "200 ok\r\n"); }
Step TypeI() { return On("TYPE I", "200 ok\r\n"); }
Step InPieces(Step s, size_t bytes) { return s.pieceSize = bytes, s; }
Step Paused(Step s, int ms) { return s.dataPauseMs = ms, s; }
uint64_t FileTime(int64_t unixTime) { return static_cast<uint64_t>(unixTime + 11644473600) * 10000000ull; }
std::string Said() { return WideToWire(InternetGetLastResponseInfo()); }

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

// Writes until the server stops it (at most 64 MiB); the error a write
// threw, or 0.
uint32_t WriteAll(CInternetFile& file) {
  const std::vector<char> block(4096, 'u');
  try {
    for (int i = 0; i < 64 * 256; ++i) file.Write(block.data(), 4096);
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

// Replies in many lines, one byte or a few a read, with bare LFs.
TEST_F(FakeServerTest, MultiLineAndSplitReplies) {
  FakeServer server({InPieces(Greet("220-Welcome\r\n220-a line with 220 inside\r\n123 looks like an end but is not\r\n220\r\n"), 1),
                     On("USER", "331 pw\r\n"), On("PASS", "230-Hello\r\n230 logged in\r\n"),
                     InPieces(On("FEAT", "211-Features:\n MLST type*;size*;modify*;\r\n UTF8\n EPSV\r\n211 End\n"), 7),
                     On("OPTS UTF8 ON", "200 ok\r\n"), InPieces(On("PWD", "257 \"/with \"\"quotes\"\"\" is current\r\n"), 5)});
  auto c = Connect(server);
  std::wstring dir;
  ASSERT_TRUE(c->GetCurrentDirectory(dir)) << Said();
  EXPECT_EQ(dir, L"/with \"quotes\"");
  EXPECT_TRUE(c->UsesMlsd());
  c->Close();
  Done(c, server);
  EXPECT_EQ(server.Received(), (Strings{"USER user", "PASS secret", "FEAT", "OPTS UTF8 ON", "PWD", "QUIT"}));
}

// Failures before there is a session: each ends in its error and reason
// within the time-out (a hang would show as the server's own 5 s bound).
TEST_F(FakeServerTest, ConnectFailures) {
  std::string manyLines = "220-start\r\n";
  for (int i = 0; i < 5000; ++i) manyLines += " more\r\n";
  const Step hi = Greet("220 hi\r\n"), user = On("USER", "331 pw\r\n");
  struct Case { std::string what; std::vector<Step> script; uint32_t error; std::wstring says; bool whole = false; int minMs = 0; TlsMode tls = TlsMode::None; };
  // `says` is part of the last response; all of it if `whole`.
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
  const std::vector<Step> login = Login();
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

// A command that fails ends in its error and reply. A refusal leaves the
// replies in step: the next command gets its own ("550 No files found." is
// an empty directory, any other 550 a refusal). A fault in the middle of a
// command ends the session: a late reply could not be told from the next
// one's. A transfer without its end reply fails all the same, after what
// came before the end was delivered.
TEST_F(FakeServerTest, CommandFailures) {
  enum Call { kPwd, kCwd, kList, kRead, kWrite };
  const std::vector<Step> listing = {TypeA(), Epsv(), Transfer("LIST", "")};
  auto at = [&](size_t n, const std::string& command, const std::string& reply = "421 Idle timeout\r\n") {
    std::vector<Step> script(listing.begin(), listing.begin() + static_cast<std::ptrdiff_t>(n));
    script.push_back(On(command, reply));
    return script;
  };
  const struct { const char* what; std::vector<Step> script; Call call; uint32_t error; const char* says; } cases[] = {
      {"silent PWD", {Silence("PWD")}, kPwd, 12002, nullptr},
      {"421 at TYPE", at(0, "TYPE A"), kList, 12030, "421 Idle timeout"},
      {"421 at EPSV", at(1, "EPSV"), kList, 12030, "421 Idle timeout"},
      {"421 at LIST", at(2, "LIST"), kList, 12030, "421 Idle timeout"},
      {"421 at CWD", at(0, "CWD"), kCwd, 12030, "421 Idle timeout"},
      {"closed in RETR", {TypeI(), On("EPSV", "500 no\r\n"), Pasv(), Transfer("RETR big", std::string(100000, 'x'), "")}, kRead, 12030, nullptr},
      {"no files", at(2, "LIST", "550 No files found.\r\n"), kList, 18, "550 No files found."},
      {"LIST refused", at(2, "LIST", "550 Permission denied.\r\n"), kList, 12003, "550 Permission denied."},
      {"quota", {TypeI(), Epsv(), Transfer("STOR big", "", "552 Quota exceeded\r\n")}, kWrite, 12003, "552 Quota exceeded"},
  };
  SetTimeouts(300);
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    const bool alive = c.error == 18 || c.error == 12003;
    FakeServer server(LoggedIn(alive ? Plus(c.script, {On("PWD", "257 \"/next\"\r\n")}) : c.script));
    auto connection = Connect(server);
    std::wstring dir;
    if (c.call >= kRead) {
      auto file = connection->OpenFile(L"big", c.call == kRead ? GENERIC_READ : GENERIC_WRITE);
      std::string got;
      EXPECT_EQ(c.call == kRead ? ReadAll(*file, got) : WriteAll(*file), c.error);
      EXPECT_EQ(got.size(), c.call == kRead ? 100000u : 0u);
      file->Close();
    } else {
      EXPECT_FALSE(c.call == kPwd ? connection->GetCurrentDirectory(dir)
                   : c.call == kCwd ? connection->SetCurrentDirectory(L"pub") : CFtpFileFind(connection.get()).FindFile());
      EXPECT_EQ(GetLastError(), c.error);
    }
    if (c.says) {
      EXPECT_EQ(Said(), c.says);
    }
    EXPECT_EQ(connection->GetCurrentDirectory(dir), alive);
    if (alive) {
      EXPECT_EQ(dir, L"/next");
    } else {
      EXPECT_EQ(GetLastError(), 12111u);
    }
  }
}

// Active: EPRT is not tried again once refused; an empty listing ends at
// once, without a data connection; a data connection from another address
// than the server's is closed unread, and the server's own is taken.
// Passive: a refused EPSV is not tried again, and an address in PASV's reply
// that cannot be reached from here gives way to the server's. Latin-1 names
// from a server without UTF-8 round-trip; a NUL is refused like a line
// break (the server would cut the name short).
TEST_F(FakeServerTest, FallbacksAndNamesAsBytes) {
  Step port = On("PORT 127,0,0,1,", "200 ok\r\n"), stolen = Transfer("RETR f", "active bytes");
  stolen.activeFrom = "127.0.0.2";
  FakeServer active(LoggedIn({TypeA(), On("EPRT |1|127.0.0.1|", "500 what\r\n"), port, On("LIST", "226 nothing to list\r\n"), TypeI(), port, stolen}));
  auto c = Connect(active, false);
  EXPECT_FALSE(CFtpFileFind(c.get()).FindFile());
  EXPECT_EQ(GetLastError(), 18u);
  EXPECT_EQ(Said(), "226 nothing to list");
  auto file = c->OpenFile(L"f");
  std::string got;
  EXPECT_EQ(ReadAll(*file, got), 0u);
  EXPECT_EQ(got, "active bytes");
  file->Close();
  EXPECT_EQ(GetLastError(), 0u);
  Done(c, active);

  const std::string latin1 = "caf\xe9.txt", listing = "-rw-r--r-- 1 a a 5 Jan 10 2020 " + latin1 + "\r\ndrwxr-xr-x 2 a a 4096 Jan 10 2020 sub\r\n";
  FakeServer server(LoggedIn({TypeA(), On("EPSV", "502 EPSV not implemented\r\n"), Pasv("227 Entering Passive Mode (10,1,2,3,{P1},{P2}).\r\n"), Transfer("LIST", listing),
                              Pasv("227 =0,0,0,0,{P1},{P2}\r\n"), Transfer("LIST", listing), On("DELE " + latin1, "250 gone\r\n")}));
  c = Connect(server);
  const std::wstring name = std::wstring(L"caf") + wchar_t(0xDC80 + 0xE9) + L".txt";
  for (int round = 0; round < 2; ++round) {
    CFtpFileFind find(c.get());
    ASSERT_TRUE(find.FindFile()) << Said();
    EXPECT_TRUE(find.FindNextFile());
    EXPECT_EQ(find.GetFileName(), name);
    EXPECT_EQ(find.GetLength(), 5u);
    EXPECT_FALSE(find.FindNextFile());
    EXPECT_EQ(find.GetFileName(), L"sub");
    EXPECT_TRUE(find.MatchesMask(FILE_ATTRIBUTE_DIRECTORY));
  }
  EXPECT_FALSE(c->Remove(std::wstring(L"a\0b", 3)));
  EXPECT_EQ(GetLastError(), 12003u);
  EXPECT_TRUE(c->Remove(name)) << Said();
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
  struct Entry {
    std::string name, target;
    uint64_t size, time;
    bool link;
    bool operator==(const Entry&) const = default;
  };
  auto jan10 = [](int year) {
    std::tm tm{};
    tm.tm_mday = 10, tm.tm_year = year - 1900;
    return FileTime(timegm(&tm));
  };
  std::vector<Entry> want;
  std::string listing;
  for (int i = 0; i < 40000; ++i) {  // several blocks of storage
    const int year = 2020 - (i * 7) % 45;
    const std::string n = std::to_string(i);
    const bool link = i % 7 == 3;
    want.push_back({(link ? "link " : "file ") + n, link ? "to/" + n : "", uint64_t(i), jan10(year), link});
    listing += (link ? "lrwxrwxrwx 1 a a " : "-rw-r--r-- 1 a a ") + n + " Jan 10  " + std::to_string(year) + " " + want.back().name + (link ? " -> to/" + n : "") + "\r\n";
    if (i == 1500) {  // near the longest line a listing may hold
      want.push_back({std::string(60000, 'n'), "", 7, jan10(2020), false});
      listing += "-rw-r--r-- 1 a a 7 Jan 10  2020 " + want.back().name + "\r\n";
    }
  }
  want.push_back({"last", "", 4096, jan10(2020), false});
  listing += "drwxr-xr-x 2 a a 4096 Jan 10  2020 last";
  for (int pauseMs : {0, 60}) {
    SCOPED_TRACE(pauseMs);
    FakeServer server(LoggedIn({TypeA(), Epsv(), Paused(Transfer("LIST", listing), pauseMs)}));
    auto c = Connect(server);
    CFtpFileFind find(c.get());
    ASSERT_TRUE(find.FindFile()) << Said();
    bool more = true;
    for (size_t at = 0, wrong = 0; at < want.size() && wrong < 5; ++at) {  // one report for a run of wrong entries
      EXPECT_TRUE(more) << "ended before entry " << at;
      more = find.FindNextFile();
      Entry got{find.GetEntry().name, find.GetEntry().linkTarget, find.GetLength(), 0, find.MatchesMask(FILE_ATTRIBUTE_REPARSE_POINT)};
      EXPECT_TRUE(find.GetLastWriteTime(got.time));
      if (got != want[at] && ++wrong)
        ADD_FAILURE() << "entry " << at << ": " << got.name.substr(0, 20) << " -> " << got.target << ", " << got.size << " bytes, time " << got.time;
    }
    EXPECT_FALSE(more);
    EXPECT_TRUE(find.IsDirectory());
    find.Close();
    Done(c, server);
  }
}

// A listing beyond its bounds, or one that stops flowing, ends in 12030 or
// 12002 with the reason, holding nothing; times a file time cannot hold are
// no time.
TEST_F(FakeServerTest, HostileListingsEndInClearErrors) {
  std::string lines;
  for (int i = 0; i < 3000; ++i) lines += "+i" + std::to_string(i) + ",r,s1,\tf" + std::to_string(i) + "\r\n";
  const struct { const char* what; std::string data; ListingLimits limits; int pauseMs; uint32_t error; const char* says; } cases[] = {
      {"no line feed", std::string(200000, 'a'), {}, 0, 12030, "a listing line is longer than 65536 bytes"},
      {"too many entries", lines, {.entries = 1000}, 0, 12030, "the listing holds more than 1000 entries"},
      {"too many bytes", lines, {.totalBytes = 10000}, 0, 12030, "the listing is longer than 10000 bytes"},
      {"silent data connection", lines, {}, 2500, 12002, "receive from 127.0.0.1"},
  };
  SetTimeouts(500);
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    CFtpFileFind::SetLimitsForTesting(c.limits);
    FakeServer server(LoggedIn({TypeA(), Epsv(), Paused(Transfer("LIST", c.data), c.pauseMs)}));
    auto connection = Connect(server);
    CFtpFileFind find(connection.get());
    EXPECT_FALSE(find.FindFile());
    EXPECT_EQ(GetLastError(), c.error);
    EXPECT_NE(Said().find(c.says), std::string::npos) << Said();
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

// MLSD's cdir and pdir and LIST's dots are left out.
TEST_F(FakeServerTest, DotsAreLeftOut) {
  const std::string listing =
      "drwxr-xr-x 2 a a 4096 Jan 10  2020 .\r\ndrwxr-xr-x 9 a a 4096 Jan 10  2020 ..\r\n"
      "type=cdir;modify=20200110000000; /pub\r\nType=PDir;modify=20200110000000; ..\r\n"
      "type=file;size=3;modify=20200110101112; only.txt\r\n";
  FakeServer server({Greet("220 hi\r\n"), On("USER", "331 pw\r\n"), On("PASS", "230 ok\r\n"), On("FEAT", "211-x\r\n MLST type*;size*;modify*;\r\n211 end\r\n"),
                     TypeA(), Epsv(), Transfer("MLSD", listing)});
  auto c = Connect(server);
  CFtpFileFind find(c.get());
  ASSERT_TRUE(find.FindFile());
  EXPECT_FALSE(find.FindNextFile());  // one entry only
  EXPECT_EQ(find.GetFileName(), L"only.txt");
  uint64_t fileTime = 0;
  ASSERT_TRUE(find.GetLastWriteTime(fileTime));
  EXPECT_EQ(fileTime, FileTime(1578651072));  // 2020-01-10 10:11:12 UTC
  find.Close();
  Done(c, server);
}

using Notices = std::vector<std::pair<uintptr_t, uint32_t>>;
struct RecordingSession : CInternetSession {
  Notices notices;
  std::vector<std::wstring> infos;
  Strings trace;
  void OnStatusCallback(uintptr_t context, uint32_t status, const void* info, uint32_t length) override {
    notices.emplace_back(context, status);
    if (info) infos.emplace_back(static_cast<const wchar_t*>(info), length / sizeof(wchar_t) - 1);
    EXPECT_EQ(length % sizeof(wchar_t), 0u);
  }
  void OnProtocolTrace(bool sent, const std::string& line) override { trace.push_back((sent ? "> " : "< ") + line); }
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
  size_t seen = 0;
  auto since = [&](uintptr_t context) {  // the statuses since the last look, which all have `context`
    std::set<uintptr_t> contexts;
    std::set<uint32_t> statuses;
    for (; seen < session.notices.size(); ++seen) contexts.insert(session.notices[seen].first), statuses.insert(session.notices[seen].second);
    EXPECT_EQ(contexts, std::set<uintptr_t>{context});
    return statuses;
  };
  auto has = [](const std::set<uint32_t>& statuses, const std::set<uint32_t>& wanted) {
    return std::includes(statuses.begin(), statuses.end(), wanted.begin(), wanted.end());
  };
  ASSERT_GE(session.notices.size(), 4u);
  EXPECT_EQ(Notices(session.notices.begin(), session.notices.begin() + 4), (Notices{{1, 10}, {1, 11}, {1, 20}, {1, 21}}));
  EXPECT_EQ(session.infos, (std::vector<std::wstring>{L"127.0.0.1", L"127.0.0.1"}));
  std::set<uint32_t> ofConnection = since(1);
  EXPECT_TRUE(CFtpFileFind(c.get(), 7).FindFile());
  EXPECT_TRUE(has(since(7), {60, 70}));  // a handle's creation and closing
  auto file = c->OpenFile(L"f", GENERIC_READ, FTP_TRANSFER_TYPE_BINARY, 9);
  std::string got;
  EXPECT_EQ(ReadAll(*file, got), 0u);
  file.reset();
  EXPECT_TRUE(has(since(9), {60, 70}));
  std::wstring dir;
  EXPECT_TRUE(c->GetCurrentDirectory(dir));
  ofConnection.merge(since(1));
  c->Close();
  ofConnection.merge(since(1));
  EXPECT_TRUE(has(ofConnection, {30, 31, 40, 41, 50, 51, 60, 70}));
  EXPECT_EQ(session.notices.back().second, 51u);
  EXPECT_NE(std::find(session.trace.begin(), session.trace.end(), "> PASS ****"), session.trace.end());
  for (const auto& line : session.trace) EXPECT_EQ(line.find("secret"), std::string::npos) << line;
  Done(c, server);

  FakeServer quiet(Login());
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

  FakeServer second(Login());
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
    FakeServer server(Plus(TlsLogin("234 go ahead\r\n230 injected, no password needed\r\n"), {On("PWD", "257 \"/inside\" is current\r\n"), TypeI(), Epsv(), retr}));
    auto c = Connect(server, true, TlsMode::Explicit);
    std::wstring dir;
    ASSERT_TRUE(c->GetCurrentDirectory(dir)) << Said();
    EXPECT_EQ(dir, L"/inside");
    auto file = c->OpenFile(L"f");
    std::string got;
    uint32_t error = ReadAll(*file, got, body.size());
    file->Close();
    EXPECT_EQ(got, body);
    EXPECT_EQ(error ? error : GetLastError(), closeNotify ? 0u : kErrConnectionAborted) << Said();
    EXPECT_EQ(Said().find("close_notify") != std::string::npos, !closeNotify) << Said();
    Done(c, server);
    EXPECT_EQ(server.Received().at(2), "PASS secret");
  }
}

}  // namespace
}  // namespace ftpzn::inet
