#include "connection/myinternetsession.h"

#include "connection/sessionstatus.h"
#include "platform/threadid.h"

namespace ftpzn {

void CMyInternetSession::OnStatusCallback(uintptr_t, uint32_t status, const void* info, uint32_t infoLength) {
  // Composed and then discarded on purpose: neither the trace nor the report
  // window receives these lines.
  const wxString line = ComposeStatusLine(static_cast<long>(CurrentThreadId()), status, info, infoLength);
}

}  // namespace ftpzn
