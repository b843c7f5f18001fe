#include "sites/ftpsite.h"

#include "sites/archive.h"

void CFtpSite::Serialize(ftpzn::Archive& ar) {
  if (ar.IsStoring()) {
    ar << m_strHost << m_nRetries << m_strDescription << m_strAccount << m_strLogin << m_strProfileName
       << m_strPassword << m_nPort << m_strInitialPath << m_nRetryDelay << m_nReserved << m_bPassive;
  } else {
    ar >> m_strHost >> m_nRetries >> m_strDescription >> m_strAccount >> m_strLogin >> m_strProfileName >>
        m_strPassword >> m_nPort >> m_strInitialPath >> m_nRetryDelay >> m_nReserved >> m_bPassive;
  }
}

namespace ftpzn {

namespace {

constexpr const char* kSchemes[] = {"ftp://", "ftpes://", "ftps://"};

// The length of the FTP scheme `host` starts with, 0 when none.
size_t SchemeLength(const wxString& host) {
  const wxString lower = host.Lower();
  for (const char* scheme : kSchemes) {
    if (lower.StartsWith(scheme)) return strlen(scheme);
  }
  return 0;
}

}  // namespace

HostSecurity SecurityOfHost(const wxString& host) {
  const wxString lower = host.Lower();
  if (lower.StartsWith("ftpes://")) return HostSecurity::ExplicitTls;
  if (lower.StartsWith("ftps://")) return HostSecurity::ImplicitTls;
  return HostSecurity::Plain;
}

wxString HostWithSecurity(const wxString& host, HostSecurity security) {
  if (SecurityOfHost(host) == security) return host;
  const wxString bare = host.Mid(SchemeLength(host));
  switch (security) {
    case HostSecurity::ExplicitTls:
      return "ftpes://" + bare;
    case HostSecurity::ImplicitTls:
      return "ftps://" + bare;
    case HostSecurity::Plain:
      break;
  }
  return bare;
}

}  // namespace ftpzn
