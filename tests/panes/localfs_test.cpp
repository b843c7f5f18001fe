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
#include "temp_tree.h"
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
      {cet, at(2023, 7, 1, 12, 0, 0), "23/07/01/14/00/00"},
      {"UTC0", MakeParentItem().time, "70/01/01/00/00/00"},
      {"UTC0", at(1850, 6, 1, 0, 0, 0), "70/01/01/00/00/00"},
      {"UTC0", at(1969, 6, 1, 0, 0, 0), nullptr},
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
      // A folder whose name ends in '*' stays that folder.
      {StripPatternTail, "/data/star*/*", "/data/star*"},
      {StripPatternTail, "/data/star**/", "/data/star**"},
      {StripPatternTail, "/data/in//", "/data/in"},
      {LocalSearchPattern, "/data/star*", "/data/star*/*"},
      // Bytes that are not UTF-8 show as replacement characters.
      {DisplayText, latin, wxString(L"c\uFFFD.txt")},
      {DisplayText, "plain", "plain"},
      {DisplayText, wxString(std::wstring(1, wchar_t(0xDCFF))), wxString(L"\uFFFD")}};
  for (const auto& [rule, name, text] : types) EXPECT_EQ(rule(name), text) << name;
}

class LocalTree : public testing::Test, public ftpzn::test::TempTree {
 protected:
  Texts Names(const wxString& pattern) {
    Texts names;
    for (bool found = find.FindFile(pattern); found && find.Next();) names.push_back(find.Current().name);
    return names;
  }

  LocalFileFind find;
};

// What a folder dropped on the remote pane collects: each folder, then its
// files, then its sub-folders; a link to a folder is never entered.
TEST_F(LocalTree, CollectListsEachFolderThenItsFilesThenSubFolders) {
  Make({"top/a.txt", "top/x/b.bin", "top/x/y/c", "top/z.dat", "top/empty/"});
  std::filesystem::create_directory_symlink(m_root, m_root / "top/loop");
  std::vector<LocalTreeLine> lines;
  CollectLocalTree(Path("top"), lines);
  Texts joined;
  for (const auto& line : lines) joined.push_back(line.Joined());
  const wxString top = Path("top");
  EXPECT_EQ(joined, (Texts{"|" + top, "a.txt|" + top, "z.dat|" + top, "|" + top + "/empty", "|" + top + "/x",
                           "b.bin|" + top + "/x", "|" + top + "/x/y", "c|" + top + "/x/y"}));
}

// The errors of the calls that change the tree show in the pane's
// messages, checked there.
TEST_F(LocalTree, PatternsEntriesAndErrors) {
  // Patterns match without case; a name without a wildcard is that one
  // entry, with its time to the nanosecond.
  Make({"b", "a.txt", "dir/", "_x", "Zed"});
  // '_' sorts after 'Z' once names are upper-cased.
  EXPECT_EQ(Names(Path() + "/*.*"), (Texts{".", "..", "a.txt", "b", "dir", "Zed", "_x"}));
  EXPECT_EQ(Names(Path() + "/*.TXT"), Texts{"a.txt"});
  Make({"data.bin"}, 1500);
  const timespec times[2] = {{1678025229, 0}, {1678025229, 700}};
  ASSERT_EQ(utimensat(AT_FDCWD, (m_root / "data.bin").c_str(), times, 0), 0);
  ASSERT_TRUE(find.FindFile(Path("data.bin")) && find.Next());
  EXPECT_EQ(std::tuple(find.Current().name, find.Current().length, find.Current().lastWrite, find.GetRoot()),
            std::tuple(wxString("data.bin"), uint64_t{1500}, FileTimeFromUnix(1678025229, 700), Path()));
  EXPECT_FALSE(find.Next());
  EXPECT_EQ(Names(Path("dir")), Texts{"dir"});
  EXPECT_TRUE(find.Current().directory);
  Make({"plain"});
  const std::tuple<wxString, int> failures[] = {
      {Path("missing") + "/*", ENOENT}, {Path("plain") + "/*", ENOTDIR}, {Path("nothing.here"), ENOENT}};
  for (const auto& [pattern, error] : failures)
    EXPECT_EQ((std::pair{find.FindFile(pattern), find.LastError()}), std::pair(false, error));
  EXPECT_EQ((std::pair{find.FindFile(Path() + "/*.none"), find.LastError()}), std::pair(false, ENOENT));
  // A name that is not UTF-8 keeps its bytes on the way back to the system.
  Make({"caf\xE9.txt"});
  const wxString latin = JoinLocalPath(Path(), LocalNameFromBytes("caf\xE9.txt"));
  EXPECT_EQ(LocalPathToBytes(latin), (m_root / "caf\xE9.txt").string());
  EXPECT_EQ(DeleteLocalFile(latin), 0);
}

}  // namespace
}  // namespace ftpzn
