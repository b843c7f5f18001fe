// The module's menus, by resource number: 9070 (the main window's menu bar,
// whose third and fourth popups are also the panes' context menus), 9132
// (bookmarks) and 9017 (the transfer manager's popup).
#pragma once

class wxMenu;
class wxMenuBar;

namespace ftpzn::res {

enum MenuId : int { kMenuMain = 9070, kMenuTransfer = 9017, kMenuBookmarks = 9132 };

// A new menu bar the caller owns; nullptr for an unknown number.
wxMenuBar* LoadMenuBar(int id);
// A new copy of popup `index` of menu `id`, owned by the caller; nullptr
// when there is no such popup.
wxMenu* LoadPopup(int id, int index);

}  // namespace ftpzn::res
