#include "mainwnd/dlgftpmainzn.h"

CDlgFtpMainzn::CDlgFtpMainzn(wxWindow* parent)
    : ModuleDialog(parent, IDD, "FTP transfer...", wxSize(980, 640)) {}
