#include "connection/treewalk.h"

#include <wx/arrstr.h>

#include "inet/inet.h"
#include "panes/localfs.h"

namespace ftpzn {
namespace {

constexpr uintptr_t kFindContext = 1;

int LastError() { return static_cast<int>(inet::GetLastError()); }

// Whether a relative directory has a "." or ".." step: the set-trim can cut
// a name such as "b.." down to "..", which would lead out of the base.
bool LeavesBase(const wxString& relative) {
  for (const wxString& step : wxSplit(relative, '/', 0)) {
    if (step == "." || step == "..") return true;
  }
  return false;
}

// One directory of the remote walk, waiting for its sub-directories.
struct RemoteFrame {
  wxString path;
  std::wstring remembered;
  std::vector<wxString> subdirectories;
  size_t next = 0;
  bool failed = false;
};

// Holds the queue for the life of an expansion, whatever way it ends.
class Hold {
 public:
  explicit Hold(TransferQueue& queue) : m_queue(queue) { m_queue.m_bHold = 1; }
  ~Hold() { m_queue.m_bHold = 0; }
  Hold(const Hold&) = delete;
  Hold& operator=(const Hold&) = delete;

 private:
  TransferQueue& m_queue;
};

}  // namespace

wxString TrimLeadingCharsOf(const wxString& text, const wxString& set) {
  size_t at = 0;
  while (at < text.length() && set.find(text[at]) != wxString::npos) ++at;
  return text.Mid(at);
}

int RemoteTreeWalk(inet::CFtpConnection* connection, const wxString& start, std::vector<TreeEntry>& entries,
                   TreeWalkObserver& observer, bool* cancelled) {
  if (cancelled) *cancelled = false;
  if (!connection) return 0;
  // Frames on the heap instead of recursion: no tree is too deep.
  std::vector<RemoteFrame> frames;
  bool stopped = false;
  // The walk of one directory up to its sub-directories; false when that
  // walk returns 0 there (or the user stopped everything).
  auto enter = [&](const wxString& path) {
    if (!observer.Continue(path, entries.size())) {
      stopped = true;
      return false;
    }
    std::wstring remembered;
    if (!connection->GetCurrentDirectory(remembered)) {
      // The message always had the error number for its only value.
      const int error = LastError();
      observer.Message(
          wxString::Format("Get previous dir:%s error:%d ", wxString::Format("%d", error), error));
      return false;
    }
    entries.push_back({path, "/", 0});
    if (!connection->SetCurrentDirectory(path.ToStdWstring())) {
      observer.Message(wxString::Format("Set current directory error:%d", LastError()));
      return false;
    }
    inet::CFtpFileFind find(connection, kFindContext);
    if (!find.FindFile(nullptr, inet::INTERNET_FLAG_RELOAD)) {
      observer.Message(wxString::Format("find:%s error:%d", path + "/*", LastError()));
      return false;
    }
    RemoteFrame frame;
    frame.path = path;
    frame.remembered = remembered;
    for (bool more = true; more;) {
      more = find.FindNextFile();
      const wxString name(find.GetFileName());
      if (find.IsDots()) continue;
      if (!IsSafeEntryName(name)) {
        observer.Trace(wxString::Format("Skipped \"%s\" in %s: not a name a file can have here", name, path));
        continue;
      }
      if (find.IsDirectory())
        frame.subdirectories.push_back(name);
      else
        entries.push_back({path + "/", name, static_cast<uint32_t>(find.GetLength())});
    }
    find.Close();
    frames.push_back(std::move(frame));
    return true;
  };

  if (!enter(start)) {
    if (cancelled) *cancelled = stopped;
    return 0;
  }
  int result = 0;
  while (!frames.empty()) {
    const size_t top = frames.size() - 1;
    if (!frames[top].failed && frames[top].next < frames[top].subdirectories.size()) {
      const wxString child = frames[top].path + "/" + frames[top].subdirectories[frames[top].next++];
      if (!enter(child)) {
        if (stopped) break;
        // The rest of this directory's sub-directories is not walked.
        frames[top].failed = true;
      }
      continue;
    }
    const RemoteFrame done = std::move(frames[top]);
    frames.pop_back();
    connection->SetCurrentDirectory(done.remembered.empty() ? std::wstring(L"/") : done.remembered);
    result = done.failed ? 0 : 1;
    if (done.failed && !frames.empty()) frames.back().failed = true;
  }
  if (stopped) {
    // Back where the walk began, so the pane and the server agree.
    connection->SetCurrentDirectory(frames.front().remembered.empty() ? std::wstring(L"/")
                                                                      : frames.front().remembered);
    if (cancelled) *cancelled = true;
    return 0;
  }
  return result;
}

void LocalTreeWalk(const wxString& start, std::vector<TreeEntry>& entries, TreeWalkObserver& observer,
                   bool* cancelled) {
  if (cancelled) *cancelled = false;
  // Directories still to walk, the next on top: the same order as walking
  // each sub-directory in turn, without recursion.
  std::vector<wxString> pending{start};
  while (!pending.empty()) {
    wxString path = WithoutTrailingSeparators(pending.back());
    pending.pop_back();
    if (!observer.Continue(path, entries.size())) {
      if (cancelled) *cancelled = true;
      return;
    }
    entries.push_back({path, "/", 0});
    if (!path.EndsWith("/")) path += "/";
    LocalFileFind find;
    const wxString pattern = path + "*";
    if (!find.FindFile(pattern)) {
      observer.Message(wxString::Format("Find file :%s error:%d", pattern, find.LastError()));
      continue;
    }
    std::vector<wxString> subdirectories;
    while (find.Next()) {
      if (find.IsDots()) continue;
      const LocalFoundEntry& found = find.Current();
      if (found.directory && found.link) {
        observer.Trace(
            wxString::Format("Skipped the link %s%s: links to folders are not followed", path, found.name));
      } else if (found.directory) {
        subdirectories.push_back(found.name);
      } else {
        entries.push_back({path, found.name, static_cast<uint32_t>(found.length)});
      }
    }
    find.Close();
    for (auto it = subdirectories.rbegin(); it != subdirectories.rend(); ++it)
      pending.push_back(path + *it + "/");
  }
}

bool DownloadRemoteDirectory(inet::CFtpConnection* connection, TransferQueue& queue, const TransferSite& site,
                             const wxString& remotePath, const wxString& localBase,
                             TreeWalkObserver& observer) {
  Hold hold(queue);
  std::vector<TreeEntry> entries;
  bool cancelled = false;
  RemoteTreeWalk(connection, remotePath, entries, observer, &cancelled);
  if (cancelled) return false;
  // What the walk found before a failure is still made and queued.
  for (const TreeEntry& entry : entries) {
    const wxString remoteDir = CollapseSeparators("/" + entry.directory + "/");
    const wxString relative = TrimLeadingCharsOf(entry.directory, remotePath);
    if (LeavesBase(relative)) {
      observer.Trace(wxString::Format("Skipped %s%s: it would lie outside %s", entry.directory,
                                      entry.IsDirectory() ? wxString() : entry.name, localBase));
      continue;
    }
    const wxString localDir = CollapseSeparators(localBase + "/" + relative + "/");
    if (entry.IsDirectory())
      CreateLocalDirectory(WithoutTrailingSeparators(localDir));  // there already, or not: either way on
    else
      queue.AddDownload(
          site.ArgsFor(entry.name, localDir, remoteDir, entry.size, inet::FTP_TRANSFER_TYPE_BINARY));
  }
  return true;
}

bool UploadLocalDirectory(inet::CFtpConnection* connection, TransferQueue& queue, const TransferSite& site,
                          const wxString& localPath, const wxString& remoteBase, TreeWalkObserver& observer) {
  Hold hold(queue);
  const wxString base = WithoutTrailingSeparators(localPath) == "/"
                            ? wxString("/")
                            : WithoutTrailingSeparators(localPath) + "/";
  std::vector<TreeEntry> entries;
  bool cancelled = false;
  LocalTreeWalk(base, entries, observer, &cancelled);
  if (cancelled) return false;
  for (const TreeEntry& entry : entries) {
    const wxString localDir = CollapseSeparators("/" + entry.directory + "/");
    const wxString relative = TrimLeadingCharsOf(entry.directory, base);
    if (LeavesBase(relative)) {
      observer.Trace(wxString::Format("Skipped %s%s: it would lie outside %s", entry.directory,
                                      entry.IsDirectory() ? wxString() : entry.name, remoteBase));
      continue;
    }
    const wxString remoteDir = CollapseSeparators("/" + remoteBase + "/" + relative + "/");
    if (!entry.IsDirectory()) {
      queue.AddUpload(
          site.ArgsFor(entry.name, localDir, remoteDir, entry.size, inet::FTP_TRANSFER_TYPE_BINARY));
    } else if (connection) {
      connection->CreateDirectory(
          WithoutTrailingSeparators(remoteDir).ToStdWstring());  // a failure changes nothing
    }
  }
  return true;
}

}  // namespace ftpzn
