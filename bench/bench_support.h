// What the in-process benchmarks share.
#pragma once

#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <string>
#include <vector>

namespace ftpzn::bench {

// An integer setting from the environment, or `fallback`.
inline int EnvInt(const char* name, int fallback) {
  const char* value = std::getenv(name);
  return value && *value ? std::atoi(value) : fallback;
}

using Clock = std::chrono::steady_clock;

inline double Since(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

// Runs a shell command quietly; true when it succeeded.
inline bool Shell(const std::string& command) {
  return std::system((command + " >/dev/null 2>&1").c_str()) == 0;
}

inline double Median(std::vector<double> v) {
  if (v.empty()) return -1;
  std::sort(v.begin(), v.end());
  return v.size() % 2 ? v[v.size() / 2] : (v[v.size() / 2 - 1] + v[v.size() / 2]) / 2;
}

// A fresh directory on tmpfs that the servers' account can enter, or an
// empty text.
inline std::string MakeWorkDir(const std::string& name) {
  std::string pattern = "/dev/shm/" + name + ".XXXXXX";
  if (!mkdtemp(pattern.data())) return {};
  chmod(pattern.c_str(), 0755);
  return pattern;
}

}  // namespace ftpzn::bench
