// The site file from its bytes up: archive strings, records, whole files in
// memory and on disk, the preference keys beside them, and ftpzn-sites run
// as a process over such files.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <future>
#include <sstream>

#include "gui_harness.h"
#include "sites/archive.h"
#include "sites/preferences.h"
#include "sites/sitefile.h"

namespace ftpzn::test {
namespace {

namespace fs = std::filesystem;
using Bytes = std::vector<uint8_t>;
using Sites = std::vector<CFtpSite>;

// Site-file bytes written by hand from the format: wide strings as FF FE FF,
// a length and UTF-16LE; integers as 4 bytes little-endian.
Bytes operator+(Bytes a, const Bytes& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}
Bytes Hex(const char* hex) {  // "FFFE 41": spaces only for reading
  Bytes out;
  for (std::istringstream in(hex); in >> std::ws && in.peek() != EOF;)
    out.push_back(static_cast<uint8_t>(std::stoi(std::string{char(in.get()), char(in.get())}, nullptr, 16)));
  return out;
}
Bytes Utf16(wchar_t c, size_t n) {
  Bytes out;
  for (size_t i = 0; i < n; ++i)
    out.insert(out.end(), {static_cast<uint8_t>(c), static_cast<uint8_t>(c >> 8)});
  return out;
}
Bytes Wide(const std::string& ascii) {  // shorter than 255 characters
  Bytes out = {0xFF, 0xFE, 0xFF, static_cast<uint8_t>(ascii.size())};
  for (char c : ascii) out.insert(out.end(), {static_cast<uint8_t>(c), 0});
  return out;
}
Bytes Int32(uint32_t v) { return {uint8_t(v), uint8_t(v >> 8), uint8_t(v >> 16), uint8_t(v >> 24)}; }
Bytes Magic() { return Wide("TOLMAVERN_DATA"); }

// A record in wire order, which is not the declared order: host, retries,
// description, account, login, profile name, password, port, initial
// path, retry delay, reserved, passive.
Bytes Record(const std::string& name, int32_t port, const Bytes& description = Wide("d")) {
  return Wide("host-" + name) + Int32(3) + description + Wide("a") + Wide("user") + Wide(name) + Wide("pw") +
         Int32(port) + Wide("/") + Int32(10) + Int32(-2) + Int32(1);
}
CFtpSite SiteOf(const std::string& name, int32_t port) {
  CFtpSite s;
  s.m_strHost = "host-" + name, s.m_strDescription = "d", s.m_strAccount = "a", s.m_strLogin = "user";
  s.m_strProfileName = name, s.m_strPassword = "pw", s.m_strInitialPath = "/";
  s.m_nRetries = 3, s.m_nPort = port, s.m_nRetryDelay = 10, s.m_nReserved = -2, s.m_bPassive = 1;
  return s;
}
// A record whose description holds `chars` characters.
Bytes LongRecord(size_t chars, int32_t port) {
  const Bytes head = chars < 0xFF ? Bytes{0xFF, 0xFE, 0xFF, uint8_t(chars)}
                                  : Bytes{0xFF, 0xFE, 0xFF, 0xFF, uint8_t(chars), uint8_t(chars >> 8)};
  return Record("", port, head + Utf16(L'd', chars));
}

struct Loaded {
  bool result;
  SiteFileReport report;
  Sites sites;
};
Loaded Load(const Bytes& bytes, Sites initial = {}) {
  Loaded loaded{false, {}, std::move(initial)};
  MemorySource source(bytes);
  loaded.result = LoadSites(source, loaded.sites, &loaded.report);
  return loaded;
}

TEST(ArchiveString, EveryLengthFormReadAndTheShortestWritten) {
  // `both`: writing the text gives these bytes; the other rows are escapes
  // and narrow strings that only other producers write.
  const std::tuple<wxString, Bytes, bool> cases[] = {
      {wxString(), Hex("FFFEFF 00"), true},
      {wxString(L"\u00e9\u20ac"), Hex("FFFEFF 02 E900 AC20"), true},
      {wxString(L"\U0001F600"), Hex("FFFEFF 02 3DD8 00DE"), true},
      {wxString(std::wstring(1, wchar_t(0xDC00))), Hex("FFFEFF 01 00DC"), true},  // a lone surrogate
      {std::wstring(254, L'x'), Hex("FFFEFF FE") + Utf16(L'x', 254), true},
      {std::wstring(255, L'y'), Hex("FFFEFF FF FF00") + Utf16(L'y', 255), true},
      {std::wstring(0xFFFD, L'z'), Hex("FFFEFF FF FDFF") + Utf16(L'z', 0xFFFD), true},
      {std::wstring(0xFFFE, L'w'), Hex("FFFEFF FF FFFF FEFF0000") + Utf16(L'w', 0xFFFE), true},
      {"abc", Hex("FFFEFF FF FFFF FFFFFFFF 0300000000000000 610062006300"), false},
      {"hi", Hex("FFFEFF FF FFFF 02000000 68006900"), false},
      {"ok", Hex("FFFEFF FF FEFF 02000000 6F006B00"), false},
      {"abc", Hex("03 616263"), false},
      {"ok", Hex("FF 0200 6F6B"), false},
      {"!", Hex("FF FFFF 01000000 21"), false},
      {"no", Hex("FF FFFF FFFFFFFF 0200000000000000 6E6F"), false},
      // Windows-1252, with 0x81, which it leaves undefined, passed through.
      {wxString(L"c\u00e9\u20ac\u201c\u201d\u0081"), Hex("06 63 E9 80 93 94 81"), false},
  };
  for (const auto& [text, bytes, both] : cases) {
    SCOPED_TRACE(text.Left(20));
    MemorySource source(bytes);
    Archive in(source);
    EXPECT_EQ(in.ReadString(), text);
    EXPECT_TRUE(in.IsBufferEmpty()) << "the string left bytes unread";
    MemorySink sink;
    Archive out(sink);
    out.WriteString(text);
    out.Flush();
    // A narrow string from another producer is written back wide.
    if (both || text.IsAscii()) {
      EXPECT_EQ(sink.Bytes(), both ? bytes : Wide(text.ToStdString()));
    }
  }
  // Short data is the end of the file; a 64-bit length no file can hold
  // must fail, not allocate.
  for (const char* hex :
       {"", "FFFE", "FFFEFF 03 610062 0063", "05 6162", "FFFEFF FF FFFF FFFFFFFF F0FFFFFFFFFFFF7F 6100",
        "FFFEFF FF FFFF FFFFFFFF FFFFFFFFFFFFFFFF"}) {
    MemorySource source(Hex(hex));
    EXPECT_THROW(Archive(source).ReadString(), ArchiveException) << hex;
  }
}

TEST(SiteFile, MagicRecordsInOrderAndWhereTheyEnd) {
  // Loading appends; a different magic is no error but loads nothing; a
  // narrow magic compares equal.
  const std::tuple<Bytes, bool, SiteFileReport::Outcome, size_t> cases[] = {
      {Magic(), true, SiteFileReport::complete, 1},
      {Wide("TOLMAVERN_Data") + Record("a", 21), true, SiteFileReport::wrongMagic, 1},
      {Hex("0E 544F4C4D415645524E5F44415441") + Record("n", 21), true, SiteFileReport::complete, 2},
      {{}, false, SiteFileReport::wrongMagic, 1},
  };
  for (const auto& [bytes, result, outcome, sites] : cases) {
    const Loaded loaded = Load(bytes, {BuiltInSite()});
    EXPECT_EQ(std::tuple(loaded.result, loaded.report.outcome, loaded.sites.size()),
              std::tuple(result, outcome, sites));
    EXPECT_EQ(loaded.sites[0], BuiltInSite());
  }
  // Every member in wire order, both ways.
  const Bytes file = Magic() + Record("zeta", 1) + Record("alpha", 2) + Record("mid", 3);
  Loaded loaded = Load(file);
  EXPECT_TRUE(loaded.result);
  EXPECT_EQ(loaded.sites, (Sites{SiteOf("zeta", 1), SiteOf("alpha", 2), SiteOf("mid", 3)}));
  MemorySink sink;
  EXPECT_TRUE(SaveSites(sink, loaded.sites));
  EXPECT_EQ(sink.Bytes(), file);

  // A cut record keeps the ones before.
  loaded = Load(Bytes(file.begin(), file.end() - 7));
  EXPECT_EQ(std::tuple(loaded.result, loaded.report.outcome, loaded.report.endOfFile, loaded.sites.size()),
            std::tuple(false, SiteFileReport::damaged, true, size_t{2}));

  // 32 bytes of magic and a record with a 1994-character description end at
  // byte 4096, where the first buffer ends: that ends the list, without
  // failing. One character less and the second record is read.
  ASSERT_EQ(Magic().size() + LongRecord(1994, 1).size(), Archive::kBufferSize);
  for (size_t chars : {1994, 1993}) {
    loaded = Load(Magic() + LongRecord(chars, 1) + LongRecord(3, 2));
    EXPECT_TRUE(loaded.result);
    EXPECT_EQ(std::pair(loaded.sites.size(), loaded.report.unreadBytes),
              chars == 1994 ? std::pair(size_t{1}, uint64_t{LongRecord(3, 2).size()})
                            : std::pair(size_t{2}, uint64_t{0}));
  }
}

TEST(SiteFile, SavedFilesReloadWhole) {
  // Descriptions around the buffer's edge, where the writer lengthens an
  // escape rather than end a record on it; and extreme members.
  std::vector<Sites> files;
  for (size_t chars = 1995; chars <= 2020; ++chars) {
    files.push_back({CFtpSite(), SiteOf("second", 2)});
    files.back()[0].m_strDescription = wxString(std::wstring(chars, L'd'));
  }
  CFtpSite extreme = SiteOf(std::string(300, 'N'), 65535);
  extreme.m_strDescription = wxString(L"line one\r\nline two \u00fc\U0001F600");
  extreme.m_nRetries = -5, extreme.m_nRetryDelay = INT32_MAX, extreme.m_nReserved = INT32_MIN;
  files.push_back({extreme});
  for (size_t i = 0; i < files.size(); ++i) {
    MemorySink sink;
    ASSERT_TRUE(SaveSites(sink, files[i]));
    ASSERT_EQ(Load(sink.Bytes()).sites, files[i]) << "file " << i;
  }
}

// A private directory per test.
class InTempDir : public testing::Test {
 protected:
  wxString PathOf(const std::string& name) const { return wxString((m_dir / name).string()); }
  static unsigned Mode(const fs::path& path) {
    struct stat info {};
    EXPECT_EQ(::stat(path.c_str(), &info), 0) << path;
    return info.st_mode & 0777;
  }
  // Loads, or saves, `sites` at `name`: the report of the call.
  SiteFileReport Serialize(const std::string& name, Sites& sites, bool save) {
    SiteFileReport report;
    EXPECT_TRUE(SerializeSites(PathOf(name), sites, save, &report)) << name;
    return report;
  }
  const fs::path m_dir = MakeTempDir("ftpzn-sites-");
};
using SiteFileOnDisk = InTempDir;

TEST_F(SiteFileOnDisk, SaveReplacesTheTargetWholeAndPrivately) {
  // An existing readable file, and a link to another one: both end as the
  // new content with mode 0600 (the file holds passwords), the link still a
  // link, nothing else left.
  fs::create_directory(m_dir / "real");
  for (const fs::path& old : {m_dir / "sites.dat", m_dir / "real" / "linked.dat"}) {
    std::ofstream(old) << "old";
    fs::permissions(old, fs::perms(0644));
  }
  fs::create_symlink("real/linked.dat", m_dir / "link.dat");
  Sites sites = {SiteOf("one", 1)}, none;
  for (const char* name : {"sites.dat", "link.dat"}) {
    Sites reloaded;
    EXPECT_TRUE(Serialize(name, sites, true).flushed);
    EXPECT_EQ(Serialize(name, reloaded, false).outcome, SiteFileReport::complete);
    EXPECT_EQ(reloaded, sites) << name;
  }
  // A missing file loads nothing and is no error; an unwritable place is
  // silent and unflushed.
  SiteFileReport report = Serialize("missing.dat", sites, false);
  EXPECT_EQ(std::tuple(report.outcome, report.error, sites.size()),
            std::tuple(SiteFileReport::notOpened, ENOENT, size_t{1}));
  report = Serialize("no-such-dir/sites.dat", sites, true);
  EXPECT_EQ(std::pair(report.outcome, report.flushed), std::pair(SiteFileReport::notOpened, false));
  EXPECT_TRUE(fs::is_symlink(m_dir / "link.dat"));
  EXPECT_EQ(std::pair(Mode(m_dir / "sites.dat"), Mode(m_dir / "real" / "linked.dat")),
            std::pair(0600u, 0600u));
  size_t entries = 0;
  for (const auto& entry : fs::recursive_directory_iterator(m_dir)) entries += !entry.is_directory();
  EXPECT_EQ(entries, 3u) << "no temporary file is left behind";
  Serialize("sites.dat", none, true);  // a save truncates what was there
  EXPECT_EQ(fs::file_size(m_dir / "sites.dat"), Magic().size());
}

TEST_F(SiteFileOnDisk, FifoOrDirectoryInItsPlaceCannotBeOpenedAndNeverBlocks) {
  const wxString fifo = PathOf("fifo.dat");
  ASSERT_EQ(::mkfifo(fifo.fn_str(), 0600), 0);
  for (const bool save : {false, true}) {
    Sites sites = {BuiltInSite()};
    SiteFileReport report;
    auto done = std::async(std::launch::async, [&] { return SerializeSites(fifo, sites, save, &report); });
    if (done.wait_for(std::chrono::seconds(5)) != std::future_status::ready) {
      ADD_FAILURE() << "the open blocked on the FIFO";
      ::close(::open(fifo.fn_str(), O_RDWR));  // releases the blocked open so the test can end
    }
    EXPECT_TRUE(done.get());
    EXPECT_EQ(std::pair(report.outcome, sites.size()), std::pair(SiteFileReport::notOpened, size_t{1}))
        << save;
  }
  fs::create_directory(m_dir / "dir.dat");
  Sites sites;
  const SiteFileReport report = Serialize("dir.dat", sites, false);
  EXPECT_EQ(std::pair(report.outcome, report.error), std::pair(SiteFileReport::notOpened, EISDIR));
}

// Finding and removing profiles are checked through the site manager and
// ftpzn-sites.
TEST(SiteFile, PathsBesideTheExecutableAndAssigning) {
  const std::string beside = fs::read_symlink("/proc/self/exe").parent_path().string();
  EXPECT_EQ(GetModuleDirectory(), wxString(beside + "/"));
  EXPECT_EQ(DefaultSitesPath(), wxString(beside + "/sites.dat"));
  EXPECT_EQ(BookmarkFilePath(), wxString(beside + "//ftpznbm.ini")) << "the separator stays doubled";
  SetModuleDirectoryForTesting("/tmp/elsewhere");
  EXPECT_EQ(DefaultSitesPath(), "/tmp/elsewhere/sites.dat");
  SetModuleDirectoryForTesting(wxString());
  EXPECT_EQ(GetModuleDirectory(), wxString(beside + "/"));
  // Assigning takes every field but the reserved one.
  CFtpSite target = SiteOf("Work", 1), source = BuiltInSite();
  target.m_nReserved = 9;
  AssignSiteFields(target, source);
  source.m_nReserved = 9;
  EXPECT_EQ(target, source);
}

#ifdef FTPZN_SITES_TOOL
struct ToolRun {
  int status;
  std::string out, err;
};

class SitesTool : public InTempDir {
 protected:
  ToolRun OnFile(const std::vector<std::string>& args) {
    std::string command = Quote(FTPZN_SITES_TOOL) + " --file " + Quote(m_file);
    for (const std::string& arg : args) command += " " + Quote(arg);
    const int raw = std::system((command + " >" + Quote(Out("out")) + " 2>" + Quote(Out("err"))).c_str());
    return {WIFEXITED(raw) ? WEXITSTATUS(raw) : -1, Slurp("out"), Slurp("err")};
  }
  static std::string Quote(const std::string& text) { return "'" + text + "'"; }  // no argument holds a '

  std::string Out(const char* name) const { return (m_dir / name).string(); }
  std::string Slurp(const char* name) const {
    std::ostringstream text;
    text << std::ifstream(m_dir / name, std::ios::binary).rdbuf();
    return text.str();
  }
  const std::string m_file = Out("sites.dat");
};

TEST_F(SitesTool, CommandsOnOneFile) {
  const auto port = [](const char* value) {
    return std::vector<std::string>{"add", "--name", "n", "--host", "h", "--port", value};
  };
  // Usage errors (status 2) are one line on standard error, and write
  // nothing: until "add n", the file holds only what the other rows wrote.
  const std::tuple<std::vector<std::string>, int, std::string, std::string> steps[] = {
      {{"dump"}, 0, "[]\n", ""},  // a missing file is an empty list
      {{}, 2, "", ""},
      {{"frobnicate"}, 2, "", ""},
      {{"--bogus", "dump"}, 2, "", ""},
      {{"add", "--host", "h"}, 2, "", ""},  // a name is required
      {port("12x"), 2, "", ""},
      {port("4294967296"), 2, "", ""},
      {port("0"), 2, "", ""},
      {port("65536"), 2, "", ""},
      {{"add",       "--name",  "Work",       "--host",     "ftp.work.example", "--port", "2121",
        "--login",   "me",      "--password", "s\"ecret\\", "--path",           "/srv",   "--retries",
        "-1",        "--delay", "7",          "--active",   "--account",        "acc",    "--description",
        "two\nlines"},
       0,
       "",
       ""},
      {{"add", "--name", "home", "--host", "10.0.0.1"}, 0, "", ""},
      {{"add", "--name", "WORK", "--host", "other"}, 1, "", "WORK"},  // names compare without case
      {{"dump"},
       0,
       "[\n  {\"host\": \"ftp.work.example\", \"retries\": -1, \"description\": \"two\\nlines\", "
       "\"account\": \"acc\", \"initialPath\": \"/srv\", \"login\": \"me\", \"password\": "
       "\"s\\\"ecret\\\\\", "
       "\"profileName\": \"Work\", \"port\": 2121, \"retryDelay\": 7, \"reserved\": 0, \"passive\": 0},\n"
       // Only what was given: the rest is a new record's, not an example's.
       "  {\"host\": \"10.0.0.1\", \"retries\": 1, \"description\": \"\", \"account\": \"\", "
       "\"initialPath\": \"\", \"login\": \"\", \"password\": \"\", \"profileName\": \"home\", "
       "\"port\": 21, \"retryDelay\": 15, \"reserved\": 0, \"passive\": 0}\n]\n",
       ""},
      {{"remove", "nothing"}, 1, "", ""},
      {{"remove", "work"}, 0, "", ""},
      {port("65535"), 0, "", ""},
  };
  for (const auto& [args, status, out, err] : steps) {
    const ToolRun run = OnFile(args);
    EXPECT_EQ(run.status, status) << args.size() << ": " << run.err;
    if (!out.empty() || status == 2) {
      EXPECT_EQ(run.out, out);
    }
    EXPECT_NE(run.err.find(err), std::string::npos) << run.err;
    if (status == 2) {
      EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1) << run.err;
      EXPECT_FALSE(fs::exists(m_file)) << "a refused command writes nothing";
    }
  }
  Sites sites;
  EXPECT_TRUE(SerializeSites(wxString(m_file), sites, false));
  ASSERT_EQ(sites.size(), 2u);
  EXPECT_EQ(std::pair(sites[0].m_strProfileName, sites[1].m_strProfileName),
            std::pair(wxString("home"), wxString("n")));
}

TEST_F(SitesTool, DumpsFilesOthersWrote) {
  // Host: U+00E9, a surrogate pair for U+1F600, a lone high surrogate and a
  // control character; the login a narrow Windows-1252 string.
  const Bytes odd = Hex("FFFEFF 05 E900 3DD8 00DE 00D8 0100") + Int32(1) + Wide("") + Wide("") +
                    Hex("03 80 61 FC") + Wide("x") + Wide("") + Int32(21) + Wide("") + Int32(5) + Int32(0) +
                    Int32(0);
  const std::string secondAt = std::to_string(Magic().size() + Record("one", 21).size());
  const std::tuple<Bytes, int, std::vector<std::string>, std::vector<std::string>> cases[] = {
      {Magic() + Record("one", 21) + Wide("h2") + Int32(1) + Wide(""),
       3,
       {"\"profileName\": \"one\"", "\"reserved\": -2"},
       {"record 2", secondAt}},
      {Wide("TOLMAVERN_DATa") + Record("one", 21), 4, {"[]\n"}, {}},
      {Magic() + odd,
       0,
       {"\"host\": \"\xC3\xA9\xF0\x9F\x98\x80\\ud800\\u0001\"",
        "\"login\": \"\xE2\x82\xAC"
        "a\xC3\xBC\""},
       {}},
  };
  for (const auto& [file, status, out, err] : cases) {
    std::ofstream(m_file, std::ios::binary).write(reinterpret_cast<const char*>(file.data()), file.size());
    const ToolRun run = OnFile({"dump"});
    EXPECT_EQ(run.status, status) << run.err;
    for (const std::string& text : out) EXPECT_NE(run.out.find(text), std::string::npos) << run.out;
    for (const std::string& text : err) EXPECT_NE(run.err.find(text), std::string::npos) << run.err;
  }
}

#endif

}  // namespace
}  // namespace ftpzn::test
