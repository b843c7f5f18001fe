#include "panes/paneart.h"

#include <wx/bmpbndl.h>
#include <wx/mstream.h>

namespace ftpzn {
namespace {

#include "panes/busyanimation.inc"

constexpr char kFolderSvg[] =
    R"(<svg xmlns="http://www.w3.org/2000/svg" width="16" height="16" viewBox="0 0 16 16">
<path d="M1 3.5h5l1.5 1.5H15v8.5H1z" fill="#e8b84a" stroke="#a07818"/>
<path d="M1 6h14v7.5H1z" fill="#f6d27a" stroke="#a07818"/></svg>)";

constexpr char kFileSvg[] =
    R"(<svg xmlns="http://www.w3.org/2000/svg" width="16" height="16" viewBox="0 0 16 16">
<path d="M3 1.5h7l3 3v10H3z" fill="#ffffff" stroke="#6b7480"/>
<path d="M10 1.5v3h3" fill="none" stroke="#6b7480"/>
<path d="M5 7h6M5 9h6M5 11h4" stroke="#9aa4b0"/></svg>)";

wxBitmap FromSvg(const char* svg) {
  return wxBitmapBundle::FromSVG(svg, wxSize(16, 16)).GetBitmap(wxSize(16, 16));
}

}  // namespace

wxBitmap PaneFolderBitmap() { return FromSvg(kFolderSvg); }
wxBitmap PaneFileBitmap() { return FromSvg(kFileSvg); }

std::unique_ptr<wxInputStream> OpenBusyAnimation() {
  return std::make_unique<wxMemoryInputStream>(kBusyAnimationGif, sizeof kBusyAnimationGif);
}

}  // namespace ftpzn
