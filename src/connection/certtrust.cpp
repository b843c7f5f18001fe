#include "connection/certtrust.h"

#include "platform/profile.h"

namespace ftpzn {

namespace {

// One key per host and port, every character that a config key could take
// for syntax written as %XX, so that no two hosts share a key.
wxString KeyFor(const wxString& host, uint16_t port) {
  wxString key;
  for (const unsigned char byte : host.Lower().utf8_string()) {
    if (isalnum(byte) || byte == '.' || byte == '-')
      key += static_cast<char>(byte);
    else
      key += wxString::Format("%%%02X", byte);
  }
  return key + wxString::Format("_%u", static_cast<unsigned>(port));
}

constexpr const char* kSection = "TrustedCertificates";

}  // namespace

wxString KnownCertificate(const wxString& host, uint16_t port) {
  return GetProfileString(kSection, KeyFor(host, port), wxString());
}

bool KeepCertificate(const wxString& host, uint16_t port, const wxString& fingerprint) {
  return WriteProfileString(kSection, KeyFor(host, port), fingerprint);
}

}  // namespace ftpzn
