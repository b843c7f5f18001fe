#include "ui/colorlistbox.h"

#include <wx/dc.h>
#include <wx/settings.h>

bool CColorListBox::Create(wxWindow* parent, wxWindowID id, const wxPoint& pos, const wxSize& size,
                           long style) {
  return wxVListBox::Create(parent, id, pos, size, style);
}

int CColorListBox::AddString(const wxString& text, const wxColour& colour) {
  m_lines.push_back({text, colour});
  SetItemCount(m_lines.size());
  return GetCount() - 1;
}

void CColorListBox::DeleteString(int index) {
  if (index < 0 || index >= GetCount()) return;
  const int selected = GetSelection();
  m_lines.erase(m_lines.begin() + index);
  SetItemCount(m_lines.size());
  if (selected > index) SetSelection(selected - 1);
}

wxString CColorListBox::GetString(int index) const {
  return index >= 0 && index < GetCount() ? m_lines[index].text : wxString();
}

wxColour CColorListBox::GetItemColour(int index) const {
  return index >= 0 && index < GetCount() ? m_lines[index].colour : wxColour();
}

wxColour CColorListBox::TextColourFor(int index) const {
  if (IsSelected(index)) return wxSystemSettings::GetColour(wxSYS_COLOUR_HIGHLIGHTTEXT);
  if (!IsEnabled()) return wxSystemSettings::GetColour(wxSYS_COLOUR_GRAYTEXT);
  return GetItemColour(index);
}

void CColorListBox::OnDrawItem(wxDC& dc, const wxRect& rect, size_t n) const {
  // The selection background comes from wxVListBox::OnDrawBackground, in
  // the system highlight colour.
  const wxColour old = dc.GetTextForeground();
  dc.SetBackgroundMode(wxBRUSHSTYLE_TRANSPARENT);
  dc.SetTextForeground(TextColourFor(static_cast<int>(n)));
  wxString text = m_lines[n].text;
  if (!HasFlag(wxTAB_TRAVERSAL)) text.Replace("\t", " ");
  text.Replace("\n", " ");
  dc.DrawLabel(text, rect, wxALIGN_LEFT | wxALIGN_CENTER_VERTICAL);
  dc.SetTextForeground(old);
}

wxCoord CColorListBox::OnMeasureItem(size_t) const { return kLineHeight; }
