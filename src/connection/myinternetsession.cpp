#include "connection/myinternetsession.h"

#include "connection/sessionstatus.h"
#include "platform/threadid.h"

namespace ftpzn {

void CMyInternetSession::OnStatusCallback(uintptr_t, uint32_t status, const void* info, uint32_t infoLength) {
  // Composed and then discarded on purpose: neither the trace nor the report
  // window receives these lines.
  const wxString line = ComposeStatusLine(static_cast<long>(CurrentThreadId()), status, info, infoLength);
}

bool CMyInternetSession::OnUntrustedCertificate(const std::wstring& server, uint16_t port,
                                                const inet::TlsPeerInfo& peer) {
  return DecideTrust(server, port, peer, [this](const TrustQuestion& question) {
    return m_askTrust ? m_askTrust(question) : TrustAnswer::Cancel;
  });
}

}  // namespace ftpzn
