// The module's load and unload hooks: what its windows need from the
// framework is registered when the library is loaded into a wx process and
// released when it goes.
#include <wx/image.h>
#include <wx/module.h>

#include "inet/inet.h"

namespace {

class CFtpznModule : public wxModule {
 public:
  bool OnInit() override {
    // Icons and animations are decoded from memory: PNG and GIF handlers
    // must be there, whether or not the host registered them.
    if (!wxImage::FindHandler(wxBITMAP_TYPE_PNG)) {
      wxImage::AddHandler(new wxPNGHandler);
      m_addedPng = true;
    }
    if (!wxImage::FindHandler(wxBITMAP_TYPE_GIF)) {
      wxImage::AddHandler(new wxGIFHandler);
      m_addedGif = true;
    }
    return true;
  }
  void OnExit() override {
    // Connections the workers left logged in say goodbye with the module.
    ftpzn::inet::EmptyConnectionPool();
    if (m_addedPng) wxImage::RemoveHandler("PNG file");
    if (m_addedGif) wxImage::RemoveHandler("GIF file");
  }

 private:
  bool m_addedPng = false;
  bool m_addedGif = false;
  wxDECLARE_DYNAMIC_CLASS(CFtpznModule);
};

wxIMPLEMENT_DYNAMIC_CLASS(CFtpznModule, wxModule);

}  // namespace
