// What the panes show about files, and the local file system calls under
// the local pane, over temporary trees.
#include "panes/localfs.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>

#include "gui_harness.h"
#include "panes/filetexts.h"

namespace ftpzn {
namespace {

namespace fs = std::filesystem;
using Texts = std::vector<wxString>;

TEST(FileTexts, SizesDatesAndTypes) {
  const std::tuple<uint32_t, uint32_t, const char*> sizes[] = {
      {0, 0, "1 KB"},
      {1024, 0, "1 KB"},
      {1025, 0, "2 KB"},
      {1048576, 0, "1,024 KB"},
      {1023998976, 0, "999,999 KB"},
      {999 * 1024 + 1, 0, "1,000 KB"},
      {1024, 1, "4,194,305 KB"},  // 4 GiB + 1024 bytes given in two halves
      {4294967295u, 0, "4,194,304 KB"}};
  for (const auto& [low, high, text] : sizes) EXPECT_EQ(FormatSizeKb(low, high), text) << low << " " << high;
  EXPECT_EQ(std::pair(FileTimeFromUnix(0), FileTimeFromUnix(1, 500)),
            std::pair(uint64_t{116444736000000000}, uint64_t{116444736010000005}));  // 100 ns since 1601

  // Local time, two digits each; times before the epoch show time value
  // zero; years out of the time value's range give no text, and the local
  // year decides. Zones are written out so no zone database is needed.
  const std::string saved = std::getenv("TZ") ? std::getenv("TZ") : "";
  const auto at = [](int y, int mo, int d, int h, int mi, int s) {
    std::tm tm{};
    tm.tm_sec = s, tm.tm_min = mi, tm.tm_hour = h, tm.tm_mday = d, tm.tm_mon = mo - 1, tm.tm_year = y - 1900;
    return FileTimeFromUnix(timegm(&tm));
  };
  const char* cet = "CET-1CEST,M3.5.0,M10.5.0/3";
  const std::tuple<const char*, uint64_t, const char*> dates[] = {
      {"UTC0", at(2023, 3, 5, 14, 7, 9), "23/03/05/14/07/09"},
      {cet, at(2023, 3, 5, 14, 7, 9), "23/03/05/15/07/09"},
      {"UTC0", at(2000, 12, 31, 23, 59, 59), "00/12/31/23/59/59"},
      {cet, at(2023, 7, 1, 12, 0, 0), "23/07/01/14/00/00"},
      {"UTC0", MakeParentItem().time, "70/01/01/00/00/00"},
      {cet, MakeParentItem().time, "70/01/01/01/00/00"},
      {"UTC0", at(1850, 6, 1, 0, 0, 0), "70/01/01/00/00/00"},
      {"UTC0", 0, "70/01/01/00/00/00"},
      {"UTC0", at(1969, 6, 1, 0, 0, 0), nullptr},
      {"UTC0", at(1900, 1, 1, 0, 0, 0), nullptr},
      {"UTC0", at(3001, 1, 1, 0, 0, 0), nullptr},
      {"UTC0", at(3000, 12, 31, 0, 0, 0), "00/12/31/00/00/00"},
      {"UTC0", 0x8000000000000000ULL, nullptr},
      {"EST5", at(1970, 1, 1, 5, 30, 0), "70/01/01/00/30/00"},
      {"EST5", at(1970, 1, 1, 0, 30, 0), nullptr}};  // still 1969 in New York
  for (const auto& [zone, time, text] : dates) {
    setenv("TZ", zone, 1);
    tzset();
    EXPECT_EQ(FormatFileDate(time).value_or("<none>"), text ? text : "<none>") << zone << " " << time;
  }
  saved.empty() ? unsetenv("TZ") : setenv("TZ", saved.c_str(), 1);
  tzset();

  // Only what follows the last dot after the last separator; a backslash is
  // an ordinary character in a Linux or remote name, but still a separator
  // to the rule. The desktop's description wins where it has one.
  const wxString latin(std::wstring{L'c', wchar_t(0xDCE9), L'.', L't', L'x', L't'});
  const std::tuple<wxString (*)(const wxString&), wxString, wxString> types[] = {
      {ExtensionTypeText, "a.xyz", "XYZ File"},
      {ExtensionTypeText, "x.tar.gz", "GZ File"},
      {ExtensionTypeText, "readme", "File"},
      {ExtensionTypeText, "v1.2/readme", "File"},
      {ExtensionTypeText, ".bashrc", "BASHRC File"},
      {ExtensionTypeText, "name.", " File"},
      {ExtensionTypeText, "v1.2\\readme", "File"},
      {ExtensionTypeText, "a\\b.c", "C File"},
      {ShellTypeText, "report.pdf", "PDF document"},
      {ShellTypeText, "a.qqzz", "QQZZ File"},
      {ShellTypeText, "x.tar.gz", "Tar archive (gzip-compressed)"},
      {ShellTypeText, "zzqnoext", "File"},
      {ShellTypeText, latin, "TXT File"},
      // Bytes that are not UTF-8 show as replacement characters.
      {DisplayText, latin, wxString(L"c\uFFFD.txt")},
      {DisplayText, "plain", "plain"},
      {DisplayText, wxString(std::wstring(1, wchar_t(0xDCFF))), wxString(L"\uFFFD")}};
  for (const auto& [rule, name, text] : types) EXPECT_EQ(rule(name), text) << name;
}

TEST(LocalPath, JoinPatternStripAndParent) {
  const std::tuple<wxString (*)(const wxString&), wxString, wxString> cases[] = {
      {LocalSearchPattern, "/", "/*"},
      {LocalSearchPattern, "/data", "/data/*"},
      {LocalSearchPattern, "/data/*", "/data/*"},
      {StripPatternTail, "/*", "/"},
      {StripPatternTail, "/", "/"},
      {StripPatternTail, "//*", "/"},
      {StripPatternTail, "/data/in/*", "/data/in"},
      {StripPatternTail, "/data/in//", "/data/in"},
      {StripPatternTail, "/data/in", "/data/in"},
      {StripPatternTail, "/data/in/*/*", "/data/in"},
      // A folder whose name ends in '*' stays that folder.
      {StripPatternTail, "/data/star*", "/data/star*"},
      {StripPatternTail, "/data/star*/*", "/data/star*"},
      {StripPatternTail, "/data/star**/", "/data/star**"},
      // Change Directory's path: the typed text joined by one separator,
      // the pattern added, doubled separators collapsed.
      {[](const wxString& p) { return CollapseSeparators(p); }, "/data///in//x/", "/data/in/x/"},
      {[](const wxString& p) { return CollapseSeparators(LocalSearchPattern(p)); }, "/data/sub/",
       "/data/sub/*"},
      {[](const wxString& p) { return CollapseSeparators(LocalSearchPattern(p)); }, "/data//x", "/data/x/*"},
      {[](const wxString& p) { return JoinLocalPath(p, "etc"); }, "/", "/etc"},
      {[](const wxString& p) { return JoinLocalPath(p, "in"); }, "/data", "/data/in"},
      {[](const wxString& p) { return JoinLocalPath(p, "in"); }, "/data/", "/data/in"},
      // The parent stops at the root.
      {[](const wxString& p) {
         wxString up = "-";
         return LocalParentDirectory(p, up) ? up : "none";
       },
       "/", "none"},
      {[](const wxString& p) {
         wxString up = "-";
         return LocalParentDirectory(p, up) ? up : "none";
       },
       "rel", "none"},
      {[](const wxString& p) {
         wxString up;
         return LocalParentDirectory(p, up) ? up : "none";
       },
       "/data", "/"},
      {[](const wxString& p) {
         wxString up;
         return LocalParentDirectory(p, up) ? up : "none";
       },
       "/data/in", "/data"},
  };
  for (const auto& [rule, in, out] : cases) EXPECT_EQ(rule(in), out) << in;
}

class LocalTree : public testing::Test {
 protected:
  // Files of `bytes` bytes; a name ending in '/' is a folder.
  void Make(std::initializer_list<fs::path> paths, size_t bytes = 0) {
    for (const fs::path& p : paths) {
      fs::create_directories((m_root / p).parent_path());
      if (p.filename().empty() == false) std::ofstream(m_root / p) << std::string(bytes, 'x');
    }
  }
  wxString Path(const fs::path& relative = {}) const {
    return wxString::FromUTF8((relative.empty() ? m_root : m_root / relative).string());
  }
  Texts Names(const wxString& pattern) {
    Texts names;
    for (bool found = find.FindFile(pattern); found && find.Next();) names.push_back(find.Current().name);
    return names;
  }

  const fs::path m_root = test::MakeTempDir("ftpzn-localfs-");
  LocalFileFind find;
};

TEST_F(LocalTree, EnumerationSortedByUpperCasedNameWithSizeTimeAndKind) {
  Make({"b", "A", "a.txt", "C", "_x", "Zed", "dir/"});
  // '_' sorts after 'Z' once names are upper-cased.
  const Texts all = {".", "..", "A", "a.txt", "b", "C", "dir", "Zed", "_x"};
  EXPECT_EQ(Names(Path() + "/*"), all);
  EXPECT_EQ(find.GetRoot(), Path());
  EXPECT_EQ(Names(Path() + "/*.*"), all);
  EXPECT_EQ(Names(Path() + "/*.TXT"), Texts{"a.txt"});

  Make({"data.bin"}, 1500);
  const timespec times[2] = {{1678025229, 0}, {1678025229, 700}};
  ASSERT_EQ(utimensat(AT_FDCWD, (m_root / "data.bin").c_str(), times, 0), 0);
  ASSERT_TRUE(find.FindFile(Path("data.bin")));  // no wildcard: that one entry
  ASSERT_TRUE(find.Next());
  const LocalFoundEntry file = find.Current();
  EXPECT_EQ(std::tuple(file.name, file.length, file.lastWrite, file.directory),
            std::tuple(wxString("data.bin"), uint64_t{1500}, FileTimeFromUnix(1678025229, 700), false));
  EXPECT_FALSE(find.Next());
  EXPECT_EQ(Names(Path("dir")), Texts{"dir"});
  EXPECT_TRUE(find.Current().directory);
  EXPECT_EQ(find.GetRoot(), Path());
}

TEST_F(LocalTree, CallsReportTheirErrno) {
  Make({"plain", "full/inside"});
  const std::tuple<wxString, int> failures[] = {
      {Path("missing") + "/*", ENOENT}, {Path("plain") + "/*", ENOTDIR}, {Path("nothing.here"), ENOENT}};
  for (const auto& [pattern, error] : failures)
    EXPECT_EQ((std::pair{find.FindFile(pattern), find.LastError()}), std::pair(false, error));
  EXPECT_FALSE(find.FindFile(Path() + "/*.none"));
  EXPECT_EQ((std::pair{CreateLocalDirectory(Path("new")), CreateLocalDirectory(Path("new"))}),
            std::pair(0, EEXIST));
  EXPECT_TRUE(IsDirNotEmpty(RemoveLocalDirectory(Path("full"))));
  EXPECT_EQ(RemoveLocalDirectory(Path("new")), 0);
  EXPECT_EQ((std::pair{DeleteLocalFile(Path("full/inside")), DeleteLocalFile(Path("full/inside"))}),
            std::pair(0, ENOENT));
  // What cannot be read counts as a directory.
  EXPECT_EQ(Texts({LocalPathHasDirectoryAttribute(Path("full")) ? "dir" : "file",
                   LocalPathHasDirectoryAttribute(Path("gone")) ? "dir" : "file",
                   LocalPathHasDirectoryAttribute(Path("plain")) ? "dir" : "file"}),
            Texts({"dir", "dir", "file"}));
}

TEST_F(LocalTree, CollectAndDeleteWalkTheTreeButNeverFollowLinks) {
  // Each folder, then its files, then its sub-folders.
  Make({"top/a.txt", "top/x/b.bin", "top/x/y/c", "top/z.dat", "top/empty/", "keep/precious"});
  fs::create_directory_symlink(m_root, m_root / "top/loop");
  fs::create_directory_symlink(m_root / "keep", m_root / "top/x/link-to-keep");
  std::vector<LocalTreeLine> lines;
  CollectLocalTree(Path("top"), lines);
  Texts joined;
  for (const auto& line : lines) joined.push_back(line.Joined());
  const wxString top = Path("top");
  EXPECT_EQ(joined, (Texts{"|" + top, "a.txt|" + top, "z.dat|" + top, "|" + top + "/empty", "|" + top + "/x",
                           "b.bin|" + top + "/x", "|" + top + "/x/y", "c|" + top + "/x/y"}));

  fs::path deep = "top/deep";
  for (int level = 0; level < 6; ++level) {
    deep /= "level" + std::to_string(level);
    Make({deep / "file.txt", deep / "empty/"}, 10);
  }
  // Silent, and a link goes as a link: what it points to stays. With
  // nothing to enumerate, nothing is done and nothing said.
  Texts messages;
  for (int round = 0; round < 2; ++round)
    EXPECT_EQ(DeleteLocalTree(Path("top"), [&](const wxString& m) { messages.push_back(m); }), 1);
  EXPECT_TRUE(messages.empty());
  EXPECT_FALSE(fs::exists(m_root / "top"));
  EXPECT_TRUE(fs::exists(m_root / "keep/precious"));
}

TEST_F(LocalTree, NamesThatAreNotUtf8KeepTheirBytes) {
  // Latin-1 bytes as an old system wrote them, and a byte that starts no
  // UTF-8 sequence at all: listed, entered, removed and emptied by the
  // names the enumeration gave.
  const std::string file = "caf\xE9.txt", dir = "d\xFF|\\";
  Make({file, fs::path(dir) / "inner"}, 3);
  const wxString fileName = LocalNameFromBytes(file), dirName = LocalNameFromBytes(dir);
  EXPECT_EQ(Names(Path() + "/*"), (Texts{".", "..", fileName, dirName}));
  EXPECT_EQ(LocalPathToBytes(JoinLocalPath(Path(), fileName)), (m_root / file).string());
  EXPECT_EQ(Names(LocalSearchPattern(JoinLocalPath(Path(), dirName))).back(), "inner");
  EXPECT_EQ(DeleteLocalFile(JoinLocalPath(Path(), fileName)), 0);
  Texts messages;
  EXPECT_EQ(
      DeleteLocalTree(JoinLocalPath(Path(), dirName), [&](const wxString& m) { messages.push_back(m); }), 1);
  EXPECT_TRUE(messages.empty());
  EXPECT_TRUE(fs::is_empty(m_root));
}

}  // namespace
}  // namespace ftpzn
