#pragma once

namespace ftpzn {

// The calling thread's numeric id as trace lines show it (the kernel's).
unsigned long CurrentThreadId();

}  // namespace ftpzn
