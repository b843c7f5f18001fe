#include "ui/eventguard.h"

#include <cstdio>

namespace ftpzn {

void ReportStoppedException(const wxEvent& event, const char* what) {
  std::fprintf(stderr, "ftpzn: stopped an error in the handling of event %d: %s\n",
               static_cast<int>(event.GetEventType()), what);
}

}  // namespace ftpzn
