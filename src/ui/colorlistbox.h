// A list box whose every line has its own text colour (the line's item
// data). Owner-drawn: each line is as high as a menu check mark.
#pragma once

#include <wx/colour.h>
#include <wx/vlbox.h>

#include <vector>

class CColorListBox : public wxVListBox {
 public:
  CColorListBox() = default;
  bool Create(wxWindow* parent, wxWindowID id, const wxPoint& pos = wxDefaultPosition,
              const wxSize& size = wxDefaultSize, long style = 0);

  // The new line's index.
  int AddString(const wxString& text, const wxColour& colour);
  void DeleteString(int index);
  int GetCount() const { return static_cast<int>(m_lines.size()); }
  wxString GetString(int index) const;
  wxColour GetItemColour(int index) const;
  // The colour the line's text is drawn in: highlight text when selected,
  // grey when the list is disabled, else the line's own colour.
  wxColour TextColourFor(int index) const;

  static constexpr int kLineHeight = 16;  // the menu check-mark height

 protected:
  void OnDrawItem(wxDC& dc, const wxRect& rect, size_t n) const override;
  wxCoord OnMeasureItem(size_t n) const override;

 private:
  struct Line {
    wxString text;
    wxColour colour;
  };
  std::vector<Line> m_lines;
};
