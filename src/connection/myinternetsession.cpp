#include "connection/myinternetsession.h"

#include <unistd.h>

#include "connection/sessionstatus.h"

namespace ftpzn {

long CurrentThreadId() { return static_cast<long>(gettid()); }

void CMyInternetSession::OnStatusCallback(uintptr_t, uint32_t status, const void* info, uint32_t infoLength) {
  // Composed and then discarded on purpose: neither the trace nor the report
  // window receives these lines.
  const wxString line = ComposeStatusLine(CurrentThreadId(), status, info, infoLength);
}

}  // namespace ftpzn
