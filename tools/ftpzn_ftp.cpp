// ftpzn-ftp: a command-line FTP client on the engine, for scripting,
// diagnosis and benchmarks.
#include <fcntl.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "inet/inet.h"
#include "inet/listing.h"
#include "inet/netio.h"
#include "inet/wirename.h"

using namespace ftpzn::inet;

namespace {

constexpr const char* kUsage =
    "usage: ftpzn-ftp [--active|--passive] [--timeout SECONDS] [--verbose]\n"
    "                 [--insecure | --fingerprint SHA256:HEX] COMMAND ARGS\n"
    "       ftpzn-ftp --help | --version\n"
    "  ls URL                 list a directory: type, size, time (UTC), name; control\n"
    "                         characters in names are escaped (\\t, \\x1b, \\\\ ...)\n"
    "  get URL LOCALFILE      download (what arrived before a failure is kept)\n"
    "  put LOCALFILE URL      upload (a URL ending in / takes the local name)\n"
    "  mkdir URL | rmdir URL | rm URL\n"
    "  pwd URL                print the server's directory after login (and cd to the URL's path)\n"
    "  parse-list             parse LIST or MLSD lines from standard input\n"
    "URL: ftp://[user[:password]@]host[:port]/path (percent-encoding decoded);\n"
    "     ftpes://... for explicit TLS (AUTH TLS, port 21), ftps://... for implicit\n"
    "     TLS (port 990). The server's certificate must be trusted by the system and\n"
    "     name the host; --fingerprint accepts the one certificate with that SHA-256\n"
    "     fingerprint, --insecure accepts any.\n"
    "Exit status: 0 done, 1 failed (the server's refusal or the error on standard error),\n"
    "2 usage error.\n";

#ifndef FTPZN_VERSION
#define FTPZN_VERSION "unknown"
#endif

constexpr uint32_t kBlock = 4096;  // what the transfer workers move per call

struct Target {
  std::wstring host, user, password, path;  // path relative to the login directory
  uint16_t port = 21;
  TlsMode tls = TlsMode::None;
};

struct Failure {
  std::string text;
};

// A command line the tool cannot run: one line on standard error, exit 2.
struct UsageError {
  std::string text;
};

// Hides whatever could be a password in a URL the user typed: from the
// first ':' of the part after "://" to the last '@'. A malformed URL is
// where this matters (it is echoed whole), and there a password may hold
// '/' or '@' unencoded, so the span is taken wide rather than parsed.
std::string MaskPassword(const std::string& url) {
  size_t start = url.find("://");
  if (start == std::string::npos) return url;
  start += 3;
  size_t at = url.rfind('@');
  if (at == std::string::npos || at < start) return url;
  size_t colon = url.find(':', start);
  if (colon == std::string::npos || colon > at) return url;
  return url.substr(0, colon + 1) + "***" + url.substr(at);
}

// Server-supplied text as the terminal should see it: control characters
// (C0, DEL and C1 in their UTF-8 form) and the backslash as C escapes, so a
// tab cannot break a column and an escape sequence cannot reach the terminal.
// Returns the end of what was written at `out`, which needs room for four
// times `text`.
char* PutEscaped(char* out, std::string_view text) {
  static const char kHex[] = "0123456789abcdef";
  const auto hexByte = [&out](unsigned char c) {
    *out++ = '\\';
    *out++ = 'x';
    *out++ = kHex[c >> 4];
    *out++ = kHex[c & 15];
  };
  for (size_t i = 0; i < text.size(); ++i) {
    const auto c = static_cast<unsigned char>(text[i]);
    if (c >= 0x20 && c != 0x7f && c != '\\' && c != 0xc2) {
      *out++ = static_cast<char>(c);
      continue;
    }
    if (c == 0xc2) {  // U+0080 to U+009F are C2 80 to C2 9F
      const auto next = i + 1 < text.size() ? static_cast<unsigned char>(text[i + 1]) : 0;
      if (next >= 0x80 && next <= 0x9f) {
        hexByte(c);
        hexByte(next);
        ++i;
      } else {
        *out++ = static_cast<char>(c);
      }
      continue;
    }
    const char* named = c == '\t'   ? "\\t"
                        : c == '\n' ? "\\n"
                        : c == '\r' ? "\\r"
                        : c == '\\' ? "\\\\"
                                    : nullptr;
    if (named) {
      *out++ = named[0];
      *out++ = named[1];
    } else {
      hexByte(c);
    }
  }
  return out;
}

std::string Escaped(std::string_view text) {
  std::string out(text.size() * 4, '\0');
  out.resize(static_cast<size_t>(PutEscaped(out.data(), text) - out.data()));
  return out;
}

bool NeedsEscape(std::string_view text) {
  for (char ch : text) {
    const auto c = static_cast<unsigned char>(ch);
    if (c < 0x20 || c == 0x7f || c == '\\' || c == 0xc2) return true;
  }
  return false;
}

// The dialogue on standard error with --verbose, the server's lines
// escaped like every other text it sends.
class ToolSession : public CInternetSession {
 public:
  bool verbose = false;
  bool insecure = false;
  void OnProtocolTrace(bool sent, const std::string& line) override {
    if (verbose) std::fprintf(stderr, "%s %s\n", sent ? ">" : "<", Escaped(line).c_str());
  }
  bool OnUntrustedCertificate(const std::wstring&, uint16_t, const TlsPeerInfo& peer) override {
    if (verbose && insecure) std::fprintf(stderr, "* accepted anyway (--insecure): %s\n", peer.problemText.c_str());
    return insecure;
  }
};

Target ParseTarget(const std::string& url) {
  uint32_t service = 0;
  std::wstring server, object, user, password;
  uint16_t port = 0;
  if (!ParseURLEx(WireToWide(url), service, server, object, port, user, password) ||
      (service != AFX_INET_SERVICE_FTP && service != INET_SERVICE_FTPES && service != INET_SERVICE_FTPS) ||
      server.empty()) {
    throw Failure{"not an FTP URL: " + MaskPassword(url)};
  }
  Target t;
  t.tls = TlsModeForService(service);
  t.host = server;
  t.port = port;
  t.user = DecodeUrlComponent(user);
  t.password = DecodeUrlComponent(password);
  // "ftp://host/dir/file" names dir/file below the login directory.
  std::wstring path = DecodeUrlComponent(object);
  t.path = path.empty() || path[0] != L'/' ? path : path.substr(1);
  return t;
}

// The server's reply as the headline when the server refused (the engine's
// text for that, "An internal error has occurred.", says nothing), else the
// engine's error with what the system said.
[[noreturn]] void EngineFailure(uint32_t code) {
  std::wstring text;
  CInternetException(code).GetErrorMessage(text);
  std::string engine = "error " + std::to_string(code) + ": " + WideToWire(text);
  std::string reply = WideToWire(InternetGetLastResponseInfo());
  while (!reply.empty() && (reply.back() == '\n' || reply.back() == '\r')) reply.pop_back();
  // Each line escaped on its own: the reply's line breaks stay line breaks.
  std::string shown;
  for (size_t at = 0; at <= reply.size();) {
    size_t lf = std::min(reply.find('\n', at), reply.size());
    size_t end = lf > at && reply[lf - 1] == '\r' ? lf - 1 : lf;
    shown += (at ? "\n" : "") + Escaped(std::string_view(reply).substr(at, end - at));
    at = lf + 1;
  }
  const bool refused = reply.size() >= 3 && (reply[0] == '4' || reply[0] == '5') &&
                       std::isdigit(static_cast<unsigned char>(reply[1])) &&
                       std::isdigit(static_cast<unsigned char>(reply[2]));
  if (refused) throw Failure{shown + "\n(" + engine + ")"};
  if (code == kErrCertUntrusted || code == kErrCertDate || code == kErrCertHost)
    shown += "\n(--fingerprint SHA256:... accepts this one certificate, --insecure any)";
  throw Failure{engine + "\nlast reply: " + shown};
}

void Check(bool ok) {
  if (!ok) EngineFailure(GetLastError());
}

// Writes `value` with at least `width` digits at `out`; returns the end.
char* PutDigits(char* out, uint64_t value, int width) {
  char digits[24];
  int n = 0;
  do {
    digits[n++] = static_cast<char>('0' + value % 10);
    value /= 10;
  } while (value > 0);
  for (int i = n; i < width; ++i) *out++ = '0';
  while (n > 0) *out++ = digits[--n];
  return out;
}

char* PutTwoDigits(char* out, int64_t value) {
  *out++ = static_cast<char>('0' + value / 10);
  *out++ = static_cast<char>('0' + value % 10);
  return out;
}

// "YYYY-MM-DDTHH:MM:SSZ" by hand: strftime or printf per line is a visible
// share of a 100,000-line listing. Neighbouring entries often share their
// time (a tree unpacked or copied at once), and nearly always their date,
// so the last text is kept and only what changed is written anew.
char* PutIsoTime(char* out, const std::optional<int64_t>& t) {
  static int64_t cachedTime = INT64_MIN;
  static char cachedText[20];      // "YYYY-MM-DDTHH:MM:SSZ"
  static size_t cachedLength = 0;  // 0: the year is out of range
  if (!t) return out;
  if (*t != cachedTime) {
    auto dayOf = [](int64_t time) { return time >= 0 ? time / 86400 : (time - 86399) / 86400; };
    int64_t days = dayOf(*t);
    if (cachedTime == INT64_MIN || days != dayOf(cachedTime)) {
      // Years 0 to 9999 only: the text has four digits for the year.
      constexpr int64_t kYear0 = -62167219200, kYear10000 = 253402300800;
      int year = 0, month = 0, day = 0;
      cachedLength = 0;
      if (*t >= kYear0 && *t < kYear10000) {
        CivilFromUnix(*t, year, month, day);
        char* p = PutDigits(cachedText, static_cast<uint64_t>(year), 4);
        *p++ = '-';
        p = PutTwoDigits(p, month);
        *p++ = '-';
        p = PutTwoDigits(p, day);
        *p++ = 'T';
        cachedLength = sizeof cachedText;
      }
    }
    cachedTime = *t;
    if (cachedLength != 0) {
      int64_t secs = *t - days * 86400;
      char* p = PutTwoDigits(cachedText + 11, secs / 3600);
      *p++ = ':';
      p = PutTwoDigits(p, secs / 60 % 60);
      *p++ = ':';
      p = PutTwoDigits(p, secs % 60);
      *p = 'Z';
    }
  }
  std::memcpy(out, cachedText, cachedLength);
  return out + cachedLength;
}

// Standard output through a buffer of our own: one line costs a few stores
// instead of three stdio calls, each taking the stream's lock.
class LineWriter {
 public:
  ~LineWriter() { Flush(); }
  void Entry(const FtpListEntryView& e) {
    // Type, size, time and three tabs fit in 64 bytes; the name, escaped,
    // may not.
    if (kSize - m_used < 64 + 4 * e.name.size() + 1) {
      Flush();
      if (kSize < 64 + 4 * e.name.size() + 1) return Unbuffered(e);
    }
    char* p = m_buffer + m_used;
    *p++ = e.kind == FtpListEntry::Kind::Directory ? 'd' : e.kind == FtpListEntry::Kind::Link ? 'l' : 'f';
    *p++ = '\t';
    p = PutDigits(p, e.size, 1);
    *p++ = '\t';
    p = PutIsoTime(p, e.mtime);
    *p++ = '\t';
    if (NeedsEscape(e.name)) {
      p = PutEscaped(p, e.name);
    } else {
      std::memcpy(p, e.name.data(), e.name.size());
      p += e.name.size();
    }
    *p++ = '\n';
    m_used = static_cast<size_t>(p - m_buffer);
  }
  void Flush() {
    if (m_used) std::fwrite(m_buffer, 1, m_used, stdout);
    m_used = 0;
  }

 private:
  void Unbuffered(const FtpListEntryView& e) {
    FtpListEntryView head = e;
    head.name = {};
    Entry(head);
    m_used--;  // the line feed comes after the name
    Flush();
    const std::string name = Escaped(e.name);
    std::fwrite(name.data(), 1, name.size(), stdout);
    std::fputc('\n', stdout);
  }

  static constexpr size_t kSize = 64 * 1024;
  char m_buffer[kSize];
  size_t m_used = 0;
};

int ParseListFromStdin() {
  char* line = nullptr;
  size_t capacity = 0;
  ssize_t n;
  ListClock clock{static_cast<int64_t>(std::time(nullptr))};  // one "now" for all lines
  auto out = std::make_unique<LineWriter>();
  FtpListEntry entry;                         // one for every line: its name keeps its storage
  ftpzn::inet::ListLineReader reader(clock);  // joins an entry given on two lines
  while ((n = getline(&line, &capacity, stdin)) > 0) {
    std::string_view text(line, static_cast<size_t>(n));
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.remove_suffix(1);
    // MLSD lines start with "fact=value;fact=value" before the first blank or
    // tab (the last ';' is left out by some servers); a single fact must be
    // the type, so that a LIST name with '=' in it (a switch's file) stays LIST.
    size_t space = text.find_first_of(" \t");
    std::string_view facts = text.substr(0, space == std::string_view::npos ? 0 : space);
    size_t eq = facts.find('=');
    bool mlsd = eq != std::string_view::npos && eq > 0 &&
                facts.substr(0, eq).find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ"
                                                      "0123456789.-_") == std::string_view::npos &&
                (facts.find(';') != std::string_view::npos ||
                 (facts.size() > 5 && strncasecmp(facts.data(), "type=", 5) == 0));
    if (mlsd ? ParseMlsdLine(text, entry) : reader.Parse(text, entry))
      out->Entry({entry.name, entry.kind, entry.size, entry.mtime, entry.linkTarget});
  }
  free(line);
  return 0;
}

int Run(std::vector<std::string> args) {
  bool passive = true, verbose = false, insecure = false;
  std::string fingerprint;
  uint32_t timeoutMs = 0;
  while (!args.empty() && args.front().rfind("-", 0) == 0) {
    std::string option = args.front();
    args.erase(args.begin());
    if (option == "--help" || option == "-h") {
      std::fputs(kUsage, stdout);
      return 0;
    } else if (option == "--version") {
      std::printf("ftpzn-ftp %s\n", FTPZN_VERSION);
      return 0;
    } else if (option == "--active") {
      passive = false;
    } else if (option == "--passive") {
      passive = true;
    } else if (option == "--verbose") {
      verbose = true;
    } else if (option == "--insecure") {
      insecure = true;
    } else if (option == "--fingerprint" && !args.empty()) {
      fingerprint = NormalizeFingerprint(args.front());
      if (fingerprint.empty())
        throw UsageError{"--fingerprint needs SHA256: and 64 hex digits, not " + args.front()};
      args.erase(args.begin());
    } else if (option == "--fingerprint") {
      throw UsageError{"--fingerprint needs a value"};
    } else if (option == "--timeout" && !args.empty()) {
      char* end = nullptr;
      double seconds = std::strtod(args.front().c_str(), &end);
      if (*end || !(seconds > 0 && seconds <= 86400))
        throw UsageError{"--timeout needs seconds from 0 to 86400, not " + args.front()};
      timeoutMs = static_cast<uint32_t>(seconds * 1000);
      args.erase(args.begin());
    } else if (option == "--timeout") {
      throw UsageError{"--timeout needs a value"};
    } else {
      throw UsageError{"unknown option " + option};
    }
  }
  if (args.empty()) throw UsageError{"no command"};
  std::string command = args.front();
  args.erase(args.begin());
  if (command == "parse-list") {
    if (!args.empty()) throw UsageError{"parse-list takes no arguments"};
    return ParseListFromStdin();
  }
  size_t wanted = command == "get" || command == "put" ? 2 : 1;
  bool known = command == "ls" || command == "get" || command == "put" || command == "mkdir" ||
               command == "rmdir" || command == "rm" || command == "pwd";
  if (!known) throw UsageError{"unknown command " + command};
  if (args.size() != wanted)
    throw UsageError{command + (wanted == 1 ? " takes one argument" : " takes two arguments")};

  Target t = ParseTarget(command == "put" ? args[1] : args[0]);
  ToolSession session;
  session.verbose = verbose;
  session.insecure = insecure;
  if (!fingerprint.empty()) session.TrustCertificate(fingerprint);
  if (timeoutMs) {
    session.SetOption(INTERNET_OPTION_CONNECT_TIMEOUT, timeoutMs);
    session.SetOption(INTERNET_OPTION_SEND_TIMEOUT, timeoutMs);
    session.SetOption(INTERNET_OPTION_RECEIVE_TIMEOUT, timeoutMs);
  }
  std::unique_ptr<CFtpConnection> c;
  try {
    c = session.GetFtpConnection(t.host, t.user, t.password, t.port, passive, t.tls);
  } catch (const CInternetException& e) {
    EngineFailure(e.m_dwError);
  }
  if (const TlsPeerInfo* tls = c->GetTlsInfo(); tls && verbose)
    std::fprintf(stderr, "* %s, %s\n", tls->protocol.c_str(), tls->cipher.c_str());

  if (command == "ls" || command == "pwd") {
    if (!t.path.empty()) Check(c->SetCurrentDirectory(t.path));
    if (command == "pwd") {
      std::wstring dir;
      Check(c->GetCurrentDirectory(dir));
      std::printf("%s\n", Escaped(WideToWire(dir)).c_str());
    } else {
      CFtpFileFind find(c.get());
      if (!find.FindFile()) {
        if (GetLastError() != 18) EngineFailure(GetLastError());  // 18: an empty directory
      } else {
        auto out = std::make_unique<LineWriter>();
        bool more = true;
        while (more) {
          more = find.FindNextFile();
          out->Entry(find.GetEntryView());
        }
      }
      find.Close();
    }
  } else if (command == "mkdir") {
    Check(c->CreateDirectory(t.path));
  } else if (command == "rmdir") {
    Check(c->RemoveDirectory(t.path));
  } else if (command == "rm") {
    Check(c->Remove(t.path));
  } else if (command == "get") {
    Fd out;
    // Blocks are read one after another into a larger buffer that goes to
    // the file in one write: no stdio copy on the way. The file is emptied
    // when its first bytes go out (or at the end, for an empty file), as the
    // transfer workers do: a transfer refused or failed before any byte
    // leaves a file of that name as it was, and one that fails midway leaves
    // what arrived.
    std::vector<char> local(256 * 1024);
    size_t filled = 0;
    bool emptied = false;
    auto flush = [&] {
      if (!emptied) {
        if (ftruncate(out.Get(), 0) != 0)
          throw Failure{"cannot write " + args[1] + ": " + std::strerror(errno)};
        emptied = true;
      }
      for (size_t at = 0; at < filled;) {
        ssize_t n = write(out.Get(), local.data() + at, filled - at);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) throw Failure{"cannot write " + args[1] + ": " + std::strerror(errno)};
        at += static_cast<size_t>(n);
      }
      filled = 0;
    };
    try {
      auto file = c->OpenFile(t.path, GENERIC_READ, FTP_TRANSFER_TYPE_BINARY);
      // Opened only once the server agreed to send: a file that is missing
      // there leaves a local file of that name as it was.
      out = Fd(open(args[1].c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644));
      if (!out) throw Failure{"cannot create " + args[1] + ": " + std::strerror(errno)};
      for (;;) {
        if (local.size() - filled < kBlock) flush();
        uint32_t n = file->Read(local.data() + filled, kBlock);
        if (n == 0) break;
        filled += n;
      }
      file->Close();
      const uint32_t late = GetLastError();
      // The engine reports a failure that came after the last bytes (426,
      // 421, a closed connection) here: those bytes are kept all the same.
      if (late != 0 && filled > 0) flush();
      Check(late == 0);
    } catch (const CInternetException& e) {
      if (out && filled > 0) flush();
      EngineFailure(e.m_dwError);
    }
    flush();
  } else if (command == "put") {
    Fd in(open(args[0].c_str(), O_RDONLY | O_CLOEXEC));
    struct stat st {};
    if (!in || fstat(in.Get(), &st) != 0)
      throw Failure{"cannot open " + args[0] + ": " + std::strerror(errno)};
    // Refused before the server is asked to store anything.
    if (S_ISDIR(st.st_mode)) throw Failure{"cannot read " + args[0] + ": " + std::strerror(EISDIR)};
    std::wstring remote = t.path;
    if (remote.empty() || remote.back() == L'/') {
      std::string base = args[0].substr(args[0].rfind('/') == std::string::npos ? 0 : args[0].rfind('/') + 1);
      remote += WireToWide(base);
    }
    // The file is read in pieces handed on in blocks: a mapping would cost a
    // page fault every few blocks and a long munmap at the end. Pieces of
    // 64 KiB keep the piece and the engine's buffer in the core's cache while
    // they are copied; 256 KiB pieces were measurably slower.
    try {
      auto file = c->OpenFile(remote, GENERIC_WRITE, FTP_TRANSFER_TYPE_BINARY);
      std::vector<char> local(64 * 1024);
      for (;;) {
        ssize_t n = read(in.Get(), local.data(), local.size());
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) throw Failure{"cannot read " + args[0] + ": " + std::strerror(errno)};
        if (n == 0) break;
        for (ssize_t at = 0; at < n; at += kBlock)
          file->Write(local.data() + at, static_cast<uint32_t>(std::min<ssize_t>(kBlock, n - at)));
      }
      file->Close();
      Check(GetLastError() == 0);
    } catch (const CInternetException& e) {
      EngineFailure(e.m_dwError);
    }
  }
  c->Close();
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  static char out[1 << 16];
  setvbuf(stdout, out, _IOFBF, sizeof out);
  try {
    return Run(std::vector<std::string>(argv + 1, argv + argc));
  } catch (const UsageError& u) {
    std::fprintf(stderr, "ftpzn-ftp: %s (ftpzn-ftp --help shows the usage)\n", MaskPassword(u.text).c_str());
    return 2;
  } catch (const Failure& f) {
    // A URL may also be echoed as a local path (put's first argument).
    std::fprintf(stderr, "ftpzn-ftp: %s\n", MaskPassword(f.text).c_str());
    return 1;
  }
}
