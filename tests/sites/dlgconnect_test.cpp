// "FTP Sites" as a real window under Xvfb, driven through its controls.
#include "sites/dlgconnect.h"

#include <gtest/gtest.h>
#include <wx/checkbox.h>
#include <wx/config.h>
#include <wx/listbox.h>
#include <wx/textctrl.h>

#include "gui_harness.h"
#include "sites/sitefile.h"

namespace ftpzn::test {
namespace {

using D = CDlgConnect;
using Strings = std::vector<std::string>;

wxTextCtrl* Text(wxWindow* dialog, int id) { return dynamic_cast<wxTextCtrl*>(dialog->FindWindow(id)); }
wxCheckBox* Box(wxWindow* dialog, int id) { return dynamic_cast<wxCheckBox*>(dialog->FindWindow(id)); }
wxString Value(wxWindow* dialog, int id) { return Text(dialog, id)->GetValue(); }

// Setting the text sends the change notification, as typing does.
void Type(wxWindow* dialog, std::initializer_list<std::pair<int, wxString>> fields) {
  for (const auto& [id, text] : fields) Text(dialog, id)->SetValue(text);
}

// Login, password, whether it is masked and whether Anonymous is ticked.
std::string Anonymity(wxWindow* d) {
  return std::string((Value(d, D::IDC_LOGIN) + "|" + Value(d, D::IDC_PASSWORD)).utf8_str()) +
         (Text(d, D::IDC_PASSWORD)->HasFlag(wxTE_PASSWORD) ? "|masked" : "|shown") +
         (Box(d, D::IDC_ANONYMOUS)->GetValue() ? "|ticked" : "|clear");
}

void Click(wxWindow* dialog, int id) {
  wxWindow* control = dialog->FindWindow(id);
  ASSERT_NE(control, nullptr) << id;
  auto* box = dynamic_cast<wxCheckBox*>(control);
  if (box) box->SetValue(!box->GetValue());
  wxCommandEvent event(box ? wxEVT_CHECKBOX : wxEVT_BUTTON, id);
  event.SetEventObject(control);
  if (box) event.SetInt(box->GetValue());
  control->GetEventHandler()->ProcessEvent(event);
}

void SelectItem(CDlgConnect* dialog, int position) {
  dialog->m_listSites->SetSelection(position);
  wxCommandEvent event(wxEVT_LISTBOX, D::IDC_SITE_LIST);
  event.SetEventObject(dialog->m_listSites);
  event.SetInt(position);
  dialog->m_listSites->GetEventHandler()->ProcessEvent(event);
}

// The list as "name=index" items, in list order.
Strings Items(CDlgConnect* dialog) {
  Strings items;
  for (unsigned int i = 0; i < dialog->m_listSites->GetCount(); ++i) {
    const auto index = reinterpret_cast<intptr_t>(dialog->m_listSites->GetClientData(i));
    items.push_back(std::string(dialog->m_listSites->GetString(i).utf8_str()) + "=" + std::to_string(index));
  }
  return items;
}

CFtpSite Site(const wxString& name, const wxString& host, const wxString& login = "u",
              const wxString& password = "p") {
  CFtpSite site = BuiltInSite();
  site.m_strProfileName = name, site.m_strHost = host, site.m_strLogin = login, site.m_strPassword = password;
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
  // The file's records as "name host port reserved", in file order.
  Strings OnDisk() {
    std::vector<CFtpSite> sites;
    SerializeSites(SitesPath(), sites, false);
    Strings records;
    for (const CFtpSite& s : sites)
      records.push_back(std::string(
          wxString::Format("%s %s %d %d", s.m_strProfileName, s.m_strHost, s.m_nPort, s.m_nReserved)
              .utf8_str()));
    return records;
  }
  wxString SitesPath() const { return m_dir + "/sites.dat"; }

  // Shows the dialog modally for real and runs `steps` inside its loop; the
  // steps end it through its own buttons.
  int ShowAndDrive(CDlgConnect& dialog, std::function<void(CDlgConnect*)> steps) {
    ExpectedDialog expected;
    expected.description = "FTP Sites";
    expected.interact = [steps](wxDialog* shown) {
      if (auto* sites = dynamic_cast<CDlgConnect*>(shown)) steps(sites);
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

TEST_F(DlgConnectTest, AddSaveRemoveKeepItemsPointingAtTheirRecords) {
  CFtpSite beta = Site("Beta", "b.example", "bob", "pw");
  beta.m_nReserved = 77;
  WriteSites({beta});
  CDlgConnect dialog(nullptr);
  const int result = ShowAndDrive(dialog, [this](CDlgConnect* d) {
    EXPECT_EQ(Items(d), Strings{"Beta=0"});
    Type(d, {{D::IDC_PROFILE_NAME, "alpha"}, {D::IDC_HOST, "a.example"}, {D::IDC_PORT, "2100"}});
    Click(d, D::IDC_ADD);
    EXPECT_EQ(Items(d), (Strings{"alpha=1", "Beta=0"}));
    EXPECT_EQ(d->m_listSites->GetSelection(), 0);
    EXPECT_EQ(d->m_bModified, 0) << "a save that reached the file clears the mark";
    Type(d, {{D::IDC_PROFILE_NAME, "Gamma"}, {D::IDC_HOST, "g.example"}});
    Click(d, D::IDC_ADD);
    EXPECT_EQ(Items(d), (Strings{"alpha=1", "Beta=0", "Gamma=2"}));

    // A name that differs only in case is refused by clearing the field.
    Type(d, {{D::IDC_PROFILE_NAME, "BETA"}});
    Click(d, D::IDC_ADD);
    EXPECT_EQ(Value(d, D::IDC_PROFILE_NAME), "");
    EXPECT_EQ(d->m_listSites->GetCount(), 3u);
    EXPECT_EQ(OnDisk(),
              (Strings{"Beta b.example 21 77", "alpha a.example 2100 0", "Gamma g.example 2100 0"}));

    SelectItem(d, 1);
    EXPECT_EQ(std::pair(Value(d, D::IDC_HOST), Value(d, D::IDC_PORT)), std::pair(wxString("b.example"), wxString("21")));
    EXPECT_EQ(wxConfigBase::Get()->ReadLong("/Settings/LastSelectedSite", -1), 1);

    // Save may rename onto an existing name; the reserved value stays.
    Type(d, {{D::IDC_PROFILE_NAME, "ALPHA"}, {D::IDC_HOST, "b2.example"}});
    Click(d, D::IDC_SAVE);
    EXPECT_EQ(Items(d), (Strings{"alpha=1", "ALPHA=0", "Gamma=2"}));
    EXPECT_EQ(d->m_listSites->GetSelection(), 1);
    EXPECT_EQ(OnDisk()[0], "ALPHA b2.example 21 77");

    // Removing record 1 moves the later record down and re-points its item;
    // position 0 is then selected and shown.
    SelectItem(d, 0);
    Click(d, D::IDC_REMOVE);
    EXPECT_EQ(Items(d), (Strings{"ALPHA=0", "Gamma=1"}));
    EXPECT_EQ(d->m_listSites->GetSelection(), 0);
    EXPECT_EQ(Value(d, D::IDC_HOST), "b2.example");
    EXPECT_EQ(OnDisk(), (Strings{"ALPHA b2.example 21 77", "Gamma g.example 2100 0"}));
    Click(d, D::IDC_REMOVE);
    EXPECT_EQ(Items(d), Strings{"Gamma=0"});
    Click(d, D::IDC_REMOVE);
    EXPECT_TRUE(Items(d).empty());
    EXPECT_EQ(Value(d, D::IDC_HOST), "g.example") << "the removed profile stays in the fields";
    EXPECT_TRUE(OnDisk().empty());
    Click(d, D::IDC_REMOVE);  // nothing selected: nothing happens
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
    // Each step, then what the login fields show after it.
    const std::pair<std::function<void()>, std::string> steps[] = {
        {[d] { Click(d, D::IDC_ANONYMOUS); }, "anonymous|me@example.org|shown|ticked"},
        // Off with nothing selected: the fields and the masking stay.
        {[d] { Click(d, D::IDC_ANONYMOUS); }, "anonymous|me@example.org|shown|clear"},
        {[d] {
           Click(d, D::IDC_ANONYMOUS), Type(d, {{D::IDC_LOGIN, "carol"}});
         },
         "carol|me@example.org|masked|clear"},
        // Typing the name does not tick the box.
        {[d] {
           Type(d, {{D::IDC_LOGIN, "ANONYMOUS"}});
         },
         "ANONYMOUS|me@example.org|masked|clear"},
        {[d] { SelectItem(d, 1); }, "Anonymous|x@y.example|shown|ticked"},  // "Pub" sorts after "Priv"
        {[d] { SelectItem(d, 0); }, "bob|secret|masked|clear"},
        {[d] { Click(d, D::IDC_ANONYMOUS); }, "anonymous|me@example.org|shown|ticked"},
        // Off again with a profile selected: the record's login comes back.
        {[d] { Click(d, D::IDC_ANONYMOUS); }, "bob|secret|masked|clear"},
    };
    for (const auto& [step, shown] : steps) {
      step();
      EXPECT_EQ(Anonymity(d), shown);
    }
    Click(d, 2);
  });
}

TEST_F(DlgConnectTest, OpensOnTheExampleThenOnTheSiteLastConnectedTo) {
  {
    CDlgConnect dialog(nullptr);
    EXPECT_EQ(ShowAndDrive(dialog, [](CDlgConnect* d) {
                EXPECT_EQ(d->m_listSites->GetCount(), 0u);
                // The example's password is its login, and masked.
                EXPECT_EQ(Anonymity(d),
                          std::string((Value(d, D::IDC_LOGIN) + "|" + Value(d, D::IDC_LOGIN)).utf8_str()) +
                              "|masked|clear");
                EXPECT_EQ(d->FindWindow(1)->GetLabel(), "&Connect");
                // "Save ..." keeps the width of its label, clear of the Wizard button.
                wxWindow* saveOption = d->FindWindow(D::IDC_SAVE_OPTION);
                EXPECT_GE(saveOption->GetSize().x, saveOption->GetBestSize().x);
                EXPECT_LT(saveOption->GetRect().GetRight(), d->FindWindow(D::IDC_WIZARD)->GetPosition().x);
                Click(d, 1);
              }),
              1);
    // What the fields showed comes back, but for the account and the
    // reserved value; the example is not written.
    CFtpSite chosen, expected = BuiltInSite();
    chosen.m_strAccount = expected.m_strAccount = "kept";
    chosen.m_nReserved = expected.m_nReserved = 5;
    dialog.CopyChosenSiteInto(chosen);
    EXPECT_EQ(chosen, expected);
    EXPECT_FALSE(wxFileExists(SitesPath()));
  }
  CFtpSite one = Site("One", "1.example");
  one.m_nPort = 2323;
  WriteSites({one, Site("Two", "2.example")});
  wxConfigBase::Get()->Write("/Settings/LastSelectedSite", 1L);
  // Each run opens on what the run before left, then picks another and
  // leaves with Connect or Cancel.
  const std::tuple<const char*, const char*, int, int> cases[] = {
      {"never connected: the first, not the stored list position", "One", 1, 1},
      {"connected to Two: Two", "Two", 0, 2},
      {"One picked but cancelled: still Two", "Two", 0, 1},
  };
  for (const auto& [what, shown, pick, button] : cases) {
    SCOPED_TRACE(what);
    CDlgConnect dialog(nullptr);
    const int result = ShowAndDrive(dialog, [&](CDlgConnect* d) {
      EXPECT_EQ(d->m_listSites->GetStringSelection(), shown);
      EXPECT_EQ(Value(d, D::IDC_HOST), wxString(shown) == "One" ? "1.example" : "2.example");
      SelectItem(d, pick);
      Click(d, button);
    });
    EXPECT_EQ(result, button);
    // A second show does not load the file into the list again.
    dialog.Show();
    dialog.Hide();
    EXPECT_EQ(dialog.m_listSites->GetCount(), 2u);
    if (button == 1) {
      CFtpSite chosen;
      dialog.CopyChosenSiteInto(chosen);
      EXPECT_EQ(chosen.m_nPort, pick == 0 ? 2323 : 21);
    }
  }
}

}  // namespace
}  // namespace ftpzn::test
