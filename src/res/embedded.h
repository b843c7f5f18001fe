#pragma once

#include <cstddef>

namespace ftpzn::res {

struct EmbeddedFile {
  const char* name;  // file name in src/res, e.g. "9016.svg"
  const unsigned char* data;
  size_t size;
};

const EmbeddedFile* EmbeddedFiles(size_t& count);

}  // namespace ftpzn::res
