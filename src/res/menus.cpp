#include "res/menus.h"

#include <wx/menu.h>

#include <initializer_list>
#include <utility>

namespace ftpzn::res {
namespace {

struct Item {
  int id;  // 0: separator
  const char* text;
};

wxMenu* MakeMenu(std::initializer_list<Item> items) {
  auto* menu = new wxMenu;
  for (const Item& item : items) {
    if (item.id == 0)
      menu->AppendSeparator();
    else
      menu->Append(item.id, wxString::FromUTF8(item.text));
  }
  return menu;
}

wxMenu* MainPopup(int index) {
  switch (index) {
    case 0:
      return MakeMenu({{9094, "Connect..."}, {9097, "Disconnect..."}, {0, ""}, {9095, "Exit"}});
    case 1:
      return MakeMenu({{9117, "Select All"},
                       {9116, "Select Files..."},
                       {9115, "Select Groups..."},
                       {9118, "Invert Selection"},
                       {0, ""},
                       {9114, "Sorting"}});
    case 2:
      return MakeMenu({{9101, "Refresh"},
                       {9100, "Up Directory"},
                       {9104, "Change Directory"},
                       {9102, "New Directory"},
                       {9123, "Delete"},
                       {9121, "Delete File"},
                       {9103, "Delete Directory"},
                       {9124, "Delete Recursive"},
                       {9112, "Save list..."}});
    case 3:
      return MakeMenu({{9107, "Refresh"},
                       {9108, "Up Directory"},
                       {9109, "Change Directory"},
                       {9110, "New Directory"},
                       {9127, "Delete"},
                       {9126, "Delete File"},
                       {9111, "Delete Directory"},
                       {9128, "Delete Recursive"},
                       {9113, "Save List..."}});
    case 4:
      return MakeMenu({{9106, "Download"}, {9105, "Upload"}, {0, ""}, {9099, "Transfer Manager"}});
    default:
      return nullptr;
  }
}

const char* const kMainTitles[] = {"File", "Edit", "Local", "Remote", "Transfer"};

wxMenu* BookmarkPopup(int index) {
  if (index != 0) return nullptr;
  return MakeMenu(
      {{9119, "Settings"}, {9129, "Add Bookmark"}, {0, ""}, {9130, "Microsoft"}, {9098, "File Explore"}});
}

wxMenu* TransferPopup(int index) {
  switch (index) {
    case 0:
      return MakeMenu({{9120, "&Cancel"}, {9122, "&Resubmit"}, {0, ""}, {9131, "E&xit"}});
    case 1:
      return MakeMenu({{57642, "Select &All\tCtrl+A"}, {9125, "&Invert Selection"}});
    case 2:
      return MakeMenu({{57666, "&Help Topics\tF1"}});
    default:
      return nullptr;
  }
}

}  // namespace

wxMenu* LoadPopup(int id, int index) {
  switch (id) {
    case kMenuMain:
      return MainPopup(index);
    case kMenuBookmarks:
      return BookmarkPopup(index);
    case kMenuTransfer:
      return TransferPopup(index);
    default:
      return nullptr;
  }
}

wxMenuBar* LoadMenuBar(int id) {
  auto* bar = new wxMenuBar;
  switch (id) {
    case kMenuMain:
      for (int i = 0; i < 5; ++i) bar->Append(MainPopup(i), kMainTitles[i]);
      return bar;
    case kMenuBookmarks:
      bar->Append(BookmarkPopup(0), "Bookmark");
      return bar;
    case kMenuTransfer:
      bar->Append(TransferPopup(0), "&Transfer");
      bar->Append(TransferPopup(1), "&Edit");
      bar->Append(TransferPopup(2), "&Help");
      return bar;
    default:
      delete bar;
      return nullptr;
  }
}

}  // namespace ftpzn::res
