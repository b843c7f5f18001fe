#include "sites/preferences.h"

#include <wx/filename.h>
#include <wx/stdpaths.h>

#include "platform/profile.h"

namespace ftpzn {
namespace {

constexpr int kAbsent = -1;  // 0xFFFFFFFF as the store's 32-bit integers read it

}  // namespace

int ReadLastSelectedSite() { return GetProfileInt(kSectionSettings, kKeyLastSelectedSite, 0); }

void WriteLastSelectedSite(int listPosition) {
  WriteProfileInt(kSectionSettings, kKeyLastSelectedSite, listPosition);
}

wxString ReadLastConnectedSite() {
  return GetProfileString(kSectionSettings, kKeyLastConnectedSite, wxString());
}

void WriteLastConnectedSite(const wxString& profileName) {
  WriteProfileString(kSectionSettings, kKeyLastConnectedSite, profileName);
}

int ReadColumnWidth(const wxString& list, int column, int defaultWidth) {
  const int width = GetProfileInt(kSectionColumns, wxString::Format("%s%d", list, column), kAbsent);
  // A width the list could not show (none, or a damaged value) is no choice.
  return width > 0 && width < 10000 ? width : defaultWidth;
}

void WriteColumnWidth(const wxString& list, int column, int width) {
  WriteProfileInt(kSectionColumns, wxString::Format("%s%d", list, column), width);
}

wxString ReadEmailAddress() { return GetProfileString(kSectionSettings, kKeyEmailAddress, wxString()); }

int ReadTransferMax() { return GetProfileInt(kSectionSettings, kKeyTransferMax, 10); }

int ReadConnectionTimeout() { return GetProfileInt(kSectionSettings, kKeyConnectionTimeout, 30); }

int ReadRemoveFailed() { return GetProfileInt(kSectionSettings, kKeyRemoveFailed, 0); }

void WriteShowTransferManager(int shown) {
  WriteProfileInt(kSectionSettings, kKeyShowTransferManager, shown);
}

int ReadSavePosition() { return GetProfileInt(kSectionSettings, kKeySavePosition, 1); }

bool LoadTransferManagerPlacement(TransferManagerPlacement& placement) {
  if (ReadSavePosition() == 0) return false;
  const struct {
    const char* key;
    int* value;
  } order[] = {{kKeyWndTop, &placement.top},
               {kKeyWndLeft, &placement.left},
               {kKeyWndBottom, &placement.bottom},
               {kKeyWndRight, &placement.right}};
  for (const auto& item : order) {
    const int value = GetProfileInt(kSectionTransferManager, item.key, kAbsent);
    if (value == kAbsent) return false;
    *item.value = value;
  }
  return true;
}

void StoreTransferManagerPlacement(const TransferManagerPlacement& placement) {
  if (ReadSavePosition() == 0) return;
  WriteProfileInt(kSectionTransferManager, kKeyWndStatus, placement.showState);
  WriteProfileInt(kSectionTransferManager, kKeyWndTop, placement.top);
  WriteProfileInt(kSectionTransferManager, kKeyWndLeft, placement.left);
  WriteProfileInt(kSectionTransferManager, kKeyWndBottom, placement.bottom);
  WriteProfileInt(kSectionTransferManager, kKeyWndRight, placement.right);
}

wxString BookmarkFilePath() {
  const wxFileName executable(wxStandardPaths::Get().GetExecutablePath());
  const wxString directory = executable.GetPath(wxPATH_GET_VOLUME | wxPATH_GET_SEPARATOR);
  return wxString::Format("%s/%s", directory, kBookmarkFileName);
}

}  // namespace ftpzn
