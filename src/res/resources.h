// The module's own icons and animations, by the resource numbers the
// windows use. Icons are SVG (sharp at any size), animations GIF.
#pragma once

#include <wx/bmpbndl.h>
#include <wx/icon.h>

class wxAnimation;

namespace ftpzn::res {

enum IconId : int {
  kIconRemote = 9016,
  kIconMainWindow = 9064,
  kIconLocal = 9079,
  kIconDownload = 9080,
  kIconUpload = 9082,
  kIconTransferManager = 9133,
  kIconDisconnect = 9134,
  kIconExit = 24021,
  kIconFolder = 24022,
  kIconFile = 24023,
  kIconReplace = 163,
  kIconEncrypted = 9424,  // beside the remote path while the connection uses TLS
};

enum AnimationId : int {
  kAnimationTransfer = 9074,
  kAnimationBusy = 9076,
  kAnimationThird = 9085,
};

// An empty bundle when the module holds no icon of that number.
wxBitmapBundle LoadIconBundle(int id, const wxSize& size);
wxIcon LoadIcon(int id, int pixels);
// Loads into an animation made by the control that will play it
// (wxGenericAnimationCtrl::CreateAnimation); false when unknown.
bool LoadAnimation(int id, wxAnimation& animation);

}  // namespace ftpzn::res
