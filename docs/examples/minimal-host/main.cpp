// A minimal application embedding the ftpzn FTP window.
//   minimal-host            a frame with two buttons: "FTP window" opens the
//                           window modelessly, "Pick files" runs it modally
//   minimal-host --modal    runs the window modally at once, prints the
//                           files queued for download and exits (0 after Exit)
#include <ftpzn/ftpface.h>
#include <wx/app.h>
#include <wx/button.h>
#include <wx/frame.h>
#include <wx/sizer.h>

#include <cstdio>

namespace {

// Runs the FTP window modally; true when the user left it with Exit.
bool PickFiles(wxWindow* parent) {
  Cftpfacezn ftp;
  wxArrayString files;
  if (!ftp.showFtpMainDoMo(wxGetHomeDir(), &files, parent)) return false;
  for (const wxString& file : files) std::printf("%s\n", file.utf8_str().data());
  std::fflush(stdout);
  return true;
}

class HostFrame : public wxFrame {
 public:
  HostFrame() : wxFrame(nullptr, wxID_ANY, "Minimal host") {
    auto* sizer = new wxBoxSizer(wxHORIZONTAL);
    auto* modeless = new wxButton(this, wxID_ANY, "FTP window");
    auto* modal = new wxButton(this, wxID_ANY, "Pick files");
    sizer->Add(modeless, 0, wxALL, 10);
    sizer->Add(modal, 0, wxALL, 10);
    SetSizerAndFit(sizer);
    // Modeless: returns at once; a second call shows the same window again.
    modeless->Bind(wxEVT_BUTTON, [this](wxCommandEvent&) { m_ftp.showFrameWnd(wxGetHomeDir(), this); });
    modal->Bind(wxEVT_BUTTON, [this](wxCommandEvent&) { PickFiles(this); });
  }

 private:
  // Owns the modeless window: it goes when the frame goes.
  Cftpfacezn m_ftp;
};

class HostApp : public wxApp {
 public:
  bool OnInit() override {
    // The module reads its preferences from wxConfigBase::Get(), which is
    // ~/.minimal-host once the application has its name.
    SetAppName("minimal-host");
    if (argc > 1 && argv[1] == "--modal") {
      CallAfter([this] {
        m_exitCode = PickFiles(nullptr) ? 0 : 1;
        ExitMainLoop();
      });
      return true;
    }
    (new HostFrame)->Show();
    return true;
  }
  int OnRun() override {
    wxApp::OnRun();
    return m_exitCode;
  }

 private:
  int m_exitCode = 0;
};

}  // namespace

wxIMPLEMENT_APP(HostApp);
