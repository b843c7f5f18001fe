#include "platform/profile.h"

#include <wx/config.h>

#include <cstdint>

namespace ftpzn {
namespace {

wxString KeyPath(const wxString& section, const wxString& key) { return "/" + section + "/" + key; }

}  // namespace

int GetProfileInt(const wxString& section, const wxString& key, int defaultValue) {
  wxConfigBase* config = wxConfigBase::Get();
  if (!config) return defaultValue;
  wxString text;
  if (!config->Read(KeyPath(section, key), &text)) return defaultValue;
  long long value = 0;
  if (!text.Trim().Trim(false).ToLongLong(&value)) return defaultValue;
  return static_cast<int>(static_cast<int32_t>(static_cast<uint32_t>(value)));
}

wxString GetProfileString(const wxString& section, const wxString& key, const wxString& defaultValue) {
  wxConfigBase* config = wxConfigBase::Get();
  if (!config) return defaultValue;
  return config->Read(KeyPath(section, key), defaultValue);
}

bool WriteProfileInt(const wxString& section, const wxString& key, int value) {
  wxConfigBase* config = wxConfigBase::Get();
  if (!config) return false;
  const bool ok = config->Write(KeyPath(section, key), static_cast<long>(value));
  config->Flush();
  return ok;
}

bool WriteProfileString(const wxString& section, const wxString& key, const wxString& value) {
  wxConfigBase* config = wxConfigBase::Get();
  if (!config) return false;
  const bool ok = config->Write(KeyPath(section, key), value);
  config->Flush();
  return ok;
}

}  // namespace ftpzn
