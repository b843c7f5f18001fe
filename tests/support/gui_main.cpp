// main() of every GUI test binary: GoogleTest inside a real wx main loop,
// with asserts, logs and unexpected dialogs turned into test failures.
#include <gtest/gtest.h>
#include <wx/app.h>
#include <wx/init.h>
#include <wx/log.h>

#include <cstdlib>
#include <string>

#include "gui_harness.h"

namespace ftpzn::test {
void InstallDialogHook();
}

namespace {

class TestApp : public wxApp {
 public:
  bool OnInit() override { return true; }  // no command-line parsing: gtest owns argv
};

void AssertToFailure(const wxString& file, int line, const wxString& func, const wxString& cond,
                     const wxString& msg) {
  ADD_FAILURE() << "wx assert " << file.utf8_str() << ":" << line << " " << func.utf8_str()
                << ": " << cond.utf8_str() << " " << msg.utf8_str();
}

}  // namespace

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  // Preferences go to ~/.<AppName>: keep them away from the real home.
  const std::string home = ftpzn::test::MakeTempDir("ftpzn-home-");
  setenv("HOME", home.c_str(), 1);

  wxApp::SetInstance(new TestApp);
  if (!wxEntryStart(argc, argv)) return 2;
  wxTheApp->SetAppName("ftpzn-tests");
  wxTheApp->SetAppDisplayName("ftpzn-tests");
  if (!wxTheApp->CallOnInit()) return 2;
  wxTheApp->SetExitOnFrameDelete(false);
  wxLog::SetActiveTarget(new wxLogStderr);
  wxSetAssertHandler(AssertToFailure);
  ftpzn::test::InstallDialogHook();

  int result = 1;
  wxTheApp->CallAfter([&result] {
    result = RUN_ALL_TESTS();
    wxTheApp->ExitMainLoop();
  });
  wxTheApp->OnRun();
  wxTheApp->OnExit();
  wxEntryCleanup();
  return result;
}
