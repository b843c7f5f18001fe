// The engine's pure pieces: passive replies, URLs, wire names.
#include <gtest/gtest.h>

#include <cstring>

#include "inet/ftpcontrol.h"
#include "inet/inet.h"
#include "inet/wirename.h"

namespace ftpzn::inet {
namespace {

// clang-format off
TEST(PassiveReplies, PasvEpsvAndUnroutableAddresses) {
  const struct { const char* text; uint16_t port; uint8_t a[4] = {}; } replies[] = {  // port 0: refused
      {"227 Entering Passive Mode (192,168,1,2,19,137)", 19 * 256 + 137, {192, 168, 1, 2}},
      {"227 Entering Passive Mode 10,0,0,1,4,1", 1025, {10, 0, 0, 1}},
      {"227 =127,0,0,1,255,255.", 65535, {127, 0, 0, 1}},
      {"227 ok (1,2,3) then (127,0,0,1,0,21)", 21, {127, 0, 0, 1}},
      {"227 (256,0,0,1,1,1)", 0}, {"227 (1,2,3,4,5)", 0}, {"227 no numbers", 0}, {"227 (1,2,3,4,5,1000)", 0},
      {"229 Entering Extended Passive Mode (|||6446|)", 6446}, {"229 ok (!!!21!)", 21}, {"229 (|||0|)", 0},
      {"229 (|||70000|)", 0}, {"229 (||6446|)", 0}, {"229 nothing", 0},
  };
  for (const auto& c : replies) {
    SCOPED_TRACE(c.text);
    uint8_t a[4] = {};
    uint16_t port = 0;
    ASSERT_EQ(c.text[2] == '7' ? ParsePasvReply(c.text, a, port) : ParseEpsvReply(c.text, port), c.port != 0);
    if (c.port) {
      EXPECT_EQ(port, c.port);
      EXPECT_EQ(std::memcmp(a, c.a, 4), 0);
    }
  }
  // A local server stays local; the same private network is routable; PASV
  // over IPv6 cannot be right.
  const struct { uint8_t a[4]; const char* peer; bool unroutable; } addresses[] = {
      {{0, 0, 0, 0}, "127.0.0.1", true},     {{10, 1, 2, 3}, "127.0.0.1", true},
      {{10, 1, 2, 3}, "93.184.216.34", true}, {{127, 0, 0, 1}, "93.184.216.34", true},
      {{127, 0, 0, 1}, "127.0.0.1", false},   {{93, 184, 216, 34}, "127.0.0.1", true},
      {{10, 1, 2, 3}, "10.9.9.9", false},     {{93, 184, 216, 34}, "93.184.216.34", false},
      {{93, 184, 216, 34}, "::1", true},
  };
  for (const auto& c : addresses)
    EXPECT_EQ(IsUnroutableFor(c.a, Resolve(c.peer, 21).front()), c.unroutable) << int(c.a[0]) << " from " << c.peer;
}

TEST(Url, Parse) {
  const struct { const wchar_t* url; bool ok; uint32_t service; const wchar_t *server, *object; uint16_t port; const wchar_t *user, *password; } cases[] = {
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
    SCOPED_TRACE(WideToWire(c.url));
    uint32_t service = 0;
    std::wstring server, object, user, password;
    uint16_t port = 0;
    ASSERT_EQ(ParseURLEx(c.url, service, server, object, port, user, password), c.ok);
    if (c.ok) {
      EXPECT_EQ(std::tie(service, server, object, port, user, password), std::tie(c.service, c.server, c.object, c.port, c.user, c.password));
    }
  }
  EXPECT_EQ(DecodeUrlComponent(L"a%20b%2Fc%zz%4"), L"a b/c%zz%4");
  EXPECT_EQ(DecodeUrlComponent(L"%C3%A9%FF"), std::wstring(L"\u00e9") + wchar_t(0xDC80 + 0xFF));
}
// clang-format on

// Cut sequences, overlongs, surrogates, every single byte and random runs.
TEST(WireNames, EveryByteSequenceRoundTrips) {
  std::vector<std::string> cases = {"plain", "\xc3\xa9t\xc3\xa9", "\xe6\x97\xa5\xf0\x9f\x98\x80", "caf\xe9",
                                    "\xff\xfe", "\xc3", "\xe0\x80\x80", "\xed\xa0\x80", std::string(256, '\0')};
  for (int i = 0; i < 256; ++i) cases.back()[i] = static_cast<char>(i);
  for (unsigned round = 0, seed = 1; round < 200; ++round) {
    std::string s;
    for (int i = 0; i < 40; ++i) s += static_cast<char>((seed = seed * 1103515245 + 12345) >> 16);
    cases.push_back(s);
  }
  for (const auto& bytes : cases) ASSERT_EQ(WideToWire(WireToWide(bytes)), bytes);
  EXPECT_EQ(WireToWide("\xc3\xa9"), L"\u00e9");
  EXPECT_EQ(WireToWide("a\x80"), std::wstring(L"a") + wchar_t(0xDD00));
}

}  // namespace
}  // namespace ftpzn::inet
