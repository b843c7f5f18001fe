// The module's public face: a host creates a Cftpfacezn (or Cftpface) and
// opens the FTP window modelessly (showFrameWnd) or runs it modally
// (showFtpMainDoMo), receiving the local paths of the files the user
// queued for download.
//
// The one header a host includes (<ftpzn/ftpface.h>); the module's own code
// includes it too, so there is a single declaration. It needs nothing but
// wx's base headers: the main window is only named here. Call from the
// user-interface thread; see docs/embedding.md.
#pragma once

#include <wx/arrstr.h>
#include <wx/string.h>

#if defined(FTPZN_BUILDING_MODULE)
#define FTPZN_EXPORT __attribute__((visibility("default")))
#else
#define FTPZN_EXPORT
#endif

class wxWindow;
class CDlgFTPMainWnd;

class FTPZN_EXPORT Cftpface {
 public:
  Cftpface();
  // Copies share the window object as it stands: there is no reference
  // count, so the first copy destroyed takes the shared window with it.
  Cftpface(const Cftpface& other);
  Cftpface& operator=(const Cftpface& other);
  virtual ~Cftpface();

  // Opens (or shows again) the modeless FTP window at `localDir` (the home
  // directory when empty). `parent` is ignored: the window has no owner.
  // 1 on success, 0 when the window could not be made.
  int showFrameWnd(wxString localDir, wxWindow* parent);
  // Runs the FTP window modally. On Exit (result OK) appends the downloaded
  // files' local paths to `results` (when not null) and returns 1; on any
  // other end returns 0 and leaves `results` untouched.
  int showFtpMainDoMo(wxString localDir, wxArrayString* results, wxWindow* parent);

 protected:
  CDlgFTPMainWnd* m_pMainWnd;
};

class FTPZN_EXPORT Cftpfacezn : public Cftpface {
 public:
  ~Cftpfacezn() override;
};
