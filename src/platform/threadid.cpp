#include "platform/threadid.h"

#include <sys/syscall.h>
#include <unistd.h>

namespace ftpzn {

unsigned long CurrentThreadId() { return static_cast<unsigned long>(::syscall(SYS_gettid)); }

}  // namespace ftpzn
