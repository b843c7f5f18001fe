#include "ui/infobarctrl.h"

#include <wx/control.h>
#include <wx/dcbuffer.h>
#include <wx/dcclient.h>
#include <wx/settings.h>

wxBEGIN_EVENT_TABLE(CInfobarCtrl, wxWindow)
  EVT_PAINT(CInfobarCtrl::OnPaint)
wxEND_EVENT_TABLE()

bool CInfobarCtrl::Create(wxWindow* parent, wxWindowID id, const wxPoint& pos, const wxSize& size) {
  if (!wxWindow::Create(parent, id, pos, size, wxFULL_REPAINT_ON_RESIZE)) return false;
  SetBackgroundStyle(wxBG_STYLE_PAINT);
  m_font = wxFont(wxFontInfo(wxSize(0, 16)).Bold().FaceName("Arial"));
  return true;
}

void CInfobarCtrl::SetText(const wxString& text) {
  m_strText = text;
  wxClientDC dc(this);
  dc.SetFont(m_font);
  const int width = dc.GetTextExtent(text).x;
  const int height = GetClientSize().y;
  // Edges: left 1, top 1, right w + 23, bottom h - 1.
  m_rcText = wxRect(wxPoint(1, 1), wxPoint(width + 23 - 1, height - 1 - 1));
  Refresh(true);
}

wxRect CInfobarCtrl::DrawingRect() const {
  int left = m_rcText.GetLeft();
  int right = m_rcText.GetRight() + 1;  // exclusive edge
  const int top = m_rcText.GetTop();
  const int bottom = m_rcText.GetBottom() + 1;
  const int clientWidth = GetClientSize().x;
  if (right >= clientWidth) right = clientWidth - 1;
  left += 5;
  right -= 5 + 12;
  return wxRect(left, top, std::max(0, right - left), std::max(0, bottom - top));
}

wxString CInfobarCtrl::DrawnText() const {
  wxClientDC dc(const_cast<CInfobarCtrl*>(this));
  dc.SetFont(m_font);
  return wxControl::Ellipsize(m_strText, dc, wxELLIPSIZE_MIDDLE, DrawingRect().width);
}

void CInfobarCtrl::OnPaint(wxPaintEvent&) {
  wxAutoBufferedPaintDC dc(this);
  // The band is the button-shadow colour; GTK themes make that too light to
  // carry white text, so a light one is darkened.
  wxColour band = wxSystemSettings::GetColour(wxSYS_COLOUR_BTNSHADOW);
  if (band.GetLuminance() > 0.55) band = band.ChangeLightness(55);
  dc.SetBackground(wxBrush(band));
  dc.Clear();
  dc.SetFont(m_font);
  dc.SetBackgroundMode(wxBRUSHSTYLE_TRANSPARENT);
  dc.SetTextForeground(*wxWHITE);
  if (m_bFramed) {
    wxRect frame = m_rcText;
    const int clientWidth = GetClientSize().x;
    if (frame.GetRight() + 1 >= clientWidth) frame.SetRight(clientWidth - 2);
    const wxColour topLeft = m_bSunken ? *wxBLACK : *wxWHITE;
    const wxColour bottomRight = m_bSunken ? *wxWHITE : *wxBLACK;
    dc.SetPen(wxPen(topLeft));
    dc.DrawLine(frame.GetTopLeft(), frame.GetTopRight());
    dc.DrawLine(frame.GetTopLeft(), frame.GetBottomLeft());
    dc.SetPen(wxPen(bottomRight));
    dc.DrawLine(frame.GetBottomLeft(), frame.GetBottomRight());
    dc.DrawLine(frame.GetTopRight(), frame.GetBottomRight());
  }
  const wxRect rect = DrawingRect();
  const wxString text = wxControl::Ellipsize(m_strText, dc, wxELLIPSIZE_MIDDLE, rect.width);
  dc.SetClippingRegion(rect);
  dc.DrawLabel(text, rect, wxALIGN_LEFT | wxALIGN_CENTER_VERTICAL);
  dc.DestroyClippingRegion();
}
