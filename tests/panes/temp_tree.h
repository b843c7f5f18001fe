// A private directory tree per test, shared by the window-free and the
// window tests of the panes.
#pragma once

#include <wx/string.h>

#include <filesystem>
#include <fstream>

#include "gui_harness.h"

namespace ftpzn::test {

struct TempTree {
  // Files of `bytes` bytes; a name ending in '/' is a folder.
  void Make(std::initializer_list<std::filesystem::path> paths, size_t bytes = 0) const {
    for (const std::filesystem::path& p : paths) {
      std::filesystem::create_directories((m_root / p).parent_path());
      if (!p.filename().empty()) std::ofstream(m_root / p) << std::string(bytes, 'x');
    }
  }
  wxString Path(const std::filesystem::path& relative = {}) const {
    return wxString::FromUTF8((relative.empty() ? m_root : m_root / relative).string());
  }
  const std::filesystem::path m_root = MakeTempDir("ftpzn-panes-");
};

}  // namespace ftpzn::test
