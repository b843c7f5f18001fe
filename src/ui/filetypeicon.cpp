#include "ui/filetypeicon.h"

#include <gio/gio.h>
#include <wx/artprov.h>

#include "res/resources.h"

namespace ftpzn {

wxBitmapBundle FileTypeIcon(const wxString& name, const wxSize& size) {
  gboolean uncertain = FALSE;
  gchar* type = g_content_type_guess(name.utf8_str().data(), nullptr, 0, &uncertain);
  GIcon* icon = type ? g_content_type_get_icon(type) : nullptr;
  g_free(type);
  wxBitmapBundle found;
  if (icon && G_IS_THEMED_ICON(icon)) {
    // The theme's names for the type, most specific first; GTK's art
    // provider looks a name up in the icon theme.
    for (const gchar* const* names = g_themed_icon_get_names(G_THEMED_ICON(icon)); names && *names; ++names) {
      found = wxArtProvider::GetBitmapBundle(wxString::FromUTF8(*names), wxART_OTHER, size);
      if (found.IsOk()) break;
    }
  }
  if (icon) g_object_unref(icon);
  return found.IsOk() ? found : res::LoadIconBundle(res::kIconFile, size);
}

}  // namespace ftpzn
