#include "sites/sitefile.h"

#include <wx/filename.h>
#include <wx/stdpaths.h>

#include <cerrno>
#include <stdexcept>

#include "sites/archive.h"

namespace ftpzn {
namespace {

wxString& ModuleDirectoryOverride() {
  static wxString directory;
  return directory;
}

uint64_t CountRemaining(ByteSource& source) {
  uint64_t total = 0;
  char chunk[65536];
  for (;;) {
    const size_t n = source.Read(chunk, sizeof chunk);
    if (n == 0) return total;
    total += n;
  }
}

}  // namespace

wxString GetModuleDirectory() {
  if (!ModuleDirectoryOverride().empty()) return ModuleDirectoryOverride();
  const wxFileName executable(wxStandardPaths::Get().GetExecutablePath());
  return executable.GetPath(wxPATH_GET_VOLUME | wxPATH_GET_SEPARATOR);
}

void SetModuleDirectoryForTesting(const wxString& directory) {
  wxString& stored = ModuleDirectoryOverride();
  stored = directory;
  if (!stored.empty() && !wxFileName::IsPathSeparator(stored.Last()))
    stored += wxFileName::GetPathSeparator();
}

wxString DefaultSitesPath() { return GetModuleDirectory() + kSitesFileName; }

bool LoadSites(ByteSource& source, std::vector<CFtpSite>& sites, SiteFileReport* report) {
  SiteFileReport local;
  SiteFileReport& r = report ? *report : local;
  r = SiteFileReport{};
  Archive ar(source);
  // Runs one read; a file that ends inside it reports `atEnd`, a failing
  // read reports damage with the error.
  const auto read = [&r](SiteFileReport::Outcome atEnd, auto&& step) {
    try {
      step();
      return true;
    } catch (const ArchiveException&) {
      r.outcome = atEnd;
      r.endOfFile = true;
    } catch (const FileException& e) {
      r.outcome = SiteFileReport::damaged;
      r.error = e.Error();
    }
    return false;
  };
  bool magic = false;
  if (!read(SiteFileReport::wrongMagic, [&] { magic = ar.ReadString() == kSitesMagic; })) return false;
  if (!magic) {
    r.outcome = SiteFileReport::wrongMagic;
    return true;
  }
  // The record list ends where the read buffer runs dry, whatever the file
  // still holds: a record ending exactly on the buffer's edge ends the list.
  while (!ar.IsBufferEmpty()) {
    r.stopOffset = ar.Position();
    CFtpSite site;
    if (!read(SiteFileReport::damaged, [&] { site.Serialize(ar); })) return false;
    sites.push_back(site);
    ++r.records;
  }
  r.outcome = SiteFileReport::complete;
  r.stopOffset = ar.Position();
  try {
    r.unreadBytes = CountRemaining(source);
  } catch (const FileException&) {
  }
  return true;
}

namespace {

std::vector<uint8_t> EncodeSites(std::vector<CFtpSite>& sites) {
  // Extra length escapes per string, grown one at a time: each pass moves
  // the end of the record that stopped the reader by a few bytes.
  std::vector<uint8_t> longer;
  const size_t maxPasses = sites.size() * 8 + 1;
  for (size_t pass = 0;; ++pass) {
    MemorySink memory;
    Archive ar(memory);
    ar.UseLongerEscapes(&longer);
    ar.WriteString(kSitesMagic);
    std::vector<size_t> recordStrings;  // the first string of each record, then the end
    for (CFtpSite& site : sites) {
      recordStrings.push_back(ar.StringsWritten());
      site.Serialize(ar);
    }
    recordStrings.push_back(ar.StringsWritten());
    ar.Flush();

    // Read back through the reader's own buffer model: a record that ends
    // exactly where the buffer runs empty would hide every later one.
    MemorySource source(memory.Bytes());
    std::vector<CFtpSite> readBack;
    LoadSites(source, readBack);
    const size_t stopped = readBack.size();
    if (stopped >= sites.size() || stopped == 0 || pass == maxPasses) return memory.Bytes();
    longer.resize(recordStrings.back(), 0);
    // The last string of the record ending on the edge that can still grow.
    for (size_t i = recordStrings[stopped]; i-- > recordStrings[stopped - 1];) {
      if (longer[i] < 3) {
        ++longer[i];
        break;
      }
    }
  }
}

}  // namespace

bool SaveSites(ByteSink& sink, std::vector<CFtpSite>& sites, SiteFileReport* report) {
  SiteFileReport local;
  SiteFileReport& r = report ? *report : local;
  r = SiteFileReport{};
  const std::vector<uint8_t> bytes = EncodeSites(sites);
  try {
    sink.Write(bytes.data(), bytes.size());
    r.records = sites.size();
    r.flushed = true;
  } catch (const FileException& e) {
    r.outcome = SiteFileReport::damaged;
    r.error = e.Error();
    return false;
  }
  r.outcome = SiteFileReport::complete;
  return true;
}

bool SerializeSites(const wxString& path, std::vector<CFtpSite>& sites, bool bSave, SiteFileReport* report) {
  SiteFileReport local;
  SiteFileReport& r = report ? *report : local;
  r = SiteFileReport{};
  if (bSave) {
    // A new file beside the target, renamed over it once complete: a full
    // disk or a crash mid-save leaves the old file whole.
    ReplacingFile file;
    if (!file.Open(path)) {
      r.error = errno;
      r.outcome = SiteFileReport::notOpened;
      return true;
    }
    if (!SaveSites(file, sites, &r)) return false;
    r.flushed = false;
    if (!file.Commit()) {
      r.outcome = SiteFileReport::damaged;
      r.error = errno;
      return false;
    }
    r.flushed = true;
    return true;
  }
  PosixFile file;
  if (!file.OpenForReading(path)) {
    r.error = errno;
    r.outcome = SiteFileReport::notOpened;
    return true;
  }
  bool ok = LoadSites(file, sites, &r);
  try {
    file.Close();
  } catch (const FileException& e) {
    if (ok) {
      r.outcome = SiteFileReport::damaged;
      r.error = e.Error();
    }
    ok = false;
  }
  return ok;
}

CFtpSite BuiltInSite() {
  CFtpSite site;
  site.m_strProfileName = "Example Site";
  site.m_strHost = "ftp.example.com";
  site.m_strDescription = "An example profile: change the fields, then press Add.";
  site.m_strLogin = "guest";
  site.m_strPassword = "guest";
  site.m_strInitialPath = "/pub";
  site.m_nPort = 21;
  site.m_nRetries = 3;
  site.m_nRetryDelay = 10;
  site.m_bPassive = 1;
  return site;
}

int FindSiteNoCase(const std::vector<CFtpSite>& sites, const wxString& name) {
  for (size_t i = 0; i < sites.size(); ++i)
    if (sites[i].m_strProfileName.CmpNoCase(name) == 0) return static_cast<int>(i);
  return -1;
}

void AssignSiteFields(CFtpSite& target, const CFtpSite& source) {
  target.m_bPassive = source.m_bPassive;
  target.m_nRetries = source.m_nRetries;
  target.m_nPort = source.m_nPort;
  target.m_nRetryDelay = source.m_nRetryDelay;
  target.m_strHost = source.m_strHost;
  target.m_strDescription = source.m_strDescription;
  target.m_strAccount = source.m_strAccount;
  target.m_strLogin = source.m_strLogin;
  target.m_strProfileName = source.m_strProfileName;
  target.m_strPassword = source.m_strPassword;
  target.m_strInitialPath = source.m_strInitialPath;
}

void RemoveSiteAt(std::vector<CFtpSite>& sites, size_t index) {
  if (index >= sites.size()) throw std::out_of_range("site index out of range");
  sites.erase(sites.begin() + static_cast<std::ptrdiff_t>(index));
}

}  // namespace ftpzn
