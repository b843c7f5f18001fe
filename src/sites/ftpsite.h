// One site profile: everything needed to reach one FTP server, and its form
// in the site file.
#pragma once

#include <wx/string.h>

#include <cstdint>

namespace ftpzn {
class Archive;
}

class CFtpSite {
 public:
  CFtpSite() = default;
  CFtpSite(const CFtpSite&) = default;
  CFtpSite& operator=(const CFtpSite&) = default;
  virtual ~CFtpSite() = default;

  // Reads or writes the record, in the file's field order (which is not the
  // declared order), depending on the archive's direction.
  virtual void Serialize(ftpzn::Archive& ar);

  bool operator==(const CFtpSite&) const = default;

  wxString m_strHost;
  int32_t m_nRetries = 1;
  wxString m_strDescription;
  wxString m_strAccount;  // stored and shown, never sent
  wxString m_strInitialPath;
  // "anonymous" in any case marks an anonymous site; there is no flag.
  wxString m_strLogin;
  // Plain text; for an anonymous site the user's e-mail address.
  wxString m_strPassword;
  wxString m_strProfileName;  // the key a profile is found by
  int32_t m_nPort = 21;
  int32_t m_nRetryDelay = 15;  // seconds between attempts
  // No meaning is assigned; carried through copies and the file unchanged.
  int32_t m_nReserved = 0;
  int32_t m_bPassive = 0;
};

namespace ftpzn {

// The encryption a host address asks for by its scheme: "ftpes://" explicit
// TLS, "ftps://" implicit TLS, a bare host or "ftp://" none. The choice in
// the site manager writes the scheme, so the site file needs no field of
// its own for it.
enum class HostSecurity { Plain, ExplicitTls, ImplicitTls };
HostSecurity SecurityOfHost(const wxString& host);
// `host` with the scheme of `security` in place of the one it had.
wxString HostWithSecurity(const wxString& host, HostSecurity security);

}  // namespace ftpzn
