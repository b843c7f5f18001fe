// The panes' own pictures: the folder and file icons of the rows and the
// busy animation.
#pragma once

#include <wx/bitmap.h>
#include <wx/stream.h>

#include <memory>

namespace ftpzn {

// Resource 24022 (folder) and 24023 (file), 16x16.
wxBitmap PaneFolderBitmap();
wxBitmap PaneFileBitmap();
// Animation resource 9076, a GIF.
std::unique_ptr<wxInputStream> OpenBusyAnimation();

}  // namespace ftpzn
