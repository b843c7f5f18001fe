// A stand-alone trace surface: coloured lines in a list that keeps the
// newest 256. Creatable by class name; the module itself does not use it.
#pragma once

#include <wx/window.h>

#include "ui/colorlistbox.h"

class CTraceView : public wxWindow {
 public:
  CTraceView() = default;
  bool Create(wxWindow* parent, wxWindowID id, const wxPoint& pos = wxDefaultPosition,
              const wxSize& size = wxDefaultSize);

  // Line types 1 dark green, 2 blue, 3 red, anything else black.
  static wxColour ColourOfType(int type);
  void AddLineText(int type, const wxString& text);
  template <typename... Args>
  void AddLine(int type, const wxString& format, Args... args) {
    AddLineText(type, wxString::Format(format, args...));
  }

  CColorListBox& List() { return m_list; }

  static constexpr int kMaxLines = 256;

 private:
  void OnSize(wxSizeEvent& event);

  CColorListBox m_list;
  wxDECLARE_DYNAMIC_CLASS(CTraceView);
  wxDECLARE_EVENT_TABLE();
};
