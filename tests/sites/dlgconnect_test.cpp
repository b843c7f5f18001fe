// "FTP Sites" as a real window under Xvfb, driven through its controls.
#include "sites/dlgconnect.h"

#include <gtest/gtest.h>
#include <wx/button.h>
#include <wx/checkbox.h>
#include <wx/config.h>
#include <wx/listbox.h>
#include <wx/menu.h>
#include <wx/textctrl.h>
#include <wx/uiaction.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

#include "gui_harness.h"
#include "res/menus.h"
#include "sites/sitefile.h"

namespace ftpzn::test {
namespace {

using Steps = std::function<void(CDlgConnect*)>;

wxTextCtrl* Text(wxWindow* dialog, int id) { return dynamic_cast<wxTextCtrl*>(dialog->FindWindow(id)); }
wxCheckBox* Box(wxWindow* dialog, int id) { return dynamic_cast<wxCheckBox*>(dialog->FindWindow(id)); }
wxString Value(wxWindow* dialog, int id) { return Text(dialog, id)->GetValue(); }
bool Masked(wxWindow* dialog) { return Text(dialog, CDlgConnect::IDC_PASSWORD)->HasFlag(wxTE_PASSWORD); }

// Setting the text sends the change notification, as typing does.
void Type(wxWindow* dialog, int id, const wxString& text) { Text(dialog, id)->SetValue(text); }

void Click(wxWindow* dialog, int id) {
  wxWindow* control = dialog->FindWindow(id);
  ASSERT_NE(control, nullptr) << id;
  wxEventType type = wxEVT_BUTTON;
  if (auto* box = dynamic_cast<wxCheckBox*>(control)) {
    box->SetValue(!box->GetValue());
    type = wxEVT_CHECKBOX;
  }
  wxCommandEvent event(type, id);
  event.SetEventObject(control);
  if (type == wxEVT_CHECKBOX) event.SetInt(static_cast<wxCheckBox*>(control)->GetValue());
  control->GetEventHandler()->ProcessEvent(event);
}

void SelectItem(CDlgConnect* dialog, int position) {
  dialog->m_listSites->SetSelection(position);
  wxCommandEvent event(wxEVT_LISTBOX, CDlgConnect::IDC_SITE_LIST);
  event.SetEventObject(dialog->m_listSites);
  event.SetInt(position);
  dialog->m_listSites->GetEventHandler()->ProcessEvent(event);
}

// The list as "name=index" items, in list order.
std::vector<std::string> Items(CDlgConnect* dialog) {
  std::vector<std::string> items;
  for (unsigned int i = 0; i < dialog->m_listSites->GetCount(); ++i) {
    const auto index = reinterpret_cast<intptr_t>(dialog->m_listSites->GetClientData(i));
    items.push_back(std::string(dialog->m_listSites->GetString(i).utf8_str()) + "=" + std::to_string(index));
  }
  return items;
}

CFtpSite Site(const wxString& name, const wxString& host, const wxString& login, const wxString& password) {
  CFtpSite site = BuiltInSite();
  site.m_strProfileName = name;
  site.m_strHost = host;
  site.m_strLogin = login;
  site.m_strPassword = password;
  return site;
}

class DlgConnectTest : public testing::Test {
 protected:
  void SetUp() override {
    m_dir = wxString(MakeTempDir("ftpzn-sites-gui-"));
    SetModuleDirectoryForTesting(m_dir);
    wxConfigBase::Get()->DeleteGroup("/Settings");
  }
  void TearDown() override {
    SetModuleDirectoryForTesting(wxString());
    DialogScript::VerifyAndClear();
  }

  void WriteSites(std::vector<CFtpSite> sites) { ASSERT_TRUE(SerializeSites(SitesPath(), sites, true)); }
  std::vector<CFtpSite> ReadSites() {
    std::vector<CFtpSite> sites;
    SerializeSites(SitesPath(), sites, false);
    return sites;
  }
  wxString SitesPath() const { return m_dir + "/sites.dat"; }

  // Shows the dialog modally for real and runs `steps` inside its loop; the
  // steps end it through its own buttons.
  int ShowAndDrive(CDlgConnect& dialog, Steps steps) {
    ExpectedDialog expected;
    expected.description = "FTP Sites";
    expected.interact = [steps](wxDialog* shown) {
      auto* sites = dynamic_cast<CDlgConnect*>(shown);
      if (sites) steps(sites);
      if (shown->IsModal()) {
        ADD_FAILURE() << "the steps left the dialog open";
        shown->EndModal(-1);
      }
    };
    DialogScript::Expect(std::move(expected));
    return dialog.ShowModal();
  }

  wxString m_dir;
};

TEST_F(DlgConnectTest, BuiltInProfileWithoutSiteFileConnects) {
  CDlgConnect dialog(nullptr);
  EXPECT_EQ(dialog.GetTitle(), "FTP Sites");
  const int result = ShowAndDrive(dialog, [](CDlgConnect* d) {
    EXPECT_EQ(d->m_listSites->GetCount(), 0u);
    EXPECT_EQ(d->m_listSites->GetSelection(), wxNOT_FOUND);
    EXPECT_EQ(Value(d, CDlgConnect::IDC_PORT), "21");
    EXPECT_EQ(Value(d, CDlgConnect::IDC_RETRIES), "3");
    EXPECT_EQ(Value(d, CDlgConnect::IDC_RETRY_DELAY), "10");
    EXPECT_TRUE(Box(d, CDlgConnect::IDC_PASSIVE)->GetValue());
    EXPECT_FALSE(Box(d, CDlgConnect::IDC_ANONYMOUS)->GetValue());
    EXPECT_FALSE(Value(d, CDlgConnect::IDC_LOGIN).empty());
    EXPECT_EQ(Value(d, CDlgConnect::IDC_LOGIN), Value(d, CDlgConnect::IDC_PASSWORD));
    EXPECT_TRUE(Value(d, CDlgConnect::IDC_INITIAL_PATH).StartsWith("/"));
    EXPECT_FALSE(Value(d, CDlgConnect::IDC_HOST).empty());
    EXPECT_TRUE(Value(d, CDlgConnect::IDC_ACCOUNT).empty());
    EXPECT_TRUE(Masked(d));
    for (int id : {9052,  9022, 9023, 9048, 9053, 9024, 9025, 9009, 9047, 9045,
                   24026, 9062, 9043, 9044, 9032, 9034, 1,    2,    9050, 9035})
      EXPECT_NE(d->FindWindow(id), nullptr) << "control " << id;
    EXPECT_EQ(dynamic_cast<wxButton*>(d->FindWindow(1))->GetLabel(), "&Connect");
    // "Save ..." keeps the width of its label, clear of the Wizard button.
    wxWindow* saveOption = d->FindWindow(CDlgConnect::IDC_SAVE_OPTION);
    EXPECT_GE(saveOption->GetSize().x, saveOption->GetBestSize().x);
    EXPECT_LT(saveOption->GetRect().GetRight(), d->FindWindow(CDlgConnect::IDC_WIZARD)->GetPosition().x);
    EXPECT_FALSE(SaveScreenshot("dlgconnect-builtin").empty());
    Click(d, 1);
  });
  EXPECT_EQ(result, 1);
  CFtpSite chosen;
  chosen.m_strAccount = "kept";
  chosen.m_nReserved = 5;
  dialog.CopyChosenSiteInto(chosen);
  CFtpSite expected = BuiltInSite();
  expected.m_strAccount = "kept";
  expected.m_nReserved = 5;
  EXPECT_EQ(chosen, expected);
  EXPECT_FALSE(wxFileExists(SitesPath())) << "the built-in profile is not written";
}

TEST_F(DlgConnectTest, AddSaveRemoveKeepItemsPointingAtTheirRecords) {
  CFtpSite beta = Site("Beta", "b.example", "bob", "pw");
  beta.m_nReserved = 77;
  WriteSites({beta});
  CDlgConnect dialog(nullptr);
  const int result = ShowAndDrive(dialog, [this](CDlgConnect* d) {
    EXPECT_EQ(Items(d), (std::vector<std::string>{"Beta=0"}));

    Type(d, CDlgConnect::IDC_PROFILE_NAME, "alpha");
    Type(d, CDlgConnect::IDC_HOST, "a.example");
    Type(d, CDlgConnect::IDC_PORT, "2100");
    Click(d, CDlgConnect::IDC_ADD);
    EXPECT_EQ(Items(d), (std::vector<std::string>{"alpha=1", "Beta=0"}));
    EXPECT_EQ(d->m_listSites->GetSelection(), 0);
    EXPECT_EQ(d->m_bModified, 0) << "a save that reached the file clears the mark";

    Type(d, CDlgConnect::IDC_PROFILE_NAME, "Gamma");
    Type(d, CDlgConnect::IDC_HOST, "g.example");
    Click(d, CDlgConnect::IDC_ADD);
    EXPECT_EQ(Items(d), (std::vector<std::string>{"alpha=1", "Beta=0", "Gamma=2"}));

    // A name that differs only in case is refused by clearing the field.
    Type(d, CDlgConnect::IDC_PROFILE_NAME, "BETA");
    Click(d, CDlgConnect::IDC_ADD);
    EXPECT_EQ(Value(d, CDlgConnect::IDC_PROFILE_NAME), "");
    EXPECT_EQ(d->m_listSites->GetCount(), 3u);
    EXPECT_EQ(ReadSites().size(), 3u);

    std::vector<CFtpSite> onDisk = ReadSites();
    ASSERT_EQ(onDisk.size(), 3u);
    EXPECT_EQ(onDisk[1].m_strProfileName, "alpha");
    EXPECT_EQ(onDisk[1].m_nPort, 2100);
    EXPECT_EQ(onDisk[1].m_nReserved, 0);
    EXPECT_EQ(onDisk[0].m_nReserved, 77);

    SelectItem(d, 1);
    EXPECT_EQ(Value(d, CDlgConnect::IDC_HOST), "b.example");
    EXPECT_EQ(Value(d, CDlgConnect::IDC_PROFILE_NAME), "Beta");
    EXPECT_EQ(Value(d, CDlgConnect::IDC_PORT), "21");
    EXPECT_EQ(wxConfigBase::Get()->ReadLong("/Settings/LastSelectedSite", -1), 1);

    // Save may rename onto an existing name; the reserved value stays.
    Type(d, CDlgConnect::IDC_PROFILE_NAME, "ALPHA");
    Type(d, CDlgConnect::IDC_HOST, "b2.example");
    Click(d, CDlgConnect::IDC_SAVE);
    EXPECT_EQ(Items(d), (std::vector<std::string>{"alpha=1", "ALPHA=0", "Gamma=2"}));
    EXPECT_EQ(d->m_listSites->GetSelection(), 1);
    onDisk = ReadSites();
    ASSERT_EQ(onDisk.size(), 3u);
    EXPECT_EQ(onDisk[0].m_strProfileName, "ALPHA");
    EXPECT_EQ(onDisk[0].m_strHost, "b2.example");
    EXPECT_EQ(onDisk[0].m_nReserved, 77);

    // Removing record 1 moves the later record down and re-points its item.
    SelectItem(d, 0);
    Click(d, CDlgConnect::IDC_REMOVE);
    EXPECT_EQ(Items(d), (std::vector<std::string>{"ALPHA=0", "Gamma=1"}));
    EXPECT_EQ(d->m_listSites->GetSelection(), 0);
    EXPECT_EQ(Value(d, CDlgConnect::IDC_HOST), "b2.example") << "position 0 is selected and shown";
    onDisk = ReadSites();
    ASSERT_EQ(onDisk.size(), 2u);
    EXPECT_EQ(onDisk[1].m_strProfileName, "Gamma");

    Click(d, CDlgConnect::IDC_REMOVE);
    EXPECT_EQ(Items(d), (std::vector<std::string>{"Gamma=0"}));
    Click(d, CDlgConnect::IDC_REMOVE);
    EXPECT_TRUE(Items(d).empty());
    EXPECT_EQ(Value(d, CDlgConnect::IDC_HOST), "g.example") << "the removed profile stays in the fields";
    EXPECT_TRUE(ReadSites().empty());
    Click(d, CDlgConnect::IDC_REMOVE);  // nothing selected: nothing happens
    Click(d, 2);
  });
  EXPECT_EQ(result, 2);
}

TEST_F(DlgConnectTest, AnonymousShowsTheAddressReadable) {
  wxConfigBase::Get()->Write("/Settings/EmailAddress", "me@example.org");
  WriteSites(
      {Site("Pub", "p.example", "Anonymous", "x@y.example"), Site("Priv", "q.example", "bob", "secret")});
  CDlgConnect dialog(nullptr);
  ShowAndDrive(dialog, [](CDlgConnect* d) {
    d->m_listSites->SetSelection(wxNOT_FOUND);  // it opened on the first profile
    Click(d, CDlgConnect::IDC_ANONYMOUS);
    EXPECT_EQ(Value(d, CDlgConnect::IDC_LOGIN), "anonymous");
    EXPECT_EQ(Value(d, CDlgConnect::IDC_PASSWORD), "me@example.org");
    EXPECT_FALSE(Masked(d));

    // Off with nothing selected: the fields and the masking stay.
    Click(d, CDlgConnect::IDC_ANONYMOUS);
    EXPECT_EQ(Value(d, CDlgConnect::IDC_LOGIN), "anonymous");
    EXPECT_FALSE(Masked(d));

    Click(d, CDlgConnect::IDC_ANONYMOUS);
    Type(d, CDlgConnect::IDC_LOGIN, "carol");
    EXPECT_TRUE(Masked(d)) << "another login hides the password";
    EXPECT_FALSE(Box(d, CDlgConnect::IDC_ANONYMOUS)->GetValue());
    Type(d, CDlgConnect::IDC_LOGIN, "ANONYMOUS");
    EXPECT_FALSE(Box(d, CDlgConnect::IDC_ANONYMOUS)->GetValue()) << "typing it does not tick the box";

    SelectItem(d, 1);  // "Pub" sorts after "Priv"
    EXPECT_EQ(Value(d, CDlgConnect::IDC_PASSWORD), "x@y.example");
    EXPECT_FALSE(Masked(d));
    EXPECT_TRUE(Box(d, CDlgConnect::IDC_ANONYMOUS)->GetValue());

    SelectItem(d, 0);
    EXPECT_TRUE(Masked(d));
    EXPECT_FALSE(Box(d, CDlgConnect::IDC_ANONYMOUS)->GetValue());
    Click(d, CDlgConnect::IDC_ANONYMOUS);
    EXPECT_EQ(Value(d, CDlgConnect::IDC_PASSWORD), "me@example.org");
    EXPECT_FALSE(Masked(d));
    Click(d, CDlgConnect::IDC_ANONYMOUS);  // off again: the record's login comes back
    EXPECT_EQ(Value(d, CDlgConnect::IDC_LOGIN), "bob");
    EXPECT_EQ(Value(d, CDlgConnect::IDC_PASSWORD), "secret");
    EXPECT_TRUE(Masked(d));
    Click(d, 2);
  });
}

TEST_F(DlgConnectTest, OpensOnTheSiteLastConnectedToAndInitialisesOnce) {
  WriteSites({Site("One", "1.example", "u", "p"), Site("Two", "2.example", "u", "p")});
  wxConfigBase::Get()->Write("/Settings/LastSelectedSite", 1L);
  // Each run opens on what the run before left, then picks another and
  // leaves with Connect or Cancel.
  struct Case {
    const char* what;
    const char* shown;
    int pick;
    int button;
  } cases[] = {
      {"never connected: the first, not the stored list position", "One", 1, 1},
      {"connected to Two: Two", "Two", 0, 2},
      {"One picked but cancelled: still Two", "Two", 0, 2},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    CDlgConnect dialog(nullptr);
    ShowAndDrive(dialog, [&c](CDlgConnect* d) {
      EXPECT_EQ(d->m_listSites->GetStringSelection(), c.shown);
      EXPECT_EQ(Value(d, CDlgConnect::IDC_HOST), wxString(c.shown) == "One" ? "1.example" : "2.example");
      SaveScreenshot(std::string("dlgconnect-opened-on-") + c.shown);
      SelectItem(d, c.pick);
      Click(d, c.button);
    });
    // A second show does not load the file into the list again.
    dialog.Show();
    dialog.Hide();
    EXPECT_EQ(dialog.m_listSites->GetCount(), 2u);
  }
}

TEST_F(DlgConnectTest, BadNumberKeepsTheDialogOpen) {
  CDlgConnect dialog(nullptr);
  const int result = ShowAndDrive(dialog, [](CDlgConnect* d) {
    Type(d, CDlgConnect::IDC_HOST, "typed.example");
    Type(d, CDlgConnect::IDC_PORT, " 12x ");
    Type(d, CDlgConnect::IDC_RETRIES, "9");
    DialogScript::ExpectMessageBox();
    Click(d, 1);
    EXPECT_TRUE(d->IsModal());
    ASSERT_FALSE(DialogScript::MessageBoxTexts().empty());
    EXPECT_EQ(DialogScript::MessageBoxTexts().back(), "Please enter an integer.");
    EXPECT_EQ(d->m_strHost, "typed.example") << "fields before the bad one are taken";
    EXPECT_EQ(d->m_nRetries, 3) << "fields after it keep their values";
    Type(d, CDlgConnect::IDC_PORT, " 2121 ");
    Click(d, 1);
  });
  EXPECT_EQ(result, 1);
  EXPECT_EQ(dialog.m_nPort, 2121);
  EXPECT_EQ(dialog.m_nRetries, 9);
}

TEST_F(DlgConnectTest, DoubleClickOnASiteConnects) {
  CFtpSite site = Site("Only", "only.example", "u", "p");
  site.m_nPort = 2323;
  site.m_strAccount = "ignored";
  WriteSites({site});
  CDlgConnect dialog(nullptr);
  const int result = ShowAndDrive(dialog, [](CDlgConnect* d) {
    PumpFor(300);
    wxUIActionSimulator mouse;
    mouse.MouseMove(d->m_listSites->ClientToScreen(wxPoint(30, 12)));
    PumpFor(50);
    mouse.MouseDblClick();
    if (!PumpUntil([d] { return !d->IsModal(); }, 3000)) Click(d, 2);
  });
  EXPECT_EQ(result, 1);
  CFtpSite chosen;
  dialog.CopyChosenSiteInto(chosen);
  EXPECT_EQ(chosen.m_nPort, 2323);
  EXPECT_EQ(chosen.m_strHost, "only.example");
  EXPECT_TRUE(chosen.m_strAccount.empty()) << "the account is not taken over";
}

TEST_F(DlgConnectTest, ManyProfilesListSortedAndPointingAtTheirRecords) {
  // A large or damaged site file may hold many thousands of records.
  constexpr int kCount = 20000;
  std::vector<CFtpSite> sites;
  sites.reserve(kCount);
  for (int i = 0; i < kCount; ++i) {
    // Names in a scrambled order, each twice in different cases.
    const int n = (i * 7919) % (kCount / 2);
    sites.push_back(Site(wxString::Format(i % 2 ? "Site%05d" : "site%05d", n), "h", "u", "p"));
  }
  WriteSites(sites);
  CDlgConnect dialog(nullptr);
  const int result = ShowAndDrive(dialog, [&](CDlgConnect* d) {
    ASSERT_EQ(d->m_listSites->GetCount(), static_cast<unsigned>(kCount));
    wxString previous;
    for (unsigned i = 0; i < d->m_listSites->GetCount(); ++i) {
      const wxString text = d->m_listSites->GetString(i);
      const auto index = static_cast<size_t>(reinterpret_cast<intptr_t>(d->m_listSites->GetClientData(i)));
      ASSERT_LT(index, d->m_arrSites.size());
      ASSERT_EQ(d->m_arrSites[index].m_strProfileName, text) << i;
      ASSERT_LE(previous.CmpNoCase(text), 0) << i;
      previous = text;
    }
    Click(d, 2);
  });
  EXPECT_EQ(result, 2);
}

// The bookmark menu is a resource of its own that the main window does not
// load; its popup still carries its items in their order.
TEST(BookmarkMenu, AddBookmarkThenASeparatorThenMicrosoftAndFileExplore) {
  std::unique_ptr<wxMenuBar> bar(res::LoadMenuBar(res::kMenuBookmarks));
  ASSERT_TRUE(bar);
  ASSERT_EQ(bar->GetMenuCount(), 1u);
  EXPECT_EQ(bar->GetMenuLabelText(0), "Bookmark");
  std::vector<std::pair<int, wxString>> items;
  for (wxMenuItem* item : bar->GetMenu(0)->GetMenuItems())
    items.emplace_back(item->IsSeparator() ? 0 : item->GetId(), item->GetItemLabelText());
  const std::vector<std::pair<int, wxString>> expected = {
      {9119, "Settings"}, {9129, "Add Bookmark"}, {0, ""}, {9130, "Microsoft"}, {9098, "File Explore"}};
  EXPECT_EQ(items, expected);
}

}  // namespace
}  // namespace ftpzn::test
