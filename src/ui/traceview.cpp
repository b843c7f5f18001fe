#include "ui/traceview.h"

#include <wx/settings.h>

wxIMPLEMENT_DYNAMIC_CLASS(CTraceView, wxWindow);

wxBEGIN_EVENT_TABLE(CTraceView, wxWindow)
  EVT_SIZE(CTraceView::OnSize)
wxEND_EVENT_TABLE()

bool CTraceView::Create(wxWindow* parent, wxWindowID id, const wxPoint& pos, const wxSize& size) {
  if (!wxWindow::Create(parent, id, pos, size)) return false;
  // The list's first-platform child id (280369) is past wx's id range.
  if (!m_list.Create(this, wxID_ANY, wxPoint(0, 0), GetClientSize(), wxVSCROLL | wxHSCROLL))
    return false;
  m_list.SetBackgroundColour(wxSystemSettings::GetColour(wxSYS_COLOUR_BTNFACE));
  m_list.SetFont(wxSystemSettings::GetFont(wxSYS_ANSI_VAR_FONT));
  m_list.Show();
  return true;
}

wxColour CTraceView::ColourOfType(int type) {
  switch (type) {
    case 1:
      return wxColour(0, 130, 0);
    case 2:
      return wxColour(0, 0, 255);
    case 3:
      return wxColour(255, 0, 0);
    default:
      return wxColour(0, 0, 0);
  }
}

void CTraceView::AddLineText(int type, const wxString& text) {
  if (m_list.GetCount() > kMaxLines - 1) m_list.DeleteString(0);
  const int index = m_list.AddString(text, ColourOfType(type));
  m_list.SetSelection(index);
  m_list.ScrollToRow(index);
}

void CTraceView::OnSize(wxSizeEvent& event) {
  event.Skip();
  if (!m_list.GetHandle()) return;  // a size event may come before the list exists
  m_list.SetSize(0, 0, GetClientSize().x, GetClientSize().y);
  m_list.Refresh();
}
