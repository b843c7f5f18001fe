// Whole trees: a remote directory walked over the main window's connection
// or a local one walked on disk, flattened into entries (a directory's own
// entry, then its files in listing order, then its sub-directories depth
// first), and the two expansions that turn a walked tree into directories
// made on the receiving side and transfers queued. Window-free: what the
// user must see goes through an observer.
#pragma once

#include <wx/string.h>

#include <cstddef>
#include <cstdint>
#include <vector>

#include "transfer/transferqueue.h"

namespace ftpzn {
namespace inet {
class CFtpConnection;
}

// One entry of a walked tree, held as its three fields (names may hold any
// character, "|" included). A directory's entry has the name "/", its
// path as the directory and size 0; a file's directory is the one holding
// it followed by "/".
struct TreeEntry {
  wxString directory;
  wxString name;
  uint32_t size = 0;  // the length's low 32 bits: 4 GiB and more wrap
  bool IsDirectory() const { return name == "/"; }
  bool operator==(const TreeEntry&) const = default;
};

class TreeWalkObserver {
 public:
  virtual ~TreeWalkObserver() = default;
  // A failure the user must read (a message box).
  virtual void Message(const wxString& text) = 0;
  // A line for the trace.
  virtual void Trace(const wxString& text) = 0;
  // Before each directory is read, with the entries so far: false stops
  // the walk (the user cancelled it).
  virtual bool Continue(const wxString& directory, size_t entries) = 0;
};

// Appends the entries of the remote tree at `start`, listing each
// directory over `connection` after changing to it; the connection's
// directory is set back at the normal end. 1 on success; 0 without a
// connection, when a directory cannot be entered or lists nothing (an
// empty one included: the walks above it stop too), or when cancelled.
// Names that could not be local names are passed over with a trace line.
int RemoteTreeWalk(inet::CFtpConnection* connection, const wxString& start, std::vector<TreeEntry>& entries,
                   TreeWalkObserver& observer, bool* cancelled = nullptr);

// Appends the entries of the local tree at `start`. A directory that cannot
// be searched is told and passed over. Links to directories are not
// entered, so a link cycle cannot make the walk endless.
void LocalTreeWalk(const wxString& start, std::vector<TreeEntry>& entries, TreeWalkObserver& observer,
                   bool* cancelled = nullptr);

// `text` without its leading characters that occur anywhere in `set`: a
// trim by the set, not by a prefix, as the expansions have always cut a
// tree's directories relative to where the walk began.
wxString TrimLeadingCharsOf(const wxString& text, const wxString& set);

// Walks the remote directory `remotePath` and, with the queue held, makes
// each directory under `localBase` and queues a download of each file. A
// directory that would lie outside `localBase` is passed over with a trace
// line. False when the user cancelled the walk: then nothing of it is
// made or queued.
bool DownloadRemoteDirectory(inet::CFtpConnection* connection, TransferQueue& queue, const TransferSite& site,
                             const wxString& remotePath, const wxString& localBase,
                             TreeWalkObserver& observer);
// The same the other way: the local directory `localPath` into the server
// directory `remoteBase`, remote directories made over `connection`.
bool UploadLocalDirectory(inet::CFtpConnection* connection, TransferQueue& queue, const TransferSite& site,
                          const wxString& localPath, const wxString& remoteBase, TreeWalkObserver& observer);

}  // namespace ftpzn
