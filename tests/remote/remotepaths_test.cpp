#include "panes/remotepaths.h"

#include <gtest/gtest.h>

namespace ftpzn {
namespace {

using namespace std::string_literals;

TEST(RemotePaths, ParentOfAServerPath) {
  EXPECT_EQ(RemoteParentDirectory("/pub/data"), "/pub");
  EXPECT_EQ(RemoteParentDirectory("/pub"), "/");
  EXPECT_EQ(RemoteParentDirectory("/"), "/");
  EXPECT_EQ(RemoteParentDirectory("pub"), "");
  EXPECT_EQ(RemoteParentDirectory("/pub/"), "/pub");
}

TEST(RemotePaths, ChangeDirectoryIsBuiltWithBackslashes) {
  EXPECT_EQ(RemoteChangeDirectoryPath("/pub", "incoming"), "/pub\\incoming\\*");
  EXPECT_EQ(RemoteChangeDirectoryPath("/pub", "incoming\\"), "/pub\\incoming\\*");
  EXPECT_EQ(RemoteChangeDirectoryPath("/pub", "\\x\\*"), "/pub\\x\\*");
  EXPECT_EQ(RemoteChangeDirectoryPath("/pub", "a\\\\\\\\b"), "/pub\\a\\b\\*");
  EXPECT_EQ(RemoteChangeDirectoryPath("/", "sub/dir"), "/\\sub/dir\\*");
}

TEST(RemotePaths, NewDirectoryCollapsesDoubledSlashes) {
  EXPECT_EQ(RemoteNewDirectoryPath("/pub", "fresh"), "/pub/fresh");
  EXPECT_EQ(RemoteNewDirectoryPath("/", "fresh"), "/fresh");
  EXPECT_EQ(RemoteNewDirectoryPath("/pub", "///x//y"), "/pub/x/y");
}

TEST(RemotePaths, SaveListAppendsDocUnlessDocOrTxtOccurs) {
  EXPECT_EQ(SaveListFilePath("/tmp/list"), "/tmp/list.doc");
  EXPECT_EQ(SaveListFilePath("/tmp/list.doc"), "/tmp/list.doc");
  EXPECT_EQ(SaveListFilePath("/tmp/a.txt.bak"), "/tmp/a.txt.bak");
  EXPECT_EQ(SaveListFilePath("/tmp/x.docs/list"), "/tmp/x.docs/list");
  EXPECT_EQ(SaveListFilePath("/tmp/list.DOC"), "/tmp/list.DOC.doc");
}

TEST(RemotePaths, SaveListWritesHalfOfEachNamesUtf16) {
  EXPECT_EQ(SaveListEntryBytes("abc"), "a\0b\0"s);
  EXPECT_EQ(SaveListEntryBytes("long5"), "l\0o\0n\0"s);
  EXPECT_EQ(SaveListEntryBytes("x"), "x\0"s);
  // One character of two UTF-16 units counts as two.
  EXPECT_EQ(SaveListEntryBytes(wxString::FromUTF8("\xf0\x9f\x98\x80")), "\x3d\xd8\x00"s);
  EXPECT_EQ(SaveListEntryBytes(wxString::FromUTF8("\xc3\xa9")), "\xe9\x00"s);
  EXPECT_EQ(SaveListEntryBytes(""), "\n"s);
  // A server byte that is no UTF-8 comes as one unit of its own (U+DC80 plus
  // the byte, here 0xFF) and is counted and written like any other.
  EXPECT_EQ(SaveListEntryBytes(wxString(L"a\xDD7F")), "a\0\x7f"s);
  EXPECT_EQ(SaveListEntryBytes(wxString(L"\xDD7Fz")), "\x7f\xdd\x7a"s);
}

}  // namespace
}  // namespace ftpzn
