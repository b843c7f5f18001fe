// The trace view, the colour list box, the info bar and the two small
// dialogs, shown for real.
#include <gtest/gtest.h>
#include <wx/button.h>
#include <wx/frame.h>
#include <wx/gauge.h>
#include <wx/settings.h>
#include <wx/stattext.h>
#include <wx/textctrl.h>
#include <wx/uiaction.h>

#include <memory>

#include "gui_harness.h"
#include "ui/dialogs.h"
#include "ui/dlginputstring.h"
#include "ui/dlgwaitmessage.h"
#include "ui/infobarctrl.h"
#include "ui/traceview.h"

using ftpzn::test::DialogScript;
using ftpzn::test::ExpectedDialog;
using ftpzn::test::PumpFor;

namespace {

struct FrameDeleter {
  void operator()(wxFrame* f) const { f->Destroy(); }
};
using FramePtr = std::unique_ptr<wxFrame, FrameDeleter>;

FramePtr MakeFrame() {
  FramePtr frame(new wxFrame(nullptr, wxID_ANY, "controls", wxPoint(0, 0), wxSize(500, 300)));
  frame->Show();
  return frame;
}

void Click(wxDialog* dialog, int id) {
  wxCommandEvent click(wxEVT_BUTTON, id);
  click.SetEventObject(dialog->FindWindow(id));
  dialog->FindWindow(id)->GetEventHandler()->ProcessEvent(click);
}

TEST(TraceViewTest, KeepsTheNewest256LinesInTheirColoursWithTheLastSelected) {
  FramePtr frame = MakeFrame();
  auto* view = dynamic_cast<CTraceView*>(wxCreateDynamicObject("CTraceView"));
  ASSERT_NE(view, nullptr) << "creatable by class name";
  ASSERT_TRUE(view->Create(frame.get(), wxID_ANY, wxPoint(0, 0), wxSize(480, 280)));
  for (int i = 0; i < 300; ++i) view->AddLine(i % 4, "line %d", i);
  CColorListBox& list = view->List();
  ASSERT_EQ(list.GetCount(), 256);
  EXPECT_EQ(list.GetString(0), "line 44");
  EXPECT_EQ(list.GetString(255), "line 299");
  EXPECT_EQ(list.GetSelection(), 255);
  EXPECT_EQ(list.GetItemColour(255), wxColour(255, 0, 0)) << "299 % 4 == 3: red";
  EXPECT_EQ(list.GetItemColour(254), wxColour(0, 0, 255));
  EXPECT_EQ(list.GetItemColour(253), wxColour(0, 130, 0));
  EXPECT_EQ(list.GetItemColour(252), wxColour(0, 0, 0));
  EXPECT_EQ(CTraceView::ColourOfType(7), wxColour(0, 0, 0));

  // Colour 0 draws black; a selected line draws in the highlight text colour.
  EXPECT_EQ(list.TextColourFor(252), wxColour(0, 0, 0));
  EXPECT_EQ(list.TextColourFor(255), wxSystemSettings::GetColour(wxSYS_COLOUR_HIGHLIGHTTEXT));

  frame->SetSize(700, 400);
  PumpFor(100);
  EXPECT_EQ(list.GetSize(), view->GetClientSize());
}

TEST(InfobarTest, ElidesTheMiddleOfALongTextAndKeepsClearOfTheRightEdge) {
  FramePtr frame = MakeFrame();
  auto* bar = new CInfobarCtrl;
  ASSERT_TRUE(bar->Create(frame.get(), wxID_ANY, wxPoint(0, 0), wxSize(300, 28)));
  bar->SetText("short");
  EXPECT_EQ(bar->GetTextRect().GetLeft(), 1);
  EXPECT_EQ(bar->GetTextRect().GetTop(), 1);
  EXPECT_EQ(bar->GetTextRect().GetBottom() + 1, 28 - 1);
  EXPECT_EQ(bar->DrawnText(), "short");

  const wxString path = "/home/user/a/very/long/path/that/cannot/possibly/fit/into/the/bar/file.txt";
  bar->SetText(path);
  const wxString drawn = bar->DrawnText();
  EXPECT_NE(drawn, path);
  EXPECT_TRUE(drawn.StartsWith("/home")) << drawn;
  EXPECT_TRUE(drawn.EndsWith("file.txt")) << drawn;
  const wxRect area = bar->DrawingRect();
  EXPECT_LE(area.GetRight() + 1, 300 - 1 - 17) << "never over the right 17 pixels";
  EXPECT_EQ(area.x, 1 + 5);
  PumpFor(100);
  ftpzn::test::SaveScreenshot("infobar");
}

TEST(InputDialogTest, ConfirmedWithoutTypingReturnsTheDefaultText) {
  ExpectedDialog expected;
  expected.description = "name input";
  expected.interact = [](wxDialog* d) {
    auto* input = dynamic_cast<CDlgInputString*>(d);
    ASSERT_NE(input, nullptr);
    EXPECT_EQ(input->GetTitle(), "New folder");
    EXPECT_EQ(input->InputCtrl()->GetValue(), "Please input here...");
    Click(d, 1);
  };
  DialogScript::Expect(expected);
  CDlgInputString dialog;
  dialog.m_strTitle = "New folder";
  EXPECT_EQ(dialog.ShowModal(), 1);
  EXPECT_EQ(dialog.m_strInput, "Please input here...");

  expected.interact = [](wxDialog* d) {
    static_cast<CDlgInputString*>(d)->InputCtrl()->SetValue("incoming");
    Click(d, 2);
  };
  DialogScript::Expect(expected);
  EXPECT_EQ(dialog.ShowModal(), 2);
  EXPECT_EQ(dialog.m_strInput, "Please input here...") << "Cancel keeps the member";

  // Enter in the field confirms the name as typed, without a line break.
  expected.interact = [](wxDialog* d) {
    wxTextCtrl* field = static_cast<CDlgInputString*>(d)->InputCtrl();
    field->SetValue("reports");
    field->SetFocus();
    field->SetInsertionPointEnd();
    PumpFor(50);
    wxUIActionSimulator().Char(WXK_RETURN);
    ftpzn::test::PumpUntil([d] { return !d->IsModal(); }, 2000);
    if (d->IsModal()) d->EndModal(2);
  };
  DialogScript::Expect(expected);
  EXPECT_EQ(dialog.ShowModal(), 1);
  EXPECT_EQ(dialog.m_strInput, "reports");
  DialogScript::VerifyAndClear();
}

TEST(WaitDialogTest, ShowsTheSecondsAndAnEmptyBarAndEndsOnlyByCancel) {
  ExpectedDialog expected;
  expected.description = "retry wait";
  expected.interact = [](wxDialog* d) {
    auto* wait = dynamic_cast<CDlgWaitMessage*>(d);
    ASSERT_NE(wait, nullptr);
    auto* countdown = dynamic_cast<wxStaticText*>(d->FindWindow(9031));
    auto* message = dynamic_cast<wxStaticText*>(d->FindWindow(9033));
    EXPECT_EQ(countdown->GetLabel(), "FTP Rovendel will retry to connect after 10 seconds...");
    EXPECT_EQ(message->GetLabel(), "530 Login incorrect.");
    EXPECT_EQ(wait->m_ctrlProgress->GetRange(), 10);
    EXPECT_EQ(wait->m_ctrlProgress->GetValue(), 0);
    // The countdown line is not cut short at the font in use.
    EXPECT_LE(countdown->GetTextExtent(countdown->GetLabel()).x, countdown->GetSize().x);
    EXPECT_LE(countdown->GetRect().GetRight(), d->GetClientSize().x);
    ftpzn::test::SaveScreenshot("retry-wait");
    PumpFor(1300);  // a timer tick passes: nothing counts down, nothing closes
    EXPECT_TRUE(d->IsModal());
    EXPECT_EQ(countdown->GetLabel(), "FTP Rovendel will retry to connect after 10 seconds...");
    EXPECT_EQ(wait->m_ctrlProgress->GetValue(), 0);
    Click(d, 2);
  };
  DialogScript::Expect(expected);
  CDlgWaitMessage dialog;
  dialog.m_strMessage = "530 Login incorrect.";
  dialog.m_nSeconds = 10;
  EXPECT_EQ(dialog.ShowModal(), 2);
  DialogScript::VerifyAndClear();
}

TEST(DataExchangeTest, IntegerFieldsTakeBlanksAndSigned32BitDecimalsOnly) {
  struct Case {
    const char* text;
    bool ok;
    int value;
  } cases[] = {
      {"21", true, 21},         {"  -5 ", true, -5},       {"+7", true, 7},
      {"2147483647", true, INT32_MAX}, {"-2147483648", true, INT32_MIN}, {"2147483648", false, 0},
      {"", false, 0},           {"12a", false, 0},         {"1 2", false, 0},
      {"-", false, 0},          {"0x10", false, 0},
  };
  for (const Case& c : cases) {
    int value = 0;
    EXPECT_EQ(ftpzn::ParseInt32(c.text, value), c.ok) << c.text;
    if (c.ok) {
      EXPECT_EQ(value, c.value) << c.text;
    }
  }

  FramePtr frame = MakeFrame();
  auto* field = new wxTextCtrl(frame.get(), wxID_ANY, "abc");
  DialogScript::ExpectMessageBox();
  int value = 99;
  EXPECT_FALSE(ftpzn::ReadIntField(field, value));
  EXPECT_EQ(value, 99);
  ASSERT_EQ(DialogScript::MessageBoxTexts().size(), 1u);
  EXPECT_EQ(DialogScript::MessageBoxTexts()[0], "Please enter an integer.");
  long from = 0, to = 0;
  field->GetSelection(&from, &to);
  EXPECT_EQ(to - from, 3) << "the field's text is selected";
  DialogScript::VerifyAndClear();
}

}  // namespace
