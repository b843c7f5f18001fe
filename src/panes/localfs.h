// The local file system as the panes see it: path rules, a sorted directory
// enumeration, the directory and file calls with errno as the last error,
// and the two tree walks that need no window.
#pragma once

#include <wx/string.h>

#include <cerrno>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace ftpzn {

// "Directory not empty" as rmdir reports it (POSIX allows either).
inline bool IsDirNotEmpty(int error) { return error == ENOTEMPTY || error == EEXIST; }

// Local names are bytes. They are held as the names on the wire are: UTF-8
// decoded, a byte that is not part of valid UTF-8 kept as U+DC80 plus the
// byte, so that every name found can be opened, entered and removed again
// by the exact bytes it has on disk, and a remote name keeps its bytes when
// it becomes a local one.
std::string LocalPathToBytes(const wxString& path);
wxString LocalNameFromBytes(std::string_view bytes);

// dir and name joined by one separator; "/" and "etc" give "/etc".
wxString JoinLocalPath(const wxString& dir, const wxString& name);
// Every "//" replaced by "/" until none is left.
wxString CollapseSeparators(wxString path);
// The path without its trailing "/"; the root stays "/".
wxString WithoutTrailingSeparators(wxString path);
// Whether a name from elsewhere (a server, a queued transfer) may become a
// local file or folder name: no "/", no NUL, not "." or "..", not empty.
bool IsSafeEntryName(const wxString& name);
// The search pattern of a directory: dir followed by "/*", unless it already
// ends in it ("/" gives "/*").
wxString LocalSearchPattern(const wxString& dir);
// A requested path without its trailing separators and "/*" patterns: the
// form a current directory is kept in. The root stays "/"; a name ending in
// '*' keeps it.
wxString StripPatternTail(const wxString& path);
// The parent of a current directory; false for the root and for a text with
// no separator, which have none. The parent of "/a" is "/".
bool LocalParentDirectory(const wxString& dir, wxString& parent);
// Where listings fall back to when the asked directory cannot be read: the
// home directory, then the root.
std::vector<wxString> LocalFallbackDirectories();

// One entry found by the enumeration.
struct LocalFoundEntry {
  wxString name;
  uint64_t length = 0;
  uint64_t lastWrite = 0;  // file time, UTC
  bool directory = false;  // follows symbolic links
  bool link = false;
};

// A directory enumeration. The pattern is a directory followed by "/" and a
// mask: "*" and "*.*" match every name, other masks with '*' or '?' match
// without regard to case, and a mask without a wildcard finds that one
// entry. Names come sorted by their upper-cased form, "." and ".." included,
// since the panes expect the order and the entries of the first platform's
// file system rather than readdir's arbitrary order.
class LocalFileFind {
 public:
  // False when nothing is found; LastError() then holds the errno.
  bool FindFile(const wxString& pattern);
  // Steps to the next entry; false after the last.
  bool Next();
  const LocalFoundEntry& Current() const { return m_entries[m_index]; }
  bool IsDots() const;
  // The directory part of the pattern.
  const wxString& GetRoot() const { return m_root; }
  int LastError() const { return m_error; }
  size_t Count() const { return m_entries.size(); }
  void Close();

 private:
  std::vector<LocalFoundEntry> m_entries;
  size_t m_index = static_cast<size_t>(-1);
  wxString m_root;
  int m_error = 0;
};

// The entry at `path` itself, whatever its name holds (no pattern): a link
// as what it leads to, a dangling one as the link. False when there is none.
bool StatLocalPath(const wxString& path, LocalFoundEntry& entry);

// The kernel calls, each returning 0 or the errno of the failure.
int CreateLocalDirectory(const wxString& path);
// A symbolic link is removed itself, as removing a linked directory removed
// the link on the first platform.
int RemoveLocalDirectory(const wxString& path);
int DeleteLocalFile(const wxString& path);
// Whether a path has the directory attribute. A path whose attributes cannot
// be read answers true, as the first platform's all-bits-set answer did.
bool LocalPathHasDirectoryAttribute(const wxString& path);

using MessageSink = std::function<void(const wxString&)>;

// Removes a directory with everything in it: files while enumerating, empty
// sub-directories in the same pass, non-empty ones depth first after the
// parent's enumeration is closed. Failures to delete a file or to remove the
// directory itself are told to `report`; the result is always 1.
int DeleteLocalTree(const wxString& path, const MessageSink& report);

// One line of a collected tree: a folder's own line has an empty name.
struct LocalTreeLine {
  wxString name;
  wxString folder;
  // "|folder" or "name|folder".
  wxString Joined() const { return name + "|" + folder; }
};
// Every folder contributes its own line, then its files, then its
// sub-folders' lines, depth first. Linked directories are not entered, so a
// link cycle cannot make the walk endless.
void CollectLocalTree(const wxString& folder, std::vector<LocalTreeLine>& lines);

}  // namespace ftpzn
