// The main window, its controls and the entry classes as a host meets them:
// real windows under Xvfb, modal runs ended through the window's own
// commands.
#include <gtest/gtest.h>
#include <wx/app.h>
#include <wx/gauge.h>
#include <wx/menu.h>
#include <wx/settings.h>
#include <wx/stattext.h>
#include <wx/uiaction.h>

#include <ftpzn/ftpface.h>
#include "gui_harness.h"
#include "mainwnd/dlgftpmainwnd.h"
#include "transfer/dlgftptransfermanager.h"
#include "ui/dlginputstring.h"
#include "ui/dlgwaitmessage.h"
#include "ui/infobarctrl.h"
#include "ui/traceview.h"

using ftpzn::test::DialogScript;
using ftpzn::test::PumpFor;
using ftpzn::test::PumpUntil;

namespace {

std::vector<CDlgFTPMainWnd*> MainWindows() {
  std::vector<CDlgFTPMainWnd*> found;
  for (wxWindow* w : wxTopLevelWindows)
    if (auto* main = dynamic_cast<CDlgFTPMainWnd*>(w); main && !wxTheApp->IsScheduledForDestruction(w))
      found.push_back(main);
  return found;
}

void SendCommand(wxWindow* window, int id, wxEventType type = wxEVT_MENU) {
  wxCommandEvent event(type, id);
  event.SetEventObject(window);
  window->ProcessWindowEvent(event);
}

// Runs `action` once the modal run of a main window has begun, then ends
// the run with Exit OK.
void WhenModal(std::function<void(CDlgFTPMainWnd*)> action) {
  wxTheApp->CallAfter([action] {
    CDlgFTPMainWnd* running = nullptr;
    ASSERT_TRUE(PumpUntil([&] {
      for (CDlgFTPMainWnd* w : MainWindows()) running = w->IsModalRun() ? w : running;
      return running != nullptr;
    }));
    action(running);
    SendCommand(running, 9095);
  });
}

// Shows `dialog` modally, letting `interact` use it for real; returns its result.
template <typename Dialog>
int RunModal(Dialog& dialog, std::function<void(Dialog*)> interact) {
  DialogScript::Expect({.description = typeid(Dialog).name(), .answer = {}, .interact = [interact](wxDialog* d) {
                          ASSERT_NE(dynamic_cast<Dialog*>(d), nullptr);  // the harness's watchdog ends it
                          interact(dynamic_cast<Dialog*>(d));
                        }});
  return dialog.ShowModal();
}

class MainWindowTest : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(m_window->Create() && m_window->Show());
    PumpUntil([&] { return m_window->IsShownOnScreen(); });
  }
  void TearDown() override { m_window.reset(), DialogScript::VerifyAndClear(); }
  void ResizeClient(int w, int h) {
    m_window->SetClientSize(w, h);
    PumpUntil([&] { return m_window->Client()->GetClientSize() == wxSize(w, h); });
  }
  wxRect Rect(int id) { return m_window->Client()->FindWindow(id)->GetRect(); }
  std::vector<wxRect> Layout() {
    std::vector<wxRect> rects;
    for (wxWindow* c : m_window->Client()->GetChildren()) rects.push_back(c->GetRect());
    return rects;
  }
  // Rows of {id, left, top, right, bottom}, right and bottom one past the
  // edge; kAny skips an edge.
  static constexpr int kAny = -1;
  void ExpectEdges(std::initializer_list<std::array<int, 5>> rows) {
    for (const auto& [id, left, top, right, bottom] : rows) {
      const wxRect r = Rect(id);
      const std::array<int, 4> want{left, top, right, bottom}, got{r.x, r.y, r.GetRight() + 1, r.GetBottom() + 1};
      for (int i = 0; i < 4; ++i)
        if (want[i] != kAny) { EXPECT_EQ(got[i], want[i]) << id << ", edge " << i; }
    }
  }

  std::unique_ptr<CDlgFTPMainWnd> m_window = std::make_unique<CDlgFTPMainWnd>();
};

TEST_F(MainWindowTest, OpensWithSizeColumnsTheTraceAndATransferManagerShownOnDemand) {
  wxMenuBar* bar = m_window->GetMenuBar();
  ASSERT_EQ(bar->GetMenuCount(), 5u);
  for (CFtpListzn* pane : std::initializer_list<CFtpListzn*>{&m_window->m_ctrlLocal, &m_window->m_ctrlRemote}) {
    wxListItem column;
    column.SetMask(wxLIST_MASK_TEXT | wxLIST_MASK_WIDTH);
    EXPECT_TRUE(pane->GetColumnCount() == 4 && pane->GetColumn(1, column) && column.GetText() == "Size");
    // Wide enough for the largest size a row can hold, in the list's font.
    EXPECT_GT(column.GetWidth(), pane->GetTextExtent("4,194,304 KB").x);
  }
  EXPECT_FALSE(ftpzn::test::SaveScreenshot("main-window").empty());
  // Hidden until asked for; the scheduler's first tick set the limit to 1.
  CDlgFtpTransferManager* manager = m_window->m_pTransferManager;
  ASSERT_NE(manager, nullptr);
  EXPECT_EQ(std::tuple(manager->IsShown(), manager->m_nTransferMax, manager->m_nConnectionTimeout,
                       manager->m_bRemoveFailed, manager->m_pFtpMainWnd),
            std::tuple(false, 1, 30, 0, m_window.get()));
  SendCommand(m_window.get(), 9099);
  EXPECT_TRUE(manager->IsShown() && manager->m_bShow == 1);
  SendCommand(m_window.get(), 9099);
  EXPECT_TRUE(!manager->IsShown() && manager->m_bShow == 0);
  // Five popups: the sixth the command assumes is not there; nothing changes.
  const size_t items = bar->GetMenu(4)->GetMenuItemCount();
  SendCommand(m_window.get(), 9130);
  EXPECT_TRUE(bar->GetMenuCount() == 5 && bar->GetMenu(4)->GetMenuItemCount() == items && !bar->FindItem(100));

  m_window->AddTrace(0, 0, "Open internet session failed");
  m_window->AddTrace(0, 4242, "Closed Ftp connection");
  EXPECT_EQ(m_window->m_strRemoteTrace, "Open internet session failed \n[4242] Closed Ftp connection \n");
  EXPECT_EQ(m_window->m_richRemoteTrace->GetValue(), m_window->m_strRemoteTrace);
  EXPECT_EQ(m_window->m_richLocalTrace->GetValue(), "") << "the pane under the local list stays empty";
  for (int i = 0; i < 300; ++i) m_window->AddTrace(0, 0, wxString('x', 99));  // 101 characters a line
  EXPECT_GT(m_window->m_strRemoteTrace.length(), 30000u) << "the trace itself is never shortened";
  EXPECT_EQ(m_window->m_richRemoteTrace->GetValue(), m_window->m_strRemoteTrace.Right(20000));

  // As the framework's shut-down may do: every open window deleted in turn.
  delete manager;
  SendCommand(m_window.get(), 9099);  // nothing left to show
  for (wxWindow* w : wxTopLevelWindows) EXPECT_TRUE(w->IsBeingDeleted() || !dynamic_cast<CDlgFtpTransferManager*>(w));
  m_window.reset();  // and nothing to destroy again
  EXPECT_TRUE(MainWindows().empty());
}


TEST_F(MainWindowTest, ResizeAndBothSplitsMoveThePanesWithinTheirLimits) {
  // Growing moves the remote side and the traces; nothing goes below the
  // opening size.
  const std::vector<wxRect> opening = Layout();
  const int T = Rect(9081).height, W = 1100, H = 720;
  ResizeClient(W, H);
  ExpectEdges({{9073, kAny, kAny, W - 10, kAny}, {9065, kAny, kAny, W - 10, H - T - 16},
               {9083, kAny, H - T - 10, W - 10, H - 10}, {9081, kAny, H - T - 10, kAny, H - 10},
               {24025, kAny, kAny, kAny, H - T - 10}, {9068, kAny, kAny, 390, H - T - 16},
               {9072, 10, 10, 390, 34}, {9075, 404, 130, kAny, kAny}});  // the local side and the buttons stay
  const std::vector<wxRect> grown = Layout();
  ResizeClient(CDlgFTPMainWnd::kClientWidth - 100, CDlgFTPMainWnd::kClientHeight + 40);
  EXPECT_EQ(Layout(), grown) << "narrower than the opening size: nothing moves";
  ResizeClient(CDlgFTPMainWnd::kClientWidth, CDlgFTPMainWnd::kClientHeight);
  EXPECT_EQ(Layout(), opening);

  // The horizontal bar stays below the vertical one and 20 pixels above the
  // bottom; the trace grows upwards.
  const wxRect hbar = Rect(24025), trace = Rect(9083), pane = Rect(9068);
  const int vBottom = Rect(24024).GetBottom() + 1;
  m_window->MoveHorizontalSplit(vBottom - hbar.y);
  m_window->MoveHorizontalSplit(m_window->Client()->GetClientSize().y - 20 - (hbar.GetBottom() + 1));
  EXPECT_EQ(Layout(), opening);
  m_window->MoveHorizontalSplit(-50);
  ExpectEdges({{24025, kAny, hbar.y - 50, kAny, kAny}, {9083, kAny, trace.y - 50, kAny, trace.GetBottom() + 1},
               {9068, kAny, kAny, kAny, pane.GetBottom() - 49}, {9065, kAny, kAny, kAny, pane.GetBottom() - 49}});
  m_window->MoveHorizontalSplit(vBottom + 1 - (hbar.y - 50));
  EXPECT_EQ(Rect(24025).y, vBottom + 1) << "just below the vertical bar is allowed";

  // A real drag of the vertical bar with the mouse.
  const wxRect localButton = Rect(9071);
  const int client = m_window->Client()->GetClientSize().x;
  const wxPoint start = m_window->Client()->ClientToScreen(Rect(24024).GetPosition() + wxPoint(3, 20));
  wxUIActionSimulator sim;
  const auto pump = [](bool) { PumpFor(50); };
  pump(sim.MouseMove(start));
  pump(sim.MouseDown());
  pump(sim.MouseMove(start + wxPoint(40, 0)));
  sim.MouseUp();
  PumpUntil([&] { return Rect(9072).GetRight() + 1 != 390; }, 2000);
  ExpectEdges({{9072, kAny, kAny, 430, kAny}, {9068, kAny, kAny, 430, kAny}, {9094, 444, kAny, kAny, kAny},
               {24024, 432, kAny, kAny, kAny}, {24025, 432, kAny, kAny, kAny},
               {9073, 490, kAny, client - 10, kAny}});  // the remote edit shrinks from the left
  EXPECT_EQ(Rect(9071), localButton) << "the Local button does not follow the split";
  // Moves are refused as a whole at 60 pixels from the left edge and 120
  // from the right one.
  const std::vector<wxRect> before = Layout();
  m_window->MoveVerticalSplit(60 - 430);
  m_window->MoveVerticalSplit(client - 120 - 430);
  EXPECT_EQ(Layout(), before);
  m_window->MoveVerticalSplit(client - 121 - 430);
  EXPECT_EQ(Rect(9072).GetRight() + 1, client - 121);
  m_window->MoveVerticalSplit(61 - (client - 121));
  EXPECT_EQ(Rect(9072).GetRight() + 1, 61);
}

TEST_F(MainWindowTest, SelectionCommandsAndExceptionsInHandlers) {
  // Select All uses the local count for both panes, skipping indices past
  // the remote end; Invert flips each pane.
  CFtpListzn &local = m_window->m_ctrlLocal, &remote = m_window->m_ctrlRemote;
  local.SetItemCount(3);
  remote.SetItemCount(10);
  SendCommand(m_window.get(), 9117);
  EXPECT_EQ(local.GetSelectedItemCount(), 3);
  for (int i = 0; i < 10; ++i) EXPECT_EQ(remote.GetItemState(i, wxLIST_STATE_SELECTED) != 0, i < 3) << i;
  SendCommand(m_window.get(), 9118);
  EXPECT_EQ(local.GetSelectedItemCount(), 0);
  for (int i = 0; i < 10; ++i) EXPECT_EQ(remote.GetItemState(i, wxLIST_STATE_SELECTED) != 0, i >= 3) << i;
  local.SetItemCount(12);
  remote.SetItemCount(2);
  SendCommand(m_window.get(), 9116);
  EXPECT_EQ(std::pair(local.GetSelectedItemCount(), remote.GetSelectedItemCount()), std::pair(12, 2));

  // An exception in a handler stops at the window, not the host, and the
  // window goes on handling commands.
  int thrown = 0, after = 0;
  remote.Bind(wxEVT_MENU, [&thrown](wxCommandEvent&) { ++thrown, throw std::bad_alloc(); }, 9991);
  m_window->Bind(wxEVT_MENU, [&thrown](wxCommandEvent&) { ++thrown, throw 42; }, 9992);
  local.Bind(wxEVT_MENU, [&after](wxCommandEvent&) { ++after; }, 9993);
  for (int id : {9991, 9992, 9993}) EXPECT_NO_THROW(SendCommand(m_window.get(), id)) << id;
  EXPECT_EQ(std::pair(thrown, after), std::pair(2, 1));
}

TEST(EntryTest, OneWindowPerEntryObjectReusedByModalRunsAndReplacedWhenDeletedBehindItsBack) {
  const size_t before = MainWindows().size();
  wxWeakRef<CDlgFtpTransferManager> manager;
  {
    Cftpfacezn face;
    EXPECT_EQ(face.showFrameWnd("", nullptr), 1);
    ASSERT_EQ(MainWindows().size(), before + 1);
    CDlgFTPMainWnd* window = MainWindows().back();
    EXPECT_EQ(window->m_strLocalDir + window->m_editLocalDir->GetValue(), wxGetHomeDir() + wxGetHomeDir())
        << "empty means home";
    window->Close();  // the close box only hides a modeless window
    EXPECT_FALSE(window->IsShown());
    EXPECT_EQ(face.showFrameWnd("/tmp", nullptr), 1);
    EXPECT_EQ(MainWindows().size(), before + 1);
    EXPECT_TRUE(window->IsShown() && window->m_strLocalDir == "/tmp");

    // A modal run uses the window held, even one a modal dialog of the host
    // disabled; the transfer manager stays usable, a second run (which could
    // never be ended) is refused, and Exit OK appends the results.
    manager = window->m_pTransferManager;
    SendCommand(window, 9099);
    window->Disable();
    wxArrayString results(1, std::array<wxString, 1>{"/existing/one"}.data());
    WhenModal([&](CDlgFTPMainWnd* running) {
      EXPECT_TRUE(running == window && running->IsEnabled() && manager->IsEnabled());
      EXPECT_EQ(running->DoModal(), -1);
      running->m_arrDownloadResults.Add("/tmp/a.txt");
    });
    EXPECT_EQ(face.showFtpMainDoMo("/", &results, nullptr), 1);
    EXPECT_EQ(wxJoin(results, ','), "/existing/one,/tmp/a.txt");
    EXPECT_TRUE(manager->IsEnabled() && !window->IsEnabled());
  }
  EXPECT_EQ(MainWindows().size(), before) << "destroying the entry object deletes its window";
  // A hidden transfer manager left behind would keep the host running.
  EXPECT_TRUE(PumpUntil([&] { return !manager; }));

  // The framework's shut-down deletes every open window before a host's
  // application object (and an entry object it holds) goes. Should the host
  // still call it, it gets a new window.
  auto first = std::make_unique<Cftpfacezn>();
  ASSERT_EQ(first->showFrameWnd("/tmp", nullptr), 1);
  delete MainWindows().back();
  EXPECT_EQ(first->showFrameWnd("/tmp", nullptr), 1);
  ASSERT_EQ(MainWindows().size(), before + 1);
  // Two copies share one window: the second one to go finds it gone.
  auto second = std::make_unique<Cftpfacezn>(*first);
  first.reset();
  EXPECT_EQ(MainWindows().size(), before);
  second.reset();
}

void Click(wxDialog* dialog, int id) { SendCommand(dialog->FindWindow(id), id, wxEVT_BUTTON); }

TEST(ControlsTest, TraceViewKeepsTheNewest256LinesInTheirColoursAndTheInfobarElidesTheMiddle) {
  auto* frame = new wxFrame(nullptr, wxID_ANY, "controls", {0, 0}, {500, 300});
  frame->Show();
  auto* view = dynamic_cast<CTraceView*>(wxCreateDynamicObject("CTraceView"));
  ASSERT_NE(view, nullptr) << "creatable by class name";
  ASSERT_TRUE(view->Create(frame, wxID_ANY, wxPoint(0, 0), wxSize(480, 280)));
  for (int i = 0; i < 300; ++i) view->AddLine(i % 4, "line %d", i);
  CColorListBox& list = view->List();
  ASSERT_EQ(list.GetCount(), 256);
  EXPECT_EQ(list.GetString(0) + ", " + list.GetString(255), "line 44, line 299");
  EXPECT_EQ(list.GetSelection(), 255) << "the last line is selected";
  const wxColour colours[] = {{0, 0, 0}, {0, 130, 0}, {0, 0, 255}, {255, 0, 0}};  // by type, line % 4
  for (int type = 0; type < 4; ++type) EXPECT_EQ(list.GetItemColour(252 + type), colours[type]) << type;
  EXPECT_EQ(CTraceView::ColourOfType(7), colours[0]);
  // Colour 0 draws black; a selected line draws in the highlight text colour.
  EXPECT_EQ(list.TextColourFor(252), colours[0]);
  EXPECT_EQ(list.TextColourFor(255), wxSystemSettings::GetColour(wxSYS_COLOUR_HIGHLIGHTTEXT));
  frame->SetSize(700, 400);
  PumpFor(100);
  EXPECT_EQ(list.GetSize(), view->GetClientSize());

  auto* bar = new CInfobarCtrl;
  ASSERT_TRUE(bar->Create(frame, wxID_ANY, wxPoint(0, 0), wxSize(300, 28)));
  bar->SetText("short");
  EXPECT_EQ(bar->GetTextRect(), wxRect(1, 1, bar->GetTextRect().width, 26));
  EXPECT_EQ(bar->DrawnText(), "short");
  const wxString path = "/home/user/a/very/long/path/that/cannot/possibly/fit/into/the/bar/file.txt";
  bar->SetText(path);
  const wxString drawn = bar->DrawnText();
  EXPECT_TRUE(drawn != path && drawn.StartsWith("/home") && drawn.EndsWith("file.txt")) << drawn;
  EXPECT_LE(bar->DrawingRect().GetRight() + 1, 300 - 1 - 17) << "never over the right 17 pixels";
  EXPECT_EQ(bar->DrawingRect().x, 1 + 5);
  PumpFor(100);  // painted, for the screenshot
  ftpzn::test::SaveScreenshot("infobar");
  frame->Destroy();
}

// The name input's buttons are pressed by the remote pane's test.
TEST(ControlsTest, NameInputTakesTheTypedTextOnEnterAndRetryWaitEndsOnlyByCancel) {
  CDlgInputString dialog;
  EXPECT_EQ(RunModal<CDlgInputString>(dialog, [](CDlgInputString* d) {
              d->InputCtrl()->SetValue("reports");
              d->InputCtrl()->SetFocus();
              d->InputCtrl()->SetInsertionPointEnd();
              PumpFor(50);
              wxUIActionSimulator().Char(WXK_RETURN);
              if (!PumpUntil([d] { return !d->IsModal(); }, 2000)) d->EndModal(2);
            }), 1);
  EXPECT_EQ(dialog.m_strInput, "reports") << "as typed, without a line break";

  // The retry wait shows the seconds and an empty bar, and ends only by Cancel.
  CDlgWaitMessage wait;
  wait.m_strMessage = "530 Login incorrect.";
  wait.m_nSeconds = 10;
  EXPECT_EQ(RunModal<CDlgWaitMessage>(wait, [](CDlgWaitMessage* d) {
              auto* countdown = dynamic_cast<wxStaticText*>(d->FindWindow(9031));
              const wxString text = "FTP Rovendel will retry to connect after 10 seconds...";
              EXPECT_EQ(dynamic_cast<wxStaticText*>(d->FindWindow(9033))->GetLabel(), "530 Login incorrect.");
              EXPECT_EQ(d->m_ctrlProgress->GetRange(), 10);
              // The countdown line is not cut short at the font in use.
              EXPECT_LE(countdown->GetTextExtent(text).x, countdown->GetSize().x);
              EXPECT_LE(countdown->GetRect().GetRight(), d->GetClientSize().x);
              ftpzn::test::SaveScreenshot("retry-wait");
              PumpFor(1300);  // a timer tick passes: nothing counts down, nothing closes
              EXPECT_TRUE(d->IsModal() && countdown->GetLabel() == text && d->m_ctrlProgress->GetValue() == 0);
              Click(d, 2);
            }), 2);
  DialogScript::VerifyAndClear();
}

TEST(ControlsTest, IntegerFieldsTakeBlanksAndSigned32BitDecimalsOnly) {
  const std::tuple<const char*, bool, int> cases[] = {
      {"21", true, 21},  {"  -5 ", true, -5}, {"+7", true, 7},     {"2147483647", true, INT32_MAX},
      {"-2147483648", true, INT32_MIN}, {"2147483648", false, 0}, {"", false, 0}, {"12a", false, 0},
      {"1 2", false, 0}, {"-", false, 0},     {"0x10", false, 0}};
  for (const auto& [text, ok, want] : cases) {
    int value = 0;
    EXPECT_EQ(ftpzn::ParseInt32(text, value), ok) << text;
    if (ok) { EXPECT_EQ(value, want) << text; }
  }
  // A field that is not a number says so, keeps the value and selects its text.
  auto* frame = new wxFrame(nullptr, wxID_ANY, "controls");
  auto* field = new wxTextCtrl(frame, wxID_ANY, "abc");
  DialogScript::ExpectMessageBox();
  int value = 99;
  EXPECT_FALSE(ftpzn::ReadIntField(field, value));
  EXPECT_EQ(DialogScript::MessageBoxTexts(), std::vector<wxString>{"Please enter an integer."});
  long from = 0, to = 0;
  field->GetSelection(&from, &to);
  EXPECT_EQ(std::tuple(value, from, to), std::tuple(99, 0L, 3L));
  DialogScript::VerifyAndClear();
  frame->Destroy();
}

}  // namespace
