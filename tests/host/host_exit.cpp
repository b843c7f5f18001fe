// A host that opened the FTP window modelessly closes its own frame, taking
// the entry object along: the application must then end by itself, as a wx
// application does when its last window goes. Exit code 0 when it did, 1
// when a watchdog had to stop it.
#include <wx/app.h>
#include <wx/frame.h>
#include <wx/timer.h>

#include <cstdio>
#include <cstdlib>

#include <ftpzn/ftpface.h>

namespace {

class ExitingHost : public wxApp {
 public:
  bool OnInit() override {
    auto* frame = new wxFrame(nullptr, wxID_ANY, "host");
    frame->Show();
    m_face = new Cftpfacezn;
    if (!m_face->showFrameWnd("/tmp", frame)) return false;
    // The FTP window is up; now the host goes, as its close box would do it.
    CallAfter([this, frame] {
      delete m_face;
      frame->Destroy();
    });
    m_watchdog.Bind(wxEVT_TIMER, [](wxTimerEvent&) {
      std::fputs("the application is still running after its last window closed\n", stderr);
      std::_Exit(1);
    });
    m_watchdog.StartOnce(10000);
    return true;
  }

 private:
  Cftpfacezn* m_face = nullptr;
  wxTimer m_watchdog;
};

}  // namespace

wxIMPLEMENT_APP(ExitingHost);
