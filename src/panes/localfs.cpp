#include "panes/localfs.h"

#include <dirent.h>
#include <fcntl.h>
#include <fnmatch.h>
#include <sys/stat.h>
#include <unistd.h>
#include <wx/utils.h>

#include <algorithm>
#include <memory>

#include "inet/wirename.h"
#include "panes/filetexts.h"

namespace ftpzn {
namespace {

std::string Bytes(const wxString& path) { return LocalPathToBytes(path); }

bool MaskMatchesAll(const wxString& mask) { return mask == "*" || mask == "*.*"; }
bool HasWildcard(const wxString& mask) { return mask.find_first_of("*?") != wxString::npos; }

struct DirCloser {
  void operator()(DIR* dir) const { closedir(dir); }
};

bool StatEntry(int dirFd, const char* name, LocalFoundEntry& entry) {
  struct stat st {};
  struct stat lst {};
  if (fstatat(dirFd, name, &lst, AT_SYMLINK_NOFOLLOW) != 0) return false;
  entry.link = S_ISLNK(lst.st_mode);
  // A dangling link is shown as the link itself.
  if (!entry.link || fstatat(dirFd, name, &st, 0) != 0) st = lst;
  entry.directory = S_ISDIR(st.st_mode);
  entry.length = static_cast<uint64_t>(st.st_size);
  entry.lastWrite = FileTimeFromUnix(st.st_mtim.tv_sec, st.st_mtim.tv_nsec);
  return true;
}

}  // namespace

std::string LocalPathToBytes(const wxString& path) { return inet::WideToWire(path.ToStdWstring()); }

wxString LocalNameFromBytes(std::string_view bytes) { return wxString(inet::WireToWide(bytes)); }

wxString JoinLocalPath(const wxString& dir, const wxString& name) {
  if (dir.EndsWith("/")) return dir + name;
  return dir + "/" + name;
}

wxString CollapseSeparators(wxString path) {
  while (path.Replace("//", "/") > 0) {
  }
  return path;
}

wxString WithoutTrailingSeparators(wxString path) {
  while (path.length() > 1 && path.EndsWith("/")) path.RemoveLast();
  return path;
}

bool IsSafeEntryName(const wxString& name) {
  return !name.empty() && name != "." && name != ".." && name.find('/') == wxString::npos &&
         name.find(wxUniChar(0)) == wxString::npos;
}

wxString LocalSearchPattern(const wxString& dir) {
  if (dir.EndsWith("/*")) return dir;
  return JoinLocalPath(dir, "*");
}

wxString StripPatternTail(const wxString& path) {
  // Trailing separators and the "*" of a "/*" pattern go; a '*' that ends a
  // name stays, since here (unlike on the first platform) a name may end in
  // one, and dropping it would make the current directory another folder.
  size_t end = path.length();
  while (end > 0 && (path[end - 1] == '/' || (path[end - 1] == '*' && end >= 2 && path[end - 2] == '/')))
    --end;
  if (end == 0 && path.StartsWith("/")) return "/";
  return path.Left(end);
}

bool LocalParentDirectory(const wxString& dir, wxString& parent) {
  if (dir == "/") return false;
  const int slash = dir.Find('/', true);
  if (slash == wxNOT_FOUND) return false;
  parent = slash == 0 ? wxString("/") : dir.Left(slash);
  return true;
}

std::vector<wxString> LocalFallbackDirectories() { return {wxGetHomeDir(), "/"}; }

bool LocalFileFind::FindFile(const wxString& pattern) {
  Close();
  const int slash = pattern.Find('/', true);
  wxString mask;
  if (slash == wxNOT_FOUND) {
    mask = pattern;
  } else {
    m_root = slash == 0 ? wxString("/") : pattern.Left(slash);
    mask = pattern.Mid(slash + 1);
  }
  if (mask.empty()) {
    m_error = ENOENT;
    return false;
  }
  const std::string root = m_root.empty() ? std::string(".") : Bytes(m_root);
  if (!HasWildcard(mask)) {
    LocalFoundEntry entry;
    const int dirFd = open(root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dirFd < 0) {
      m_error = errno;
      return false;
    }
    const bool found = StatEntry(dirFd, Bytes(mask).c_str(), entry);
    m_error = found ? 0 : errno;
    close(dirFd);
    if (!found) return false;
    entry.name = mask;
    m_entries.push_back(std::move(entry));
    return true;
  }
  std::unique_ptr<DIR, DirCloser> dir(opendir(root.c_str()));
  if (!dir) {
    m_error = errno;
    return false;
  }
  const bool all = MaskMatchesAll(mask);
  const std::string maskBytes = Bytes(mask);
  const int dirFd = dirfd(dir.get());
  std::vector<std::pair<wxString, LocalFoundEntry>> keyed;
  errno = 0;
  while (dirent* d = readdir(dir.get())) {
    if (!all && fnmatch(maskBytes.c_str(), d->d_name, FNM_CASEFOLD) != 0) continue;
    LocalFoundEntry entry;
    // An entry that vanished between readdir and stat is skipped.
    if (!StatEntry(dirFd, d->d_name, entry)) continue;
    entry.name = LocalNameFromBytes(d->d_name);
    wxString key = entry.name.Upper();
    keyed.emplace_back(std::move(key), std::move(entry));
    errno = 0;
  }
  std::sort(keyed.begin(), keyed.end(), [](const auto& a, const auto& b) {
    const int byKey = a.first.compare(b.first);
    return byKey != 0 ? byKey < 0 : a.second.name < b.second.name;
  });
  m_entries.reserve(keyed.size());
  for (auto& [key, entry] : keyed) m_entries.push_back(std::move(entry));
  if (m_entries.empty()) {
    m_error = ENOENT;
    return false;
  }
  m_error = 0;
  return true;
}

bool LocalFileFind::Next() {
  if (m_index == static_cast<size_t>(-1)) {
    m_index = 0;
  } else if (m_index < m_entries.size()) {
    ++m_index;
  }
  return m_index < m_entries.size();
}

bool LocalFileFind::IsDots() const {
  const wxString& name = Current().name;
  return name == "." || name == "..";
}

void LocalFileFind::Close() {
  m_entries.clear();
  m_index = static_cast<size_t>(-1);
  m_root.clear();
}

bool StatLocalPath(const wxString& path, LocalFoundEntry& entry) {
  if (!StatEntry(AT_FDCWD, Bytes(path).c_str(), entry)) return false;
  const int slash = path.Find('/', true);
  entry.name = slash == wxNOT_FOUND ? path : path.Mid(static_cast<size_t>(slash) + 1);
  return true;
}

int CreateLocalDirectory(const wxString& path) { return mkdir(Bytes(path).c_str(), 0777) == 0 ? 0 : errno; }

int RemoveLocalDirectory(const wxString& path) {
  const std::string bytes = Bytes(path);
  struct stat st {};
  if (lstat(bytes.c_str(), &st) == 0 && S_ISLNK(st.st_mode)) return unlink(bytes.c_str()) == 0 ? 0 : errno;
  return rmdir(bytes.c_str()) == 0 ? 0 : errno;
}

int DeleteLocalFile(const wxString& path) { return unlink(Bytes(path).c_str()) == 0 ? 0 : errno; }

bool LocalPathHasDirectoryAttribute(const wxString& path) {
  struct stat st {};
  if (stat(Bytes(path).c_str(), &st) != 0) return true;
  return S_ISDIR(st.st_mode);
}

int DeleteLocalTree(const wxString& path, const MessageSink& report) {
  wxString base = path;
  while (base.EndsWith("/")) base.RemoveLast();
  base = CollapseSeparators(base + "/");
  LocalFileFind find;
  if (!find.FindFile(base + "*")) return 1;
  std::vector<wxString> nonEmpty;
  while (find.Next()) {
    if (find.IsDots()) continue;
    const wxString full = base + find.Current().name;
    if (find.Current().directory) {
      // Empty sub-directories go now; others once this enumeration is over.
      if (IsDirNotEmpty(RemoveLocalDirectory(full))) nonEmpty.push_back(full);
    } else if (const int error = DeleteLocalFile(full)) {
      report(wxString::Format("Delete file:%s error:%d", full, error));
    }
  }
  find.Close();
  for (const wxString& dir : nonEmpty) {
    if (DeleteLocalTree(dir, report) == 0) return 0;
  }
  if (const int error = RemoveLocalDirectory(path)) {
    if (IsDirNotEmpty(error)) {
      report(wxString::Format("Directory:%s is not empty!", path));
    } else {
      report(wxString::Format("Remove directory:%s error:%d", path, error));
    }
  }
  return 1;
}

void CollectLocalTree(const wxString& folder, std::vector<LocalTreeLine>& lines) {
  lines.push_back({wxString(), folder});
  LocalFileFind find;
  std::vector<wxString> subFolders;
  if (find.FindFile(JoinLocalPath(folder, "*.*"))) {
    while (find.Next()) {
      if (find.IsDots()) continue;
      const LocalFoundEntry& entry = find.Current();
      if (entry.directory) {
        if (!entry.link) subFolders.push_back(entry.name);
      } else {
        lines.push_back({entry.name, folder});
      }
    }
  }
  find.Close();
  for (const wxString& name : subFolders) CollectLocalTree(JoinLocalPath(folder, name), lines);
}

}  // namespace ftpzn
