#include "res/resources.h"

#include <wx/animate.h>
#include <wx/mstream.h>

#include <cstring>
#include <string>

#include "res/embedded.h"

namespace ftpzn::res {
namespace {

const EmbeddedFile* Find(const std::string& name) {
  size_t count = 0;
  const EmbeddedFile* files = EmbeddedFiles(count);
  for (size_t i = 0; i < count; ++i)
    if (name == files[i].name) return &files[i];
  return nullptr;
}

}  // namespace

wxBitmapBundle LoadIconBundle(int id, const wxSize& size) {
  const EmbeddedFile* file = Find(std::to_string(id) + ".svg");
  if (!file) return {};
  return wxBitmapBundle::FromSVG(file->data, file->size, size);
}

wxIcon LoadIcon(int id, int pixels) {
  wxBitmapBundle bundle = LoadIconBundle(id, wxSize(pixels, pixels));
  if (!bundle.IsOk()) return {};
  return bundle.GetIcon(wxSize(pixels, pixels));
}

bool LoadAnimation(int id, wxAnimation& animation) {
  const EmbeddedFile* file = Find(std::to_string(id) + ".gif");
  if (!file) return false;
  wxMemoryInputStream stream(file->data, file->size);
  return animation.Load(stream, wxANIMATION_TYPE_GIF);
}

}  // namespace ftpzn::res
