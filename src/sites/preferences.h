// Every value the module keeps in the host's profile store, with its
// section, key and default. Values are read where they are used, so each
// accessor reads the store anew.
#pragma once

#include <wx/string.h>

namespace ftpzn {

inline constexpr char kSectionSettings[] = "Settings";
inline constexpr char kSectionTransferManager[] = "TransferManager";
inline constexpr char kSectionColumns[] = "Columns";

inline constexpr char kKeyLastSelectedSite[] = "LastSelectedSite";
inline constexpr char kKeyEmailAddress[] = "EmailAddress";
inline constexpr char kKeyTransferMax[] = "TransferMax";
inline constexpr char kKeyConnectionTimeout[] = "ConnectionTimeout";
inline constexpr char kKeyRemoveFailed[] = "RemoveFailed";
inline constexpr char kKeyShowTransferManager[] = "ShowTransferManager";
inline constexpr char kKeySavePosition[] = "SavePosition";
inline constexpr char kKeyWndTop[] = "WndTop";
inline constexpr char kKeyWndLeft[] = "WndLeft";
inline constexpr char kKeyWndBottom[] = "WndBottom";
inline constexpr char kKeyWndRight[] = "WndRight";
inline constexpr char kKeyWndStatus[] = "WndStatus";
inline constexpr char kKeyLastConnectedSite[] = "LastConnectedSite";

// "Settings"/"LastSelectedSite", default 0: written by the site manager on
// every selection (a list position, which moves as profiles come and go);
// read when it opens and not applied.
int ReadLastSelectedSite();
void WriteLastSelectedSite(int listPosition);
// "Settings"/"LastConnectedSite", default empty: the profile name of the
// site the site manager last connected to; it opens with that one chosen.
wxString ReadLastConnectedSite();
void WriteLastConnectedSite(const wxString& profileName);
// "Columns"/"<list><column>" (e.g. "Remote0"): a column width the user
// dragged; `defaultWidth` when none was kept.
int ReadColumnWidth(const wxString& list, int column, int defaultWidth);
void WriteColumnWidth(const wxString& list, int column, int width);
// "Settings"/"EmailAddress", default empty: the anonymous password. Only
// the host writes it.
wxString ReadEmailAddress();
// "Settings"/"TransferMax", default 10: most transfers running at once.
int ReadTransferMax();
// "Settings"/"ConnectionTimeout", default 30 seconds.
int ReadConnectionTimeout();
// "Settings"/"RemoveFailed", default 0: drop failed transfers from the queue.
int ReadRemoveFailed();
// "Settings"/"ShowTransferManager": written (0) when the user closes the
// transfer manager; never read.
void WriteShowTransferManager(int shown);
// "Settings"/"SavePosition", default 1: keep the transfer manager's place.
int ReadSavePosition();

// The transfer manager's normal-window rectangle in "TransferManager".
struct TransferManagerPlacement {
  int showState = 0;
  int top = 0;
  int left = 0;
  int bottom = 0;
  int right = 0;
};
// With "SavePosition" not 0: reads WndTop, WndLeft, WndBottom, WndRight in
// that order, each defaulting to 0xFFFFFFFF (absent), stopping at the first
// absent one. True only when all four are present; the show state is not
// read.
bool LoadTransferManagerPlacement(TransferManagerPlacement& placement);
// With "SavePosition" not 0: writes WndStatus, WndTop, WndLeft, WndBottom,
// WndRight in that order; otherwise writes nothing.
void StoreTransferManagerPlacement(const TransferManagerPlacement& placement);

// Bookmarks exist only in a rudimentary form: the menu commands below and
// the file name; no bookmark is ever read or written.
inline constexpr int kCmdAddBookmark = 9129;     // no handler
inline constexpr int kCmdBookmarkAppend = 9130;  // appends "MO" to popup 5
inline constexpr int kCmdFileExplore = 9098;     // a main-window command
inline constexpr int kCmdBookmarkItem = 100;     // the appended item; no handler
inline constexpr int kBookmarkMenuPosition = 5;
inline constexpr char kBookmarkFileName[] = "ftpznbm.ini";

// The executable's directory (ending in its separator), a "/" and
// "ftpznbm.ini": the doubled separator is the historical form and is kept.
wxString BookmarkFilePath();

}  // namespace ftpzn
