// ftpzn-sites: inspect and prepare site files for administrators, on the
// same code as the site manager.
//
//   ftpzn-sites [--file PATH] dump
//   ftpzn-sites [--file PATH] add --name NAME --host HOST [--port N] [--login L]
//       [--password P] [--path DIR] [--retries N] [--delay SECONDS]
//       [--passive|--active] [--account A] [--description TEXT]
//   ftpzn-sites [--file PATH] remove NAME
//   ftpzn-sites --help | --version
//
// Without --file the tool works on sites.dat beside its own executable, as
// the module does beside its host's: installed, ftpzn-host and this tool
// share a directory, so they share the file.
#include <wx/init.h>
#include <wx/string.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "platform/utf8.h"
#include "sites/sitefile.h"

namespace {

enum ExitCode {
  kExitOk = 0,
  kExitRefused = 1,  // duplicate or unknown name, file not writable
  kExitUsage = 2,
  kExitDamaged = 3,
  kExitNotSiteFile = 4,
};

#ifndef FTPZN_VERSION
#define FTPZN_VERSION "unknown"
#endif

constexpr char kUsage[] =
    "usage: ftpzn-sites [--file PATH] dump\n"
    "       ftpzn-sites [--file PATH] add --name NAME --host HOST [--port N] [--login L]\n"
    "           [--password P] [--path DIR] [--retries N] [--delay SECONDS]\n"
    "           [--passive|--active] [--account A] [--description TEXT]\n"
    "       ftpzn-sites [--file PATH] remove NAME\n"
    "       ftpzn-sites --help | --version\n"
    "\n"
    "dump prints the site file's profiles as JSON; add appends a profile, remove\n"
    "deletes one (names compare without regard to case, as in the site manager).\n"
    "add fills only the fields given; the others keep a new record's values: empty\n"
    "texts, port 21, 1 attempt, 15 seconds between attempts, active mode. The port\n"
    "is 1 to 65535.\n"
    "\n"
    "Without --file the site file is sites.dat in this program's directory, where\n"
    "an application embedding ftpzn keeps it beside its executable (ftpzn-host\n"
    "installed beside this program reads the same file). Here that is:\n"
    "  %s\n"
    "\n"
    "Exit status: 0 done; 1 refused (duplicate or unknown name, file not readable or\n"
    "not writable); 2 usage error; 3 the file is damaged (the profiles before the\n"
    "damage are printed); 4 the file is not a site file.\n";

// One line: what is wrong, and where the usage is.
int Usage(const std::string& problem) {
  std::fprintf(stderr, "ftpzn-sites: %s (ftpzn-sites --help shows the usage)\n", problem.c_str());
  return kExitUsage;
}

// A JSON string in UTF-8. A lone UTF-16 surrogate from the file has no
// UTF-8 form and is written as its \u escape.
std::string JsonString(const wxString& text) {
  std::string out = "\"";
  for (wxString::const_iterator it = text.begin(); it != text.end(); ++it) {
    const uint32_t cp = static_cast<uint32_t>((*it).GetValue());
    char escape[8];
    switch (cp) {
      case '"':
        out += "\\\"";
        continue;
      case '\\':
        out += "\\\\";
        continue;
      case '\b':
        out += "\\b";
        continue;
      case '\f':
        out += "\\f";
        continue;
      case '\n':
        out += "\\n";
        continue;
      case '\r':
        out += "\\r";
        continue;
      case '\t':
        out += "\\t";
        continue;
      default:
        break;
    }
    if (cp < 0x20 || (cp >= 0xD800 && cp <= 0xDFFF) || cp > 0x10FFFF) {
      std::snprintf(escape, sizeof escape, "\\u%04x", cp & 0xFFFF);
      out += escape;
    } else {
      ftpzn::AppendUtf8(out, cp);
    }
  }
  return out + "\"";
}

std::string JsonSite(const CFtpSite& site) {
  const auto number = [](int32_t value) { return std::to_string(value); };
  return "{\"host\": " + JsonString(site.m_strHost) + ", \"retries\": " + number(site.m_nRetries) +
         ", \"description\": " + JsonString(site.m_strDescription) +
         ", \"account\": " + JsonString(site.m_strAccount) +
         ", \"initialPath\": " + JsonString(site.m_strInitialPath) +
         ", \"login\": " + JsonString(site.m_strLogin) + ", \"password\": " + JsonString(site.m_strPassword) +
         ", \"profileName\": " + JsonString(site.m_strProfileName) + ", \"port\": " + number(site.m_nPort) +
         ", \"retryDelay\": " + number(site.m_nRetryDelay) + ", \"reserved\": " + number(site.m_nReserved) +
         ", \"passive\": " + number(site.m_bPassive) + "}";
}

void PrintSites(const std::vector<CFtpSite>& sites) {
  std::string out = "[";
  for (size_t i = 0; i < sites.size(); ++i) out += (i ? ",\n  " : "\n  ") + JsonSite(sites[i]);
  out += sites.empty() ? "]\n" : "\n]\n";
  std::fwrite(out.data(), 1, out.size(), stdout);
}

std::string Narrow(const wxString& text) { return std::string(text.utf8_str()); }

std::string Describe(const ftpzn::SiteFileReport& report) {
  if (report.endOfFile) return "the file ends inside it";
  return std::strerror(report.error);
}

// Loads the file, saying on stderr what went wrong. Returns the dump's exit
// code for what the load met.
int Load(const wxString& path, std::vector<CFtpSite>& sites, bool& missing) {
  ftpzn::SiteFileReport report;
  ftpzn::SerializeSites(path, sites, false, &report);
  missing = false;
  const std::string name = Narrow(path);
  switch (report.outcome) {
    case ftpzn::SiteFileReport::notOpened:
      if (report.error == ENOENT) {
        missing = true;
        return kExitOk;
      }
      std::fprintf(stderr, "ftpzn-sites: cannot open %s: %s\n", name.c_str(), std::strerror(report.error));
      return kExitRefused;
    case ftpzn::SiteFileReport::wrongMagic:
      std::fprintf(stderr, "ftpzn-sites: %s is not a site file\n", name.c_str());
      return kExitNotSiteFile;
    case ftpzn::SiteFileReport::damaged:
      if (!report.endOfFile && report.stopOffset == 0) {
        std::fprintf(stderr, "ftpzn-sites: cannot read %s: %s\n", name.c_str(), std::strerror(report.error));
        return kExitRefused;
      }
      std::fprintf(stderr, "ftpzn-sites: %s: stopped at record %zu (byte offset %llu): %s\n", name.c_str(),
                   report.records + 1, static_cast<unsigned long long>(report.stopOffset),
                   Describe(report).c_str());
      return kExitDamaged;
    case ftpzn::SiteFileReport::complete:
      if (report.unreadBytes > 0)
        std::fprintf(stderr,
                     "ftpzn-sites: %s: note: the record list ended on a 4096-byte buffer edge at byte "
                     "offset %llu; the %llu bytes behind it are not read\n",
                     name.c_str(), static_cast<unsigned long long>(report.stopOffset),
                     static_cast<unsigned long long>(report.unreadBytes));
      return kExitOk;
  }
  return kExitOk;
}

int Save(const wxString& path, std::vector<CFtpSite>& sites) {
  ftpzn::SiteFileReport report;
  const bool ok = ftpzn::SerializeSites(path, sites, true, &report);
  if (ok && report.outcome == ftpzn::SiteFileReport::complete) return kExitOk;
  std::fprintf(stderr, "ftpzn-sites: cannot write %s: %s\n", Narrow(path).c_str(),
               std::strerror(report.error));
  return kExitRefused;
}

// Warns before a rewrite drops what the load could not read, as the site
// manager would drop it.
void WarnRewrite(int loadCode) {
  if (loadCode == kExitDamaged)
    std::fputs("ftpzn-sites: warning: the records behind the damage are not kept\n", stderr);
  else if (loadCode == kExitNotSiteFile)
    std::fputs("ftpzn-sites: warning: the file is replaced by a new site file\n", stderr);
}

bool ParseInt(const std::string& text, int32_t& value) {
  if (text.empty()) return false;
  errno = 0;
  char* end = nullptr;
  const long long parsed = std::strtoll(text.c_str(), &end, 10);
  if (*end != '\0' || errno == ERANGE || parsed < INT32_MIN || parsed > INT32_MAX) return false;
  value = static_cast<int32_t>(parsed);
  return true;
}

bool ToWx(const std::string& text, wxString& out) {
  out = wxString::FromUTF8(text.c_str(), text.size());
  return text.empty() || !out.empty();
}

int Add(const wxString& path, const std::vector<std::string>& args) {
  // A new record, not the site manager's example profile: nothing the
  // command line did not say is made up.
  CFtpSite site;
  bool haveName = false;
  bool haveHost = false;
  const std::map<std::string, wxString CFtpSite::*> strings = {
      {"--name", &CFtpSite::m_strProfileName},
      {"--host", &CFtpSite::m_strHost},
      {"--login", &CFtpSite::m_strLogin},
      {"--password", &CFtpSite::m_strPassword},
      {"--path", &CFtpSite::m_strInitialPath},
      {"--account", &CFtpSite::m_strAccount},
      {"--description", &CFtpSite::m_strDescription}};
  const std::map<std::string, int32_t CFtpSite::*> numbers = {{"--port", &CFtpSite::m_nPort},
                                                              {"--retries", &CFtpSite::m_nRetries},
                                                              {"--delay", &CFtpSite::m_nRetryDelay}};
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string& option = args[i];
    if (option == "--passive" || option == "--active") {
      site.m_bPassive = option == "--passive" ? 1 : 0;
      continue;
    }
    const bool isString = strings.count(option) > 0;
    if (!isString && numbers.count(option) == 0) return Usage("unknown option " + option);
    if (i + 1 >= args.size()) return Usage(option + " needs a value");
    const std::string& value = args[++i];
    if (isString) {
      if (!ToWx(value, site.*strings.at(option))) return Usage(option + " is not valid UTF-8");
      haveName |= option == "--name";
      haveHost |= option == "--host";
    } else if (!ParseInt(value, site.*numbers.at(option))) {
      return Usage(option + " needs a signed 32-bit integer, not " + value);
    }
  }
  if (!haveName || site.m_strProfileName.empty()) return Usage("add needs --name");
  if (!haveHost) return Usage("add needs --host");
  if (site.m_nPort < 1 || site.m_nPort > 65535)
    return Usage("--port needs a number from 1 to 65535, not " + std::to_string(site.m_nPort));

  std::vector<CFtpSite> sites;
  bool missing = false;
  const int loadCode = Load(path, sites, missing);
  if (loadCode == kExitRefused) return loadCode;
  if (ftpzn::FindSiteNoCase(sites, site.m_strProfileName) >= 0) {
    std::fprintf(stderr, "ftpzn-sites: a profile named \"%s\" exists already\n",
                 Narrow(site.m_strProfileName).c_str());
    return kExitRefused;
  }
  WarnRewrite(loadCode);
  site.m_nReserved = 0;
  sites.push_back(site);
  return Save(path, sites);
}

int Remove(const wxString& path, const std::vector<std::string>& args) {
  if (args.size() != 1) return Usage("remove needs exactly one NAME");
  wxString name;
  if (!ToWx(args[0], name)) return Usage("NAME is not valid UTF-8");
  std::vector<CFtpSite> sites;
  bool missing = false;
  const int loadCode = Load(path, sites, missing);
  if (loadCode == kExitRefused) return loadCode;
  // The exact name first: a renamed profile may share its name with
  // another in a different case.
  int found = -1;
  for (size_t i = 0; i < sites.size() && found < 0; ++i)
    if (sites[i].m_strProfileName == name) found = static_cast<int>(i);
  if (found < 0) found = ftpzn::FindSiteNoCase(sites, name);
  if (found < 0) {
    std::fprintf(stderr, "ftpzn-sites: no profile named \"%s\"\n", args[0].c_str());
    return kExitRefused;
  }
  WarnRewrite(loadCode);
  ftpzn::RemoveSiteAt(sites, static_cast<size_t>(found));
  return Save(path, sites);
}

}  // namespace

int main(int argc, char** argv) {
  wxInitializer initializer(argc, argv);
  if (!initializer.IsOk()) {
    std::fputs("ftpzn-sites: cannot initialise\n", stderr);
    return kExitRefused;
  }
  std::vector<std::string> args(argv + 1, argv + argc);
  wxString path;
  while (!args.empty() && args[0].rfind("-", 0) == 0) {
    if (args[0] == "--help" || args[0] == "-h") {
      std::printf(kUsage, Narrow(ftpzn::DefaultSitesPath()).c_str());
      return kExitOk;
    }
    if (args[0] == "--version") {
      std::printf("ftpzn-sites %s\n", FTPZN_VERSION);
      return kExitOk;
    }
    if (args[0] != "--file") return Usage("unknown option " + args[0]);
    if (args.size() < 2 || args[1].empty()) return Usage("--file needs a path");
    path = wxString(args[1].c_str(), *wxConvFileName);
    args.erase(args.begin(), args.begin() + 2);
  }
  if (args.empty()) return Usage("no command");
  if (path.empty()) path = ftpzn::DefaultSitesPath();
  const std::string command = args[0];
  args.erase(args.begin());

  if (command == "dump") {
    if (!args.empty()) return Usage("dump takes no arguments");
    std::vector<CFtpSite> sites;
    bool missing = false;
    const int code = Load(path, sites, missing);
    PrintSites(sites);
    return code;
  }
  if (command == "add") return Add(path, args);
  if (command == "remove") return Remove(path, args);
  return Usage("unknown command " + command);
}
