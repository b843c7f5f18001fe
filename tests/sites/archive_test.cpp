// The archive's byte forms, written by hand from the format and checked in
// both directions.
#include "sites/archive.h"

#include <gtest/gtest.h>

#include "site_bytes.h"
#include "sites/ftpsite.h"

namespace ftpzn::test {
namespace {

Bytes Write(const wxString& text) {
  MemorySink sink;
  Archive ar(sink);
  ar.WriteString(text);
  ar.Flush();
  return sink.Bytes();
}

wxString Read(const Bytes& bytes) {
  MemorySource source(bytes);
  Archive ar(source);
  wxString text = ar.ReadString();
  EXPECT_TRUE(ar.IsBufferEmpty()) << "the string left bytes unread";
  return text;
}

std::wstring Repeat(wchar_t c, size_t n) { return std::wstring(n, c); }

Bytes Utf16Of(wchar_t c, size_t n) {
  Bytes out;
  for (size_t i = 0; i < n; ++i) {
    out.push_back(static_cast<uint8_t>(c));
    out.push_back(static_cast<uint8_t>(c >> 8));
  }
  return out;
}

TEST(ArchiveString, WideFormsBothWays) {
  struct Case {
    const char* name;
    wxString text;
    Bytes bytes;
  };
  const Case cases[] = {
      {"empty", wxString(), Raw({0xFF, 0xFE, 0xFF, 0x00})},
      {"magic", "TOLMAVERN_DATA",
       Raw({0xFF, 0xFE, 0xFF, 0x0E, 'T', 0, 'O', 0, 'L', 0, 'M', 0, 'A', 0, 'V', 0,
            'E',  0,    'R',  0,    'N', 0, '_', 0, 'D', 0, 'A', 0, 'T', 0, 'A', 0})},
      {"non-ASCII", wxString(L"\u00e9\u20ac"), Raw({0xFF, 0xFE, 0xFF, 0x02, 0xE9, 0x00, 0xAC, 0x20})},
      {"outside the basic plane", wxString(L"\U0001F600"),
       Raw({0xFF, 0xFE, 0xFF, 0x02, 0x3D, 0xD8, 0x00, 0xDE})},
      {"lone surrogate", wxString(std::wstring(1, static_cast<wchar_t>(0xDC00))),
       Raw({0xFF, 0xFE, 0xFF, 0x01, 0x00, 0xDC})},
      {"254 characters: one length byte", Repeat(L'x', 254),
       Raw({0xFF, 0xFE, 0xFF, 0xFE}) + Utf16Of(L'x', 254)},
      {"255 characters: 0xFF and a word", Repeat(L'y', 255),
       Raw({0xFF, 0xFE, 0xFF, 0xFF, 0xFF, 0x00}) + Utf16Of(L'y', 255)},
      {"0xFFFD characters: the last word length", Repeat(L'z', 0xFFFD),
       Raw({0xFF, 0xFE, 0xFF, 0xFF, 0xFD, 0xFF}) + Utf16Of(L'z', 0xFFFD)},
      {"0xFFFE characters: 0xFF 0xFFFF and a dword", Repeat(L'w', 0xFFFE),
       Raw({0xFF, 0xFE, 0xFF, 0xFF, 0xFF, 0xFF, 0xFE, 0xFF, 0x00, 0x00}) + Utf16Of(L'w', 0xFFFE)},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(Write(c.text), c.bytes);
    EXPECT_EQ(Read(c.bytes), c.text);
  }
}

TEST(ArchiveString, ReadsEveryLengthEscape) {
  struct Case {
    const char* name;
    Bytes bytes;
    wxString text;
  };
  const Case cases[] = {
      {"wide, 64-bit length",
       Raw({0xFF, 0xFE, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF,  //
            3,    0,    0,    0,    0,    0,    0,    0,    'a',  0,    'b', 0, 'c', 0}),
       "abc"},
      {"wide, 32-bit length for a short text",
       Raw({0xFF, 0xFE, 0xFF, 0xFF, 0xFF, 0xFF, 2, 0, 0, 0, 'h', 0, 'i', 0}), "hi"},
      {"wide, 0xFFFE after the marker also escapes to a dword",
       Raw({0xFF, 0xFE, 0xFF, 0xFF, 0xFE, 0xFF, 2, 0, 0, 0, 'o', 0, 'k', 0}), "ok"},
      {"narrow, one length byte", Raw({3, 'a', 'b', 'c'}), "abc"},
      {"narrow, empty", Raw({0}), ""},
      {"narrow, 0xFF and a word", Raw({0xFF, 2, 0, 'o', 'k'}), "ok"},
      {"narrow, 0xFF 0xFFFF and a dword", Raw({0xFF, 0xFF, 0xFF, 1, 0, 0, 0, '!'}), "!"},
      {"narrow, 64-bit length",
       Raw({0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 2, 0, 0, 0, 0, 0, 0, 0, 'n', 'o'}), "no"},
      // Windows-1252: e-acute, the euro sign, curly quotes, and 0x81, which
      // that code page leaves undefined and the platform passed through.
      {"narrow Windows-1252", Raw({6, 'c', 0xE9, 0x80, 0x93, 0x94, 0x81}),
       wxString(L"c\u00e9\u20ac\u201c\u201d\u0081")},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(Read(c.bytes), c.text);
  }
  // A narrow string from another producer is written back wide.
  EXPECT_EQ(Write(Read(Raw({2, 0xE9, 'x'}))), Raw({0xFF, 0xFE, 0xFF, 0x02, 0xE9, 0x00, 'x', 0x00}));
}

TEST(ArchiveString, ShortDataIsEndOfFile) {
  const Bytes cases[] = {
      Raw({}),
      Raw({0xFF, 0xFE}),
      Raw({0xFF, 0xFE, 0xFF, 0x03, 'a', 0, 'b', 0, 'c'}),
      Raw({5, 'a', 'b'}),
      // A 64-bit length no file can hold must fail, not allocate.
      Raw({0xFF, 0xFE, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF,  //
           0xF0, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x7F, 'a',  0}),
      Raw({0xFF, 0xFE, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF,  //
           0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}),
  };
  for (const Bytes& bytes : cases) {
    MemorySource source(bytes);
    Archive ar(source);
    EXPECT_THROW(ar.ReadString(), ArchiveException) << bytes.size() << " bytes";
  }
}

CFtpSite SampleSite() {
  CFtpSite site;
  site.m_strHost = "h";
  site.m_nRetries = 2;
  site.m_strDescription = "d";
  site.m_strAccount = "a";
  site.m_strInitialPath = "/i";
  site.m_strLogin = "l";
  site.m_strPassword = "p";
  site.m_strProfileName = "n";
  site.m_nPort = 2121;
  site.m_nRetryDelay = 7;
  site.m_nReserved = -2;
  site.m_bPassive = 1;
  return site;
}

// The wire order is not the declared order: host, retries, description,
// account, login, profile name, password, port, initial path, retry delay,
// reserved, passive.
Bytes SampleRecord() {
  return WideAscii("h") + Int32(2) + WideAscii("d") + WideAscii("a") + WideAscii("l") + WideAscii("n") +
         WideAscii("p") + Int32(2121) + WideAscii("/i") + Int32(7) + Int32(-2) + Int32(1);
}

TEST(SiteRecord, SerializesInWireOrderBothWays) {
  MemorySink sink;
  Archive out(sink);
  CFtpSite site = SampleSite();
  site.Serialize(out);
  out.Flush();
  EXPECT_EQ(sink.Bytes(), SampleRecord());

  MemorySource source(SampleRecord());
  Archive in(source);
  CFtpSite read;
  read.Serialize(in);
  EXPECT_EQ(read, SampleSite());
  EXPECT_TRUE(in.IsBufferEmpty());
}

TEST(SiteRecord, RoundTripKeepsAllTwelveMembers) {
  CFtpSite site;
  site.m_strHost = "ftp.example.net";
  site.m_nRetries = -5;
  site.m_strDescription = wxString(L"line one\r\nline two \u00fc\U0001F600");
  site.m_strAccount = "acct";
  site.m_strInitialPath = "/home/x";
  site.m_strLogin = "Anonymous";
  site.m_strPassword = "me@example.org";
  site.m_strProfileName = wxString(std::wstring(300, L'N'));
  site.m_nPort = 65535;
  site.m_nRetryDelay = INT32_MAX;
  site.m_nReserved = INT32_MIN;
  site.m_bPassive = 1;

  MemorySink sink;
  Archive out(sink);
  site.Serialize(out);
  out.Flush();
  MemorySource source(sink.Bytes());
  Archive in(source);
  CFtpSite read;
  read.Serialize(in);
  EXPECT_EQ(read, site);
}

}  // namespace
}  // namespace ftpzn::test
