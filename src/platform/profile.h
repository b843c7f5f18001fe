// The host application's profile store (wxConfigBase::Get(), fetched at each
// use, so the module always reads the host's current store). A section is a
// config group: ("Settings", "TransferMax") is /Settings/TransferMax.
#pragma once

#include <wx/string.h>

namespace ftpzn {

// Integers are 32-bit: 0xFFFFFFFF written reads back as -1. A missing or
// unparsable value gives the default.
int GetProfileInt(const wxString& section, const wxString& key, int defaultValue);
wxString GetProfileString(const wxString& section, const wxString& key, const wxString& defaultValue);
// Writes and flushes at once; false when there is no store.
bool WriteProfileInt(const wxString& section, const wxString& key, int value);
bool WriteProfileString(const wxString& section, const wxString& key, const wxString& value);

}  // namespace ftpzn
