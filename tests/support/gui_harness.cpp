#include "gui_harness.h"

#include <gtest/gtest.h>
#include <wx/app.h>
#include <wx/evtloop.h>
#include <wx/modalhook.h>
#include <wx/msgdlg.h>
#include <wx/timer.h>
#include <wx/utils.h>
#include <wx/weakref.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <thread>

namespace ftpzn::test {
namespace {

struct ScriptState {
  std::deque<ExpectedDialog> expected;
  std::vector<wxString> messages;
  std::vector<wxString> titles;
};

ScriptState& State() {
  static ScriptState state;
  return state;
}

// Cancels a dialog that an `interact` step left open, so a broken test
// fails instead of hanging the run.
class Watchdog : public wxTimer {
 public:
  Watchdog(wxDialog* dialog, std::string what) : m_dialog(dialog), m_what(std::move(what)) {}
  void Notify() override {
    if (m_dialog && m_dialog->IsModal()) {
      ADD_FAILURE() << "dialog still open after its time limit: " << m_what;
      m_dialog->EndModal(wxID_CANCEL);
    }
  }

 private:
  wxWeakRef<wxDialog> m_dialog;
  std::string m_what;
};

class ScriptHook : public wxModalDialogHook {
 protected:
  int Enter(wxDialog* dialog) override {
    auto& state = State();
    state.titles.push_back(dialog->GetTitle());
    wxString message;
    if (auto* box = dynamic_cast<wxMessageDialog*>(dialog)) {
      message = box->GetMessage();
      state.messages.push_back(message);
    }
    if (state.expected.empty()) {
      ADD_FAILURE() << "unexpected dialog \"" << dialog->GetTitle().utf8_str() << "\" "
                    << message.utf8_str();
      return wxID_CANCEL;
    }
    ExpectedDialog next = std::move(state.expected.front());
    state.expected.pop_front();
    if (next.answer) {
      const int result = next.answer(dialog);
      if (result == -1) {
        ADD_FAILURE() << "expected " << next.description << ", got dialog \""
                      << dialog->GetTitle().utf8_str() << "\"";
        return wxID_CANCEL;
      }
      return result;
    }
    auto watchdog = std::make_shared<Watchdog>(dialog, next.description);
    watchdog->StartOnce(next.timeoutMs);
    m_watchdogs.push_back(watchdog);
    wxWeakRef<wxDialog> weak(dialog);
    auto interact = next.interact;
    dialog->CallAfter([weak, interact] {
      if (weak) interact(weak.get());
    });
    return wxID_NONE;
  }
  void Exit(wxDialog*) override {}

 private:
  std::vector<std::shared_ptr<Watchdog>> m_watchdogs;
};

}  // namespace

void InstallDialogHook() {
  static ScriptHook hook;
  hook.Register();
}

void DialogScript::Expect(ExpectedDialog expected) { State().expected.push_back(std::move(expected)); }

void DialogScript::ExpectMessageBox(int result) {
  ExpectedDialog box;
  box.description = "message box";
  box.answer = [result](wxDialog* d) { return dynamic_cast<wxMessageDialog*>(d) ? result : -1; };
  Expect(std::move(box));
}

const std::vector<wxString>& DialogScript::MessageBoxTexts() { return State().messages; }
const std::vector<wxString>& DialogScript::DialogTitles() { return State().titles; }
bool DialogScript::Pending() { return !State().expected.empty(); }

void DialogScript::VerifyAndClear() {
  auto& state = State();
  for (const auto& left : state.expected) ADD_FAILURE() << "expected dialog never came: " << left.description;
  state.expected.clear();
  state.messages.clear();
  state.titles.clear();
}

bool PumpUntil(const std::function<bool()>& done, int timeoutMs) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
  for (;;) {
    wxTheApp->Yield(true);
    if (done()) return true;
    if (std::chrono::steady_clock::now() >= deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
}

bool RunEventLoopUntil(const std::function<bool()>& done, int timeoutMs, int checkMs) {
  if (done()) return true;
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
  wxGUIEventLoop loop;
  bool held = false;
  wxTimer check;
  check.Bind(wxEVT_TIMER, [&](wxTimerEvent&) {
    held = done();
    if (held || std::chrono::steady_clock::now() >= deadline) loop.Exit();
  });
  check.Start(checkMs);
  loop.Run();
  check.Stop();
  return held;
}

void PumpFor(int ms) {
  PumpUntil([] { return false; }, ms);
}

std::string SaveScreenshot(const std::string& name) {
  const char* dir = std::getenv("FTPZN_SCREENSHOT_DIR");
  const std::filesystem::path folder = dir && *dir ? dir : std::filesystem::current_path() / "screenshots";
  std::filesystem::create_directories(folder);
  const std::string path = (folder / (name + ".png")).string();
  PumpFor(200);
  const std::string command = "import -window root '" + path + "' 2>/dev/null";
  if (std::system(command.c_str()) != 0) return {};
  return path;
}

std::string MakeTempDir(const std::string& prefix) {
  static std::vector<std::filesystem::path> made;
  static const bool registered = [] {
    std::atexit([] {
      std::error_code ec;
      for (const auto& p : made) std::filesystem::remove_all(p, ec);
    });
    return true;
  }();
  (void)registered;
  std::string pattern = (std::filesystem::temp_directory_path() / (prefix + "XXXXXX")).string();
  if (!mkdtemp(pattern.data())) return {};
  made.emplace_back(pattern);
  return pattern;
}

}  // namespace ftpzn::test
