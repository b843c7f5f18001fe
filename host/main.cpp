// ftpzn-host: a small wxWidgets application that links the FTP module and
// calls it the way an embedding application would.
#include <wx/app.h>
#include <wx/button.h>
#include <wx/cmdline.h>
#include <wx/frame.h>
#include <wx/panel.h>
#include <wx/sizer.h>
#include <wx/stattext.h>
#include <wx/timer.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string_view>

#include <ftpzn/ftpface.h>

namespace {

const char kUsage[] =
    "Usage: ftpzn-host [--modeless] [--local-dir DIR] [--screenshot FILE]\n"
    "\n"
    "Opens the ftpzn FTP window.\n"
    "\n"
    "  (default)          runs the window modally. When it is closed with Exit,\n"
    "                     prints the local path of every file queued for download,\n"
    "                     one per line, and exits 0; closed any other way, exits 1.\n"
    "  --modeless         opens a small host window whose button shows the FTP\n"
    "                     window modelessly (a second press reuses the window).\n"
    "  --local-dir DIR    the local directory the window opens at (default: home).\n"
    "  --screenshot FILE  opens the window modelessly, saves a PNG of the screen to\n"
    "                     FILE once it has drawn, prints FILE and exits 0.\n"
    "  --help             prints this text.\n";

class HostFrame : public wxFrame {
 public:
  explicit HostFrame(const wxString& localDir)
      : wxFrame(nullptr, wxID_ANY, "ftpzn host"), m_localDir(localDir) {
    auto* panel = new wxPanel(this);
    auto* sizer = new wxBoxSizer(wxVERTICAL);
    sizer->Add(new wxStaticText(panel, wxID_ANY, "A host application of the ftpzn module."), 0,
               wxALL, 10);
    auto* open = new wxButton(panel, wxID_ANY, "Open FTP window");
    sizer->Add(open, 0, wxALL | wxALIGN_CENTER, 10);
    panel->SetSizerAndFit(sizer);
    Fit();
    open->Bind(wxEVT_BUTTON, [this](wxCommandEvent&) { OpenFtpWindow(); });
    Bind(wxEVT_CLOSE_WINDOW, [this](wxCloseEvent&) {
      // The module's window goes with the entry object, before the host
      // frame and long before the library could be unloaded.
      m_face.reset();
      Destroy();
    });
  }
  int OpenFtpWindow() { return m_face->showFrameWnd(m_localDir, this); }

 private:
  wxString m_localDir;
  std::unique_ptr<Cftpfacezn> m_face = std::make_unique<Cftpfacezn>();
};

class HostApp : public wxApp {
 public:
  bool OnInit() override {
    SetAppName("ftpzn-host");
    SetAppDisplayName("ftpzn host");
    if (!ParseArguments()) return false;
    if (!m_screenshot.empty()) return StartScreenshot();
    if (m_modeless) {
      auto* frame = new HostFrame(m_localDir);
      frame->Show();
      return true;
    }
    SetExitOnFrameDelete(false);
    CallAfter([this] {
      Cftpfacezn face;
      wxArrayString results;
      const int ok = face.showFtpMainDoMo(m_localDir, &results, nullptr);
      for (const wxString& path : results) std::printf("%s\n", path.utf8_str().data());
      std::fflush(stdout);
      m_exitCode = ok ? 0 : 1;
      ExitMainLoop();
    });
    return true;
  }
  int OnExit() override { return m_exitCode; }
  int OnRun() override {
    wxApp::OnRun();
    return m_exitCode;
  }

 private:
  bool ParseArguments() {
    for (int i = 1; i < argc; ++i) {
      const wxString arg = argv[i];
      if (arg == "--modeless") {
        m_modeless = true;
      } else if ((arg == "--local-dir" || arg == "--screenshot") && i + 1 < argc) {
        (arg == "--local-dir" ? m_localDir : m_screenshot) = argv[++i];
      } else {
        std::fprintf(stderr, "ftpzn-host: unknown argument '%s'\n\n%s", arg.utf8_str().data(), kUsage);
        m_exitCode = 2;
        return false;
      }
    }
    return true;
  }

  bool StartScreenshot() {
    auto* frame = new HostFrame(m_localDir);
    if (!frame->OpenFtpWindow()) return false;
    m_timer.Bind(wxEVT_TIMER, [this, frame](wxTimerEvent&) {
      const wxString command = "import -window root '" + m_screenshot + "'";
      m_exitCode = std::system(command.utf8_str()) == 0 ? 0 : 1;
      if (m_exitCode == 0) std::printf("%s\n", m_screenshot.utf8_str().data());
      std::fflush(stdout);
      frame->Close(true);
      ExitMainLoop();
    });
    m_timer.StartOnce(1500);
    return true;
  }

  bool m_modeless = false;
  wxString m_localDir;
  wxString m_screenshot;
  int m_exitCode = 1;
  wxTimer m_timer;
};

}  // namespace

int main(int argc, char** argv) {
  // --help must work without a display, before the toolkit starts.
  for (int i = 1; i < argc; ++i) {
    if (std::string_view(argv[i]) == "--help" || std::string_view(argv[i]) == "-h") {
      std::fputs(kUsage, stdout);
      return 0;
    }
  }
  wxApp::SetInstance(new HostApp);
  if (!wxEntryStart(argc, argv)) {
    std::fputs("ftpzn-host: cannot open the display (is DISPLAY set?)\n", stderr);
    return 1;
  }
  int code = 1;
  if (wxTheApp->CallOnInit()) {
    code = wxTheApp->OnRun();
  } else {
    code = static_cast<HostApp*>(wxTheApp)->OnExit();
  }
  wxEntryCleanup();
  return code;
}
