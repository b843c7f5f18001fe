// The site file sites.dat beside the host's executable: the magic, then the
// records back to back, with no count and no trailer. Load and save are
// silent: a caller learns only whether they ran to their end, and the
// report says more for those (the command-line tool) who want it.
#pragma once

#include <wx/string.h>

#include <cstdint>
#include <vector>

#include "sites/ftpsite.h"

namespace ftpzn {

class ByteSink;
class ByteSource;

inline constexpr char kSitesMagic[] = "TOLMAVERN_DATA";
inline constexpr char kSitesFileName[] = "sites.dat";

// Directory of the host process's executable, ending in the separator.
wxString GetModuleDirectory();
// Tests point the module directory elsewhere so they never write beside the
// test binary; an empty text restores the executable's directory.
void SetModuleDirectoryForTesting(const wxString& directory);
// GetModuleDirectory() followed by "sites.dat".
wxString DefaultSitesPath();

struct SiteFileReport {
  enum Outcome {
    notOpened,   // the file could not be opened; `error` holds errno
    wrongMagic,  // not a site file (or too short to hold the magic)
    complete,    // ran to its end
    damaged,     // a record or the file failed part-way
  };
  Outcome outcome = notOpened;
  int error = 0;             // errno of a failing system call, else 0
  size_t records = 0;        // records loaded or written by this call
  uint64_t stopOffset = 0;   // loading: where the failing record began
  bool endOfFile = false;    // loading: the failure was the data ending
  uint64_t unreadBytes = 0;  // loading: bytes left behind a buffer-edge stop
  bool flushed = false;      // saving: everything reached the file
};

// Appends the records of `source` to `sites` (which is not cleared first).
// True when the load ran to its end or the magic differs; false when it
// stopped on a failure (the records before it stay appended).
bool LoadSites(ByteSource& source, std::vector<CFtpSite>& sites, SiteFileReport* report = nullptr);
// Writes the magic and every record in order.
bool SaveSites(ByteSink& sink, std::vector<CFtpSite>& sites, SiteFileReport* report = nullptr);
// Loads (bSave false) or saves the file at `path`. True when the operation
// ran to its end or the file could not be opened; false when an archive or
// file failure was raised during it.
bool SerializeSites(const wxString& path, std::vector<CFtpSite>& sites, bool bSave,
                    SiteFileReport* report = nullptr);

// The site manager's built-in profile: neutral placeholders, 3 attempts,
// 10 seconds between them, passive mode.
CFtpSite BuiltInSite();
// The first record whose profile name equals `name` without regard to case,
// or -1.
int FindSiteNoCase(const std::vector<CFtpSite>& sites, const wxString& name);
// Copies every member except the reserved one.
void AssignSiteFields(CFtpSite& target, const CFtpSite& source);
// Removes one record, the later ones moving down; throws std::out_of_range.
void RemoveSiteAt(std::vector<CFtpSite>& sites, size_t index);

}  // namespace ftpzn
