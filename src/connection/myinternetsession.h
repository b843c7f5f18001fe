// The internet session of the user-interface connection: the engine's
// session whose status reports are composed into English lines.
#pragma once

#include <cstdint>
#include <functional>

#include "connection/certtrust.h"
#include "inet/inet.h"

class wxWindow;

namespace ftpzn {

class CMyInternetSession : public inet::CInternetSession {
 public:
  using inet::CInternetSession::CInternetSession;
  ~CMyInternetSession() override = default;

  // Composes the line of the report (see ComposeStatusLine) and drops it:
  // the connection trace shows the connect routine's own lines only.
  void OnStatusCallback(uintptr_t context, uint32_t status, const void* info, uint32_t infoLength) override;
  // A certificate kept with "Always trust" for this host and port passes;
  // any other goes to m_askTrust (none set: refused).
  bool OnUntrustedCertificate(const std::wstring& server, uint16_t port, const inet::TlsPeerInfo& peer) override;

  std::function<TrustAnswer(const TrustQuestion&)> m_askTrust;

  // The window the session reports to; set by its creator right after
  // construction (the main window), never dereferenced here.
  wxWindow* m_pReportWnd = nullptr;
};

}  // namespace ftpzn
