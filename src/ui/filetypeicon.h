// The icon of a kind of file, by its name alone (the file need not exist).
#pragma once

#include <wx/bmpbndl.h>
#include <wx/string.h>

namespace ftpzn {

// The desktop theme's icon for the type guessed from `name`, else the
// module's own file icon.
wxBitmapBundle FileTypeIcon(const wxString& name, const wxSize& size);

}  // namespace ftpzn
