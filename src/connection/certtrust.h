// Server certificates that the system does not trust but the user does:
// the question the user is asked, and the answers "Always trust" keeps in
// the host's profile store, by host and port. Window-free.
#pragma once

#include <wx/string.h>

#include <cstdint>

#include "inet/tls.h"

namespace ftpzn {

enum class TrustAnswer { Cancel, Once, Always };

struct TrustQuestion {
  wxString host;
  uint16_t port = 0;
  inet::TlsPeerInfo peer;
  // The user chose to always trust another certificate for this host and
  // port: this one replaced it, which an attacker's would too.
  bool changed = false;
};

// The fingerprint kept for `host` and `port`, or "" when none.
wxString KnownCertificate(const wxString& host, uint16_t port);
// Keeps `fingerprint` for `host` and `port`; false when there is no store.
bool KeepCertificate(const wxString& host, uint16_t port, const wxString& fingerprint);

// Whether a connection may go on with an untrusted certificate: yes at once
// when it is the one kept for this host and port, else as `ask` answers
// (keeping the certificate on "Always trust"); no when there is no one
// to ask.
template <typename Ask>
bool DecideTrust(const wxString& host, uint16_t port, const inet::TlsPeerInfo& peer, Ask&& ask) {
  const wxString known = KnownCertificate(host, port);
  const wxString fingerprint = wxString::FromUTF8(peer.fingerprint);
  if (!known.empty() && known == fingerprint) return true;
  const TrustAnswer answer = ask(TrustQuestion{host, port, peer, !known.empty()});
  if (answer == TrustAnswer::Always) KeepCertificate(host, port, fingerprint);
  return answer != TrustAnswer::Cancel;
}

}  // namespace ftpzn
