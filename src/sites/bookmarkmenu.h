// The bookmark commands the main window routes here.
#pragma once

class wxMenuBar;

namespace ftpzn {

// Command 9130: appends a plain item "MO" (command 100) to the popup at
// position 5 of the window's menu, one more on every use. A menu without
// that popup is left alone, since nothing may bring the host down.
void AppendBookmarkItem(wxMenuBar* menuBar);

}  // namespace ftpzn
