// What the in-process benchmarks share.
#pragma once

#include <cstdlib>

namespace ftpzn::bench {

// An integer setting from the environment, or `fallback`.
inline int EnvInt(const char* name, int fallback) {
  const char* value = std::getenv(name);
  return value && *value ? std::atoi(value) : fallback;
}

}  // namespace ftpzn::bench
