// The engine's pure pieces: reply parsing, URL parsing, wire names.
#include <gtest/gtest.h>

#include <cstring>

#include "inet/ftpcontrol.h"
#include "inet/inet.h"
#include "inet/reply.h"
#include "inet/wirename.h"
#include "memory_stream.h"

namespace ftpzn::inet {
namespace {

TEST(PasvReply, TolerantScan) {
  struct Case {
    const char* text;
    bool ok;
    uint8_t a[4];
    uint16_t port;
  } cases[] = {
      {"227 Entering Passive Mode (192,168,1,2,19,137)", true, {192, 168, 1, 2}, 19 * 256 + 137},
      {"227 Entering Passive Mode 10,0,0,1,4,1", true, {10, 0, 0, 1}, 1025},
      {"227 =127,0,0,1,255,255.", true, {127, 0, 0, 1}, 65535},
      {"227 ok (1,2,3) then (127,0,0,1,0,21)", true, {127, 0, 0, 1}, 21},
      {"227 (256,0,0,1,1,1)", false, {}, 0},
      {"227 (1,2,3,4,5)", false, {}, 0},
      {"227 no numbers", false, {}, 0},
      {"227 (1,2,3,4,5,1000)", false, {}, 0},
  };
  for (const auto& c : cases) {
    uint8_t a[4] = {};
    uint16_t port = 0;
    EXPECT_EQ(ParsePasvReply(c.text, a, port), c.ok) << c.text;
    if (c.ok) {
      EXPECT_EQ(std::memcmp(a, c.a, 4), 0) << c.text;
      EXPECT_EQ(port, c.port) << c.text;
    }
  }
}

TEST(EpsvReply, Forms) {
  uint16_t port = 0;
  EXPECT_TRUE(ParseEpsvReply("229 Entering Extended Passive Mode (|||6446|)", port));
  EXPECT_EQ(port, 6446);
  EXPECT_TRUE(ParseEpsvReply("229 ok (!!!21!)", port));
  EXPECT_EQ(port, 21);
  EXPECT_FALSE(ParseEpsvReply("229 (|||0|)", port));
  EXPECT_FALSE(ParseEpsvReply("229 (|||70000|)", port));
  EXPECT_FALSE(ParseEpsvReply("229 (||6446|)", port));
  EXPECT_FALSE(ParseEpsvReply("229 nothing", port));
}

TEST(PasvAddress, UnroutableIsReplacedByThePeer) {
  auto peer = [](const char* ip) {
    SocketAddress a = Resolve(ip, 21).front();
    return a;
  };
  uint8_t zero[4] = {0, 0, 0, 0}, inside[4] = {10, 1, 2, 3}, loop[4] = {127, 0, 0, 1},
          pub[4] = {93, 184, 216, 34};
  EXPECT_TRUE(IsUnroutableFor(zero, peer("127.0.0.1")));
  EXPECT_TRUE(IsUnroutableFor(inside, peer("127.0.0.1")));
  EXPECT_TRUE(IsUnroutableFor(inside, peer("93.184.216.34")));
  EXPECT_TRUE(IsUnroutableFor(loop, peer("93.184.216.34")));
  EXPECT_FALSE(IsUnroutableFor(loop, peer("127.0.0.1")));
  EXPECT_TRUE(IsUnroutableFor(pub, peer("127.0.0.1")));     // a local server stays local
  EXPECT_FALSE(IsUnroutableFor(inside, peer("10.9.9.9")));  // same private network
  EXPECT_FALSE(IsUnroutableFor(pub, peer("93.184.216.34")));
  EXPECT_TRUE(IsUnroutableFor(pub, peer("::1")));  // PASS over IPv6 cannot be right
}

TEST(Url, Parse) {
  struct Case {
    const wchar_t* url;
    bool ok;
    uint32_t service;
    const wchar_t *server, *object;
    uint16_t port;
    const wchar_t *user, *password;
  } cases[] = {
      {L"ftp://host", true, AFX_INET_SERVICE_FTP, L"host", L"/", 21, L"", L""},
      {L"ftp://u:p@host:2121/pub/x", true, AFX_INET_SERVICE_FTP, L"host", L"/pub/x", 2121, L"u", L"p"},
      {L"FTP://u@host/", true, AFX_INET_SERVICE_FTP, L"host", L"/", 21, L"u", L""},
      {L"http://example.host/a", true, AFX_INET_SERVICE_HTTP, L"example.host", L"/a", 80, L"", L""},
      {L"https://h", true, AFX_INET_SERVICE_HTTPS, L"h", L"/", 443, L"", L""},
      {L"file://x/y", true, AFX_INET_SERVICE_FILE, L"x", L"/y", 0, L"", L""},
      {L"gopher://h", true, AFX_INET_SERVICE_UNK, L"h", L"/", 0, L"", L""},
      {L"ftp://[::1]:21000/d", true, AFX_INET_SERVICE_FTP, L"::1", L"/d", 21000, L"", L""},
      {L"ftp://a:b@c@host", true, AFX_INET_SERVICE_FTP, L"host", L"/", 21, L"a", L"b@c"},
      {L"ftp://", true, AFX_INET_SERVICE_FTP, L"", L"/", 21, L"", L""},
      {L"example.host", false, 0, L"", L"", 0, L"", L""},
      {L"ftp://host:99999", false, 0, L"", L"", 0, L"", L""},
      {L"ftp://host:x1", false, 0, L"", L"", 0, L"", L""},
  };
  for (const auto& c : cases) {
    uint32_t service = 0;
    std::wstring server, object, user, password;
    uint16_t port = 0;
    bool ok = ParseURLEx(c.url, service, server, object, port, user, password);
    EXPECT_EQ(ok, c.ok) << WideToWire(c.url);
    if (!ok || !c.ok) continue;
    EXPECT_EQ(service, c.service) << WideToWire(c.url);
    EXPECT_EQ(server, c.server) << WideToWire(c.url);
    EXPECT_EQ(object, c.object) << WideToWire(c.url);
    EXPECT_EQ(port, c.port) << WideToWire(c.url);
    EXPECT_EQ(user, c.user) << WideToWire(c.url);
    EXPECT_EQ(password, c.password) << WideToWire(c.url);
  }
  EXPECT_EQ(DecodeUrlComponent(L"a%20b%2Fc%zz%4"), L"a b/c%zz%4");
  EXPECT_EQ(DecodeUrlComponent(L"%C3%A9%FF"), std::wstring(L"\u00e9") + wchar_t(0xDC80 + 0xFF));
}

TEST(WireNames, EveryByteSequenceRoundTrips) {
  const std::string cases[] = {
      "plain",        "\xc3\xa9t\xc3\xa9", "\xe6\x97\xa5\xf0\x9f\x98\x80",
      "caf\xe9",      "\xff\xfe",          "\xc3",  // cut sequence
      "\xe0\x80\x80",                               // overlong
      "\xed\xa0\x80",                               // surrogate
  };
  for (const auto& bytes : cases) EXPECT_EQ(WideToWire(WireToWide(bytes)), bytes);
  EXPECT_EQ(WireToWide("\xc3\xa9"), L"\u00e9");
  EXPECT_EQ(WireToWide("a\x80"), std::wstring(L"a") + wchar_t(0xDD00));
  // Every single byte value, and random runs of them.
  std::string all;
  for (int i = 0; i < 256; ++i) all += static_cast<char>(i);
  EXPECT_EQ(WideToWire(WireToWide(all)), all);
  unsigned seed = 1;
  for (int round = 0; round < 200; ++round) {
    std::string s;
    for (int i = 0; i < 40; ++i) s += static_cast<char>((seed = seed * 1103515245 + 12345) >> 16);
    ASSERT_EQ(WideToWire(WireToWide(s)), s);
  }
}

TEST(ReplyReader, SplitAnywhereGivesTheSameReplies) {
  const std::string text =
      "220-first\r\n220-220 not the end\r\n330 neither\r\n220 end\r\n"
      "331 single\r\n"
      "211-x\n211\n"  // bare LF and a code-only last line
      "550 last\r\n";
  for (size_t piece = 1; piece <= text.size(); ++piece) {
    MemoryStream stream(text, piece);
    ReplyReader reader(stream);
    Deadline d = Deadline::After(1000);
    FtpReply a = reader.Read(d);
    ASSERT_EQ(a.code, 220) << piece;
    ASSERT_EQ(a.lines.size(), 4u) << piece;
    EXPECT_EQ(a.Text(), "220-first\r\n220-220 not the end\r\n330 neither\r\n220 end");
    EXPECT_EQ(reader.Read(d).Text(), "331 single");
    FtpReply c = reader.Read(d);
    EXPECT_EQ(c.code, 211);
    EXPECT_EQ(c.lines.size(), 2u);
    EXPECT_EQ(reader.Read(d).code, 550);
    try {
      reader.Read(d);
      ADD_FAILURE() << "read past the end";
    } catch (const NetError& e) {
      EXPECT_EQ(e.code, kErrConnectionAborted);
    }
  }
}

TEST(ReplyReader, DamageIsAnErrorNeverACrash) {
  // Random bytes, CR, LF, NUL and digits: the reader either returns
  // replies or throws, and always stops.
  unsigned seed = 7;
  const char alphabet[] = "0123456789 -\r\n\0abc";
  for (int round = 0; round < 300; ++round) {
    std::string text = "220-ok\r\n";
    for (int i = 0; i < 200; ++i)
      text += alphabet[(seed = seed * 1103515245 + 12345) % (sizeof alphabet - 1)];
    MemoryStream stream(text, 1 + round % 17);
    ReplyReader reader(stream);
    int replies = 0;
    try {
      for (; replies < 1000; ++replies) reader.Read(Deadline::After(1000));
    } catch (const NetError& e) {
      EXPECT_EQ(e.code, kErrConnectionAborted);
    }
    EXPECT_LT(replies, 1000);
  }
}

}  // namespace
}  // namespace ftpzn::inet
