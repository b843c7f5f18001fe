#include "panes/localfs.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "panes/filetexts.h"

namespace ftpzn {
namespace {

namespace fs = std::filesystem;

TEST(LocalPath, JoinNeverDoublesTheSeparator) {
  EXPECT_EQ(JoinLocalPath("/", "etc"), "/etc");
  EXPECT_EQ(JoinLocalPath("/data", "in"), "/data/in");
  EXPECT_EQ(JoinLocalPath("/data/", "in"), "/data/in");
}

TEST(LocalPath, PatternAndStrippingAtTheRootAndBelow) {
  EXPECT_EQ(LocalSearchPattern("/"), "/*");
  EXPECT_EQ(LocalSearchPattern("/data"), "/data/*");
  EXPECT_EQ(LocalSearchPattern("/data/*"), "/data/*");
  EXPECT_EQ(StripPatternTail("/*"), "/");
  EXPECT_EQ(StripPatternTail("/"), "/");
  EXPECT_EQ(StripPatternTail("//*"), "/");
  EXPECT_EQ(StripPatternTail("/data/in/*"), "/data/in");
  EXPECT_EQ(StripPatternTail("/data/in//"), "/data/in");
  EXPECT_EQ(StripPatternTail("/data/in"), "/data/in");
  EXPECT_EQ(StripPatternTail("/data/in/*/*"), "/data/in");
  // A folder whose name ends in '*' stays that folder.
  EXPECT_EQ(StripPatternTail("/data/star*"), "/data/star*");
  EXPECT_EQ(StripPatternTail("/data/star*/*"), "/data/star*");
  EXPECT_EQ(StripPatternTail("/data/star**/"), "/data/star**");
  EXPECT_EQ(CollapseSeparators("/data///in//x/"), "/data/in/x/");
  // Change Directory's path: the typed text joined by one separator, the
  // pattern added, doubled separators collapsed.
  EXPECT_EQ(CollapseSeparators(LocalSearchPattern("/data/sub/")), "/data/sub/*");
  EXPECT_EQ(CollapseSeparators(LocalSearchPattern("/data//x")), "/data/x/*");
}

TEST(LocalPath, ParentStopsAtTheRoot) {
  wxString parent;
  EXPECT_FALSE(LocalParentDirectory("/", parent));
  EXPECT_FALSE(LocalParentDirectory("relative", parent));
  ASSERT_TRUE(LocalParentDirectory("/data", parent));
  EXPECT_EQ(parent, "/");
  ASSERT_TRUE(LocalParentDirectory("/data/in", parent));
  EXPECT_EQ(parent, "/data");
}

class LocalTree : public testing::Test {
 protected:
  void SetUp() override {
    char pattern[] = "/tmp/ftpzn-localfs-XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    m_root = pattern;
  }
  void TearDown() override {
    std::error_code ec;
    fs::remove_all(m_root, ec);
  }
  void File(const fs::path& relative, size_t bytes = 0) {
    fs::create_directories((m_root / relative).parent_path());
    std::ofstream(m_root / relative) << std::string(bytes, 'x');
  }
  wxString Path(const fs::path& relative = {}) const {
    return wxString::FromUTF8((relative.empty() ? m_root : m_root / relative).string());
  }
  static std::vector<wxString> Names(LocalFileFind& find) {
    std::vector<wxString> names;
    while (find.Next()) names.push_back(find.Current().name);
    return names;
  }

  fs::path m_root;
};

TEST_F(LocalTree, EnumerationIsSortedByUpperCasedName) {
  for (const char* name : {"b", "A", "a.txt", "C", "_x", "Zed"}) File(name);
  fs::create_directory(m_root / "dir");
  LocalFileFind find;
  ASSERT_TRUE(find.FindFile(Path() + "/*"));
  EXPECT_EQ(find.GetRoot(), Path());
  // '_' sorts after 'Z' once names are upper-cased.
  const std::vector<wxString> expected = {".", "..", "A", "a.txt", "b", "C", "dir", "Zed", "_x"};
  EXPECT_EQ(Names(find), expected);
  ASSERT_TRUE(find.FindFile(Path() + "/*.*"));
  EXPECT_EQ(Names(find).size(), expected.size());
  ASSERT_TRUE(find.FindFile(Path() + "/*.TXT"));
  EXPECT_EQ(Names(find), std::vector<wxString>{"a.txt"});
}

TEST_F(LocalTree, EntryCarriesSizeTimeAndKind) {
  File("data.bin", 1500);
  fs::create_directory(m_root / "sub");
  const timespec times[2] = {{1678025229, 0}, {1678025229, 700}};
  ASSERT_EQ(utimensat(AT_FDCWD, (m_root / "data.bin").c_str(), times, 0), 0);
  LocalFileFind find;
  ASSERT_TRUE(find.FindFile(Path("data.bin")));  // no wildcard: that one entry
  ASSERT_TRUE(find.Next());
  EXPECT_EQ(find.Current().name, "data.bin");
  EXPECT_EQ(find.Current().length, 1500u);
  EXPECT_EQ(find.Current().lastWrite, FileTimeFromUnix(1678025229, 700));
  EXPECT_FALSE(find.Current().directory);
  EXPECT_FALSE(find.Next());
  ASSERT_TRUE(find.FindFile(Path("sub")));
  ASSERT_TRUE(find.Next());
  EXPECT_TRUE(find.Current().directory);
  EXPECT_EQ(find.GetRoot(), Path());
}

TEST_F(LocalTree, FailuresGiveTheErrno) {
  File("plain");
  LocalFileFind find;
  EXPECT_FALSE(find.FindFile(Path("missing") + "/*"));
  EXPECT_EQ(find.LastError(), ENOENT);
  EXPECT_FALSE(find.FindFile(Path("plain") + "/*"));
  EXPECT_EQ(find.LastError(), ENOTDIR);
  EXPECT_FALSE(find.FindFile(Path("nothing.here")));
  EXPECT_EQ(find.LastError(), ENOENT);
  EXPECT_FALSE(find.FindFile(Path() + "/*.none"));
}

TEST_F(LocalTree, DirectoryCallsReportErrno) {
  File("full/inside");
  EXPECT_EQ(CreateLocalDirectory(Path("new")), 0);
  EXPECT_EQ(CreateLocalDirectory(Path("new")), EEXIST);
  EXPECT_TRUE(IsDirNotEmpty(RemoveLocalDirectory(Path("full"))));
  EXPECT_EQ(RemoveLocalDirectory(Path("new")), 0);
  EXPECT_EQ(DeleteLocalFile(Path("full/inside")), 0);
  EXPECT_EQ(DeleteLocalFile(Path("full/inside")), ENOENT);
  EXPECT_TRUE(LocalPathHasDirectoryAttribute(Path("full")));
  EXPECT_TRUE(LocalPathHasDirectoryAttribute(Path("gone")));  // unreadable counts as a directory
  File("f");
  EXPECT_FALSE(LocalPathHasDirectoryAttribute(Path("f")));
}

TEST_F(LocalTree, CollectListsEachFolderThenItsFilesThenSubFolders) {
  File("top/a.txt");
  File("top/x/b.bin");
  File("top/x/y/c");
  File("top/z.dat");
  fs::create_directory(m_root / "top/empty");
  fs::create_directory_symlink(m_root, m_root / "top/loop");  // never entered
  std::vector<LocalTreeLine> lines;
  CollectLocalTree(Path("top"), lines);
  std::vector<wxString> joined;
  for (const auto& line : lines) joined.push_back(line.Joined());
  const wxString top = Path("top");
  const std::vector<wxString> expected = {
      "|" + top,        "a.txt|" + top,        "z.dat|" + top,     "|" + top + "/empty",
      "|" + top + "/x", "b.bin|" + top + "/x", "|" + top + "/x/y", "c|" + top + "/x/y",
  };
  EXPECT_EQ(joined, expected);
}

TEST_F(LocalTree, DeleteTreeRemovesADeepTreeSilently) {
  fs::path deep = "victim";
  for (int level = 0; level < 6; ++level) {
    deep /= "level" + std::to_string(level);
    File(deep / "file.txt", 10);
    fs::create_directories(m_root / deep / "empty");
  }
  File("keep/precious");
  fs::create_directory_symlink(m_root / "keep", m_root / "victim/link-to-keep");
  std::vector<wxString> messages;
  EXPECT_EQ(DeleteLocalTree(Path("victim"), [&](const wxString& m) { messages.push_back(m); }), 1);
  EXPECT_TRUE(messages.empty());
  EXPECT_FALSE(fs::exists(m_root / "victim"));
  // A link is removed as a link: what it points to stays.
  EXPECT_TRUE(fs::exists(m_root / "keep/precious"));
  // Nothing to enumerate: nothing done, nothing said.
  EXPECT_EQ(DeleteLocalTree(Path("victim"), [&](const wxString& m) { messages.push_back(m); }), 1);
  EXPECT_TRUE(messages.empty());
}

TEST_F(LocalTree, NamesThatAreNotUtf8KeepTheirBytes) {
  // Latin-1 bytes as an old system wrote them, and a byte that starts no
  // UTF-8 sequence at all.
  const std::string file = "caf\xE9.txt";
  const std::string dir = "d\xFF|\\";
  File(file, 3);
  File(fs::path(dir) / "inner", 1);
  LocalFileFind find;
  ASSERT_TRUE(find.FindFile(Path() + "/*"));
  std::vector<wxString> names = Names(find);
  ASSERT_EQ(names.size(), 4u);
  const wxString fileName = LocalNameFromBytes(file);
  const wxString dirName = LocalNameFromBytes(dir);
  EXPECT_EQ(names[2], fileName);
  EXPECT_EQ(names[3], dirName);
  EXPECT_EQ(LocalPathToBytes(JoinLocalPath(Path(), fileName)), (m_root / file).string());
  EXPECT_EQ(ShellTypeText(fileName), "TXT File");
  // Entered, removed and emptied by the names the enumeration gave.
  ASSERT_TRUE(find.FindFile(LocalSearchPattern(JoinLocalPath(Path(), dirName))));
  EXPECT_EQ(Names(find).back(), "inner");
  EXPECT_EQ(DeleteLocalFile(JoinLocalPath(Path(), fileName)), 0);
  std::vector<wxString> messages;
  EXPECT_EQ(
      DeleteLocalTree(JoinLocalPath(Path(), dirName), [&](const wxString& m) { messages.push_back(m); }), 1);
  EXPECT_TRUE(messages.empty());
  EXPECT_TRUE(fs::is_empty(m_root));
}

}  // namespace
}  // namespace ftpzn
