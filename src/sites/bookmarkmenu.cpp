#include "sites/bookmarkmenu.h"

#include <wx/menu.h>

#include "sites/preferences.h"

namespace ftpzn {

void AppendBookmarkItem(wxMenuBar* menuBar) {
  if (!menuBar || menuBar->GetMenuCount() <= static_cast<size_t>(kBookmarkMenuPosition)) return;
  menuBar->GetMenu(kBookmarkMenuPosition)->Append(kCmdBookmarkItem, "MO");
}

}  // namespace ftpzn
