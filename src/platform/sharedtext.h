// A text that many objects hold alike: copies share one immutable string,
// so a hundred thousand queued transfers to one host, from one folder, keep
// one copy of the host name and of the folder. Safe to read from several
// threads at once.
#pragma once

#include <wx/string.h>

#include <memory>

namespace ftpzn {

class SharedText {
 public:
  SharedText() = default;
  SharedText(const wxString& text)  // NOLINT: stands in for a string member
      : m_text(text.empty() ? nullptr : std::make_shared<const wxString>(text)) {}
  SharedText(const char* text) : SharedText(wxString(text)) {}  // NOLINT

  const wxString& str() const { return m_text ? *m_text : Empty(); }
  operator const wxString&() const { return str(); }  // NOLINT
  bool empty() const { return !m_text; }
  bool operator==(const wxString& other) const { return str() == other; }

  // `text` as a SharedText, sharing `last` when it holds the same text, and
  // remembered in `last` for the next call: consecutive texts that repeat
  // (one folder's files) share one copy.
  static SharedText Reuse(SharedText& last, const wxString& text) {
    if (last.str() != text) last = SharedText(text);
    return last;
  }

 private:
  static const wxString& Empty() {
    static const wxString empty;
    return empty;
  }

  std::shared_ptr<const wxString> m_text;
};

}  // namespace ftpzn
