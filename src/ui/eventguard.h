// The module runs inside someone else's event loop: an exception that
// leaves one of our handlers would reach the host, and the framework's
// default there is to end the process. Our windows stop it at their own
// event processing instead.
#pragma once

#include <wx/event.h>

#include <exception>

namespace ftpzn {

// Notes an exception stopped at a window on standard error, so that it is
// not lost without a word.
void ReportStoppedException(const wxEvent& event, const char* what);

template <class Window>
class EventGuard : public Window {
 public:
  using Window::Window;

  bool ProcessEvent(wxEvent& event) override {
    try {
      return Window::ProcessEvent(event);
    } catch (const std::exception& e) {
      ReportStoppedException(event, e.what());
    } catch (...) {
      ReportStoppedException(event, "an exception of unknown type");
    }
    return true;  // handled: the host never sees it
  }
};

}  // namespace ftpzn
