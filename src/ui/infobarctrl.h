// One line of bold white text on a dark band, with the middle of an
// over-long text (a path, typically) elided. A ready control for an
// information bar.
#pragma once

#include <wx/font.h>
#include <wx/window.h>

class CInfobarCtrl : public wxWindow {
 public:
  CInfobarCtrl() = default;
  bool Create(wxWindow* parent, wxWindowID id, const wxPoint& pos = wxDefaultPosition,
              const wxSize& size = wxDefaultSize);

  void SetText(const wxString& text);
  const wxString& GetText() const { return m_strText; }
  // Where the text goes (left, top, right, bottom as the rectangle's edges).
  wxRect GetTextRect() const { return m_rcText; }
  // The rectangle the text is drawn into, and the text as drawn (elided
  // to fit), as the next paint will produce them.
  wxRect DrawingRect() const;
  wxString DrawnText() const;

  bool m_bSunken = false;
  bool m_bFramed = false;

 private:
  void OnPaint(wxPaintEvent& event);

  wxFont m_font;
  wxRect m_rcText;
  wxString m_strText;
  wxDECLARE_EVENT_TABLE();
};
