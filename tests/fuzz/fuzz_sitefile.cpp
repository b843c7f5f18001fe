// Any bytes as a site file: whatever records load are saved, and the saved
// file loads back to the same records, however the reader's buffer falls.
#include <cstdint>
#include <vector>

#include "sites/archive.h"
#include "sites/sitefile.h"

using namespace ftpzn;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  MemorySource source(std::vector<uint8_t>(data, data + size));
  std::vector<CFtpSite> loaded;
  LoadSites(source, loaded);
  MemorySink sink;
  if (!SaveSites(sink, loaded)) __builtin_trap();
  MemorySource saved(sink.Bytes());
  std::vector<CFtpSite> reloaded;
  SiteFileReport report;
  if (!LoadSites(saved, reloaded, &report) || report.outcome != SiteFileReport::complete) __builtin_trap();
  if (reloaded != loaded) __builtin_trap();
  return 0;
}
