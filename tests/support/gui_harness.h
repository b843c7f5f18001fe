// What GUI tests share: answering modal dialogs through a dialog hook,
// capturing message-box texts, pumping the event loop until a condition
// holds (bounded), and screenshots.
#pragma once

#include <wx/dialog.h>
#include <wx/string.h>

#include <deque>
#include <functional>
#include <string>
#include <typeinfo>
#include <vector>

namespace ftpzn::test {

// One expected modal dialog. `answer` runs before the dialog is shown and
// returns its result, so the dialog never appears. `interact`, when set
// instead, lets the dialog show and initialise for real and runs inside its
// modal loop; it must end the dialog (EndModal). A watchdog cancels the
// dialog and fails the test if it is still open after `timeoutMs`.
struct ExpectedDialog {
  std::string description;
  std::function<int(wxDialog*)> answer;
  std::function<void(wxDialog*)> interact;
  int timeoutMs = 10000;
};

class DialogScript {
 public:
  // Queues expectations; the next modal dialog takes the first one.
  static void Expect(ExpectedDialog expected);
  // A message box answered with `result` (wxID_OK, wxID_YES...).
  static void ExpectMessageBox(int result = wxID_OK);
  // A dialog of type T answered with `result` without showing it.
  template <typename T>
  static void ExpectModal(int result, std::function<void(T*)> inspect = {}) {
    ExpectedDialog expected;
    expected.description = typeid(T).name();
    expected.answer = [result, inspect](wxDialog* d) {
      auto* typed = dynamic_cast<T*>(d);
      if (!typed) return -1;
      if (inspect) inspect(typed);
      return result;
    };
    Expect(std::move(expected));
  }
  // Texts of every message box shown since the last Clear(), in order.
  static const std::vector<wxString>& MessageBoxTexts();
  // Titles of every dialog seen (message boxes included).
  static const std::vector<wxString>& DialogTitles();
  // Fails the current test if expectations are left over, then resets.
  static void VerifyAndClear();
  static bool Pending();
};

// Pumps events until `done` returns true or `timeoutMs` passes; returns
// whether it held.
bool PumpUntil(const std::function<bool()>& done, int timeoutMs = 5000);
// Pumps events for a short while (lets layout and paints settle).
void PumpFor(int ms);
// Runs a real event loop until `done` holds (checked every `checkMs`) or
// `timeoutMs` passes; returns whether it held. Unlike PumpUntil, which
// sleeps between its passes, the loop waits in the toolkit's poll and
// wakes at once for each event, as a host's main loop does: for timing
// what a user would see.
bool RunEventLoopUntil(const std::function<bool()>& done, int timeoutMs, int checkMs = 10);
// Saves a PNG of the whole virtual screen; returns the path written.
std::string SaveScreenshot(const std::string& name);
// A fresh temporary directory removed at process exit.
std::string MakeTempDir(const std::string& prefix);

}  // namespace ftpzn::test
