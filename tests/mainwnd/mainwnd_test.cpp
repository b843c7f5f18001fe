// The main window and the entry classes as a host meets them: real windows
// under Xvfb, modal runs ended through the window's own commands.
#include <gtest/gtest.h>
#include <wx/app.h>
#include <wx/button.h>
#include <wx/evtloop.h>
#include <wx/menu.h>
#include <wx/panel.h>
#include <wx/textctrl.h>
#include <wx/timer.h>
#include <wx/uiaction.h>
#include <wx/weakref.h>

#include <functional>
#include <memory>
#include <vector>

#include <ftpzn/ftpface.h>
#include "gui_harness.h"
#include "mainwnd/dlgftpmainwnd.h"
#include "transfer/dlgftptransfermanager.h"

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

void SendCommand(wxWindow* window, int id) {
  wxCommandEvent event(wxEVT_MENU, id);
  event.SetEventObject(window);
  window->ProcessWindowEvent(event);
}

// Runs `action` once the modal run of a main window has begun.
void WhenModal(std::function<void(CDlgFTPMainWnd*)> action) {
  wxTheApp->CallAfter([action] {
    CDlgFTPMainWnd* running = nullptr;
    ASSERT_TRUE(PumpUntil([&] {
      for (CDlgFTPMainWnd* w : MainWindows())
        if (w->IsModalRun()) running = w;
      return running != nullptr;
    }));
    action(running);
  });
}

struct Layout {
  std::vector<wxRect> rects;
  bool operator==(const Layout&) const = default;
};

Layout Snapshot(CDlgFTPMainWnd& w) {
  Layout l;
  for (wxWindow* c : w.Client()->GetChildren()) l.rects.push_back(c->GetRect());
  return l;
}

class MainWindowTest : public testing::Test {
 protected:
  void SetUp() override {
    m_window = std::make_unique<CDlgFTPMainWnd>();
    ASSERT_TRUE(m_window->Create());
    m_window->Show();
    PumpUntil([&] { return m_window->IsShownOnScreen(); });
  }
  void TearDown() override {
    m_window.reset();
    DialogScript::VerifyAndClear();
  }
  void ResizeClient(int w, int h) {
    m_window->SetClientSize(w, h);
    PumpUntil([&] { return m_window->Client()->GetClientSize() == wxSize(w, h); });
  }
  wxRect Rect(int id) { return m_window->Client()->FindWindow(id)->GetRect(); }

  std::unique_ptr<CDlgFTPMainWnd> m_window;
};

TEST_F(MainWindowTest, OpensWithMenusColumnsAndDisconnected) {
  wxMenuBar* bar = m_window->GetMenuBar();
  ASSERT_NE(bar, nullptr);
  ASSERT_EQ(bar->GetMenuCount(), 5u);
  EXPECT_EQ(bar->GetMenuLabelText(0), "File");
  EXPECT_EQ(bar->GetMenuLabelText(4), "Transfer");
  EXPECT_EQ(bar->GetLabel(9094), "Connect...");
  EXPECT_EQ(bar->GetLabel(9113), "Save List...");
  EXPECT_EQ(bar->GetLabel(9112), "Save list...");
  EXPECT_EQ(m_window->GetTitle(), "FTP transfer...");
  for (CFtpListzn* pane : {static_cast<CFtpListzn*>(&m_window->m_ctrlLocal),
                           static_cast<CFtpListzn*>(&m_window->m_ctrlRemote)}) {
    ASSERT_EQ(pane->GetColumnCount(), 4);
    wxListItem column;
    column.SetMask(wxLIST_MASK_TEXT | wxLIST_MASK_WIDTH);
    pane->GetColumn(1, column);
    EXPECT_EQ(column.GetText(), "Size");
    // Wide enough for the largest size a row can hold, in the list's font.
    EXPECT_GT(column.GetWidth(), pane->GetTextExtent("4,194,304 KB").x);
  }
  EXPECT_EQ(m_window->m_ctrlLocal.GetId(), 9068);
  EXPECT_EQ(m_window->m_ctrlRemote.GetId(), 9065);
  EXPECT_EQ(m_window->m_ctrlRemote.GetItemCount(), 0);
  for (int id : {9097, 9077, 9075, 9071, 9094, 9095}) {
    auto* button = dynamic_cast<wxButton*>(m_window->Client()->FindWindow(id));
    ASSERT_NE(button, nullptr) << id;
    EXPECT_TRUE(button->GetBitmap().IsOk()) << id;
  }
  ASSERT_NE(m_window->m_pTransferManager, nullptr);
  EXPECT_FALSE(m_window->m_pTransferManager->IsShown());
  // The scheduler's first tick overwrote the handed limit with 1; a window
  // just made still shows what it handed over.
  EXPECT_EQ(m_window->m_pTransferManager->m_nTransferMax, 1);
  {
    CDlgFTPMainWnd fresh;
    ASSERT_TRUE(fresh.Create());
    EXPECT_EQ(fresh.m_pTransferManager->m_nTransferMax, 10);
  }
  EXPECT_EQ(m_window->m_pTransferManager->m_nConnectionTimeout, 30);
  EXPECT_EQ(m_window->m_pTransferManager->m_bRemoveFailed, 0);
  EXPECT_EQ(m_window->m_pTransferManager->m_pFtpMainWnd, m_window.get());
  const std::string shot = ftpzn::test::SaveScreenshot("main-window");
  EXPECT_FALSE(shot.empty());
}

TEST_F(MainWindowTest, ResizingMovesTheRemoteSideAndTracesButNothingBelowTheOpeningSize) {
  const Layout opening = Snapshot(*m_window);
  const int T = Rect(9081).height;
  ResizeClient(1100, 720);
  const int W = 1100, H = 720;
  EXPECT_EQ(Rect(9073).GetRight() + 1, W - 10);
  EXPECT_EQ(Rect(9065).GetRight() + 1, W - 10);
  EXPECT_EQ(Rect(9083).GetRight() + 1, W - 10);
  for (int trace : {9081, 9083}) {
    EXPECT_EQ(Rect(trace).y, H - T - 10);
    EXPECT_EQ(Rect(trace).height, T);
  }
  EXPECT_EQ(Rect(9068).GetBottom() + 1, H - T - 16);
  EXPECT_EQ(Rect(9065).GetBottom() + 1, H - T - 16);
  EXPECT_EQ(Rect(24025).GetBottom() + 1, H - T - 10);
  // The local side and the button column keep their places.
  EXPECT_EQ(Rect(9072), wxRect(10, 10, 380, 24));
  EXPECT_EQ(Rect(9068).GetRight() + 1, 390);
  EXPECT_EQ(Rect(9075).GetPosition(), wxPoint(404, 130));

  const Layout grown = Snapshot(*m_window);
  ResizeClient(CDlgFTPMainWnd::kClientWidth - 100, CDlgFTPMainWnd::kClientHeight + 40);
  EXPECT_EQ(Snapshot(*m_window), grown) << "narrower than the opening size: nothing moves";
  ResizeClient(CDlgFTPMainWnd::kClientWidth, CDlgFTPMainWnd::kClientHeight);
  EXPECT_EQ(Snapshot(*m_window), opening);
}

TEST_F(MainWindowTest, VerticalSplitMovesWithinItsLimits) {
  const wxRect localButton = Rect(9071);
  const int editRight = Rect(9072).GetRight() + 1;  // 390
  const int client = m_window->Client()->GetClientSize().x;

  // A real drag of the bar with the mouse.
  const wxRect bar = Rect(24024);
  const wxPoint start = m_window->Client()->ClientToScreen(bar.GetPosition() + wxPoint(3, 20));
  wxUIActionSimulator sim;
  sim.MouseMove(start);
  PumpFor(50);
  sim.MouseDown();
  PumpFor(50);
  sim.MouseMove(start + wxPoint(40, 0));
  PumpFor(50);
  sim.MouseUp();
  PumpUntil([&] { return Rect(9072).GetRight() + 1 != editRight; }, 2000);
  EXPECT_EQ(Rect(9072).GetRight() + 1, editRight + 40);
  EXPECT_EQ(Rect(9068).GetRight() + 1, editRight + 40);
  EXPECT_EQ(Rect(9073).x, 450 + 40);
  EXPECT_EQ(Rect(9073).GetRight() + 1, client - 10) << "the remote edit shrinks from the left";
  EXPECT_EQ(Rect(9094).x, 404 + 40);
  EXPECT_EQ(Rect(24024).x, 392 + 40);
  EXPECT_EQ(Rect(24025).x, 392 + 40);
  EXPECT_EQ(Rect(9071), localButton) << "the Local button does not follow the split";

  // Moves are refused as a whole at 60 pixels from the left edge and 120
  // from the right one.
  const Layout before = Snapshot(*m_window);
  const int right = Rect(9072).GetRight() + 1;
  m_window->MoveVerticalSplit(60 - right);
  EXPECT_EQ(Snapshot(*m_window), before);
  m_window->MoveVerticalSplit(client - 120 - right);
  EXPECT_EQ(Snapshot(*m_window), before);
  m_window->MoveVerticalSplit(client - 121 - right);
  EXPECT_EQ(Rect(9072).GetRight() + 1, client - 121);
  m_window->MoveVerticalSplit(61 - (client - 121));
  EXPECT_EQ(Rect(9072).GetRight() + 1, 61);
}

TEST_F(MainWindowTest, HorizontalSplitStaysBelowTheVerticalBarAndAboveTheBottom) {
  const wxRect bar = Rect(24025);
  const int vBottom = Rect(24024).GetBottom() + 1;
  const int clientBottom = m_window->Client()->GetClientSize().y;
  const Layout before = Snapshot(*m_window);
  m_window->MoveHorizontalSplit(vBottom - bar.y);  // top onto the vertical bar's bottom
  EXPECT_EQ(Snapshot(*m_window), before);
  m_window->MoveHorizontalSplit(clientBottom - 20 - (bar.GetBottom() + 1));
  EXPECT_EQ(Snapshot(*m_window), before);

  const wxRect trace = Rect(9083);
  const wxRect pane = Rect(9068);
  m_window->MoveHorizontalSplit(-50);
  EXPECT_EQ(Rect(24025).y, bar.y - 50);
  EXPECT_EQ(Rect(9068).GetBottom(), pane.GetBottom() - 50);
  EXPECT_EQ(Rect(9065).GetBottom(), pane.GetBottom() - 50);
  EXPECT_EQ(Rect(9083).y, trace.y - 50);
  EXPECT_EQ(Rect(9083).GetBottom(), trace.GetBottom()) << "the trace grows upwards";
  m_window->MoveHorizontalSplit(vBottom + 1 - (bar.y - 50));
  EXPECT_EQ(Rect(24025).y, vBottom + 1) << "just below the vertical bar is allowed";
}

TEST_F(MainWindowTest, SelectAllUsesTheLocalCountForBothPanesAndInvertFlipsEach) {
  m_window->m_ctrlLocal.SetItemCount(3);
  m_window->m_ctrlRemote.SetItemCount(10);
  SendCommand(m_window.get(), 9117);
  EXPECT_EQ(m_window->m_ctrlLocal.GetSelectedItemCount(), 3);
  EXPECT_EQ(m_window->m_ctrlRemote.GetSelectedItemCount(), 3);
  for (int i = 0; i < 10; ++i)
    EXPECT_EQ(m_window->m_ctrlRemote.GetItemState(i, wxLIST_STATE_SELECTED) != 0, i < 3) << i;

  SendCommand(m_window.get(), 9118);
  EXPECT_EQ(m_window->m_ctrlLocal.GetSelectedItemCount(), 0);
  EXPECT_EQ(m_window->m_ctrlRemote.GetSelectedItemCount(), 7);
  EXPECT_EQ(m_window->m_ctrlRemote.GetItemState(2, wxLIST_STATE_SELECTED), 0);
  EXPECT_NE(m_window->m_ctrlRemote.GetItemState(3, wxLIST_STATE_SELECTED), 0);

  // With more local rows than remote ones, indices past the remote end are skipped.
  m_window->m_ctrlLocal.SetItemCount(12);
  m_window->m_ctrlRemote.SetItemCount(2);
  SendCommand(m_window.get(), 9116);
  EXPECT_EQ(m_window->m_ctrlLocal.GetSelectedItemCount(), 12);
  EXPECT_EQ(m_window->m_ctrlRemote.GetSelectedItemCount(), 2);
}

TEST_F(MainWindowTest, CommandsGoToTheLocalPaneThenTheRemotePaneThenTheWindow) {
  std::vector<std::string> order;
  const int kProbe = 9123;  // a Local menu command
  auto record = [&order](const char* who, bool handled) {
    return [&order, who, handled](wxCommandEvent& e) {
      order.push_back(who);
      if (!handled) e.Skip();
    };
  };
  m_window->m_ctrlLocal.Bind(wxEVT_MENU, record("local", true), kProbe);
  m_window->m_ctrlRemote.Bind(wxEVT_MENU, record("remote", true), kProbe);
  SendCommand(m_window.get(), kProbe);
  EXPECT_EQ(order, (std::vector<std::string>{"local"}));

  order.clear();
  m_window->m_ctrlLocal.Unbind(wxEVT_MENU, record("local", true), kProbe);
  m_window->m_ctrlLocal.Bind(wxEVT_MENU, record("local-skips", false), 9117);
  m_window->m_ctrlRemote.Bind(wxEVT_MENU, record("remote-skips", false), 9117);
  m_window->m_ctrlLocal.SetItemCount(2);
  SendCommand(m_window.get(), 9117);
  EXPECT_EQ(order, (std::vector<std::string>{"local-skips", "remote-skips"}));
  EXPECT_EQ(m_window->m_ctrlLocal.GetSelectedItemCount(), 2) << "the window handled it last";

  // Buttons are routed the same way.
  order.clear();
  m_window->m_ctrlRemote.Bind(wxEVT_BUTTON, record("remote-button", true), 9075);
  wxCommandEvent click(wxEVT_BUTTON, 9075);
  click.SetEventObject(m_window->Client()->FindWindow(9075));
  m_window->Client()->FindWindow(9075)->GetEventHandler()->ProcessEvent(click);
  EXPECT_EQ(order, (std::vector<std::string>{"remote-button"}));
}

TEST_F(MainWindowTest, AnExceptionInAHandlerStopsAtTheWindowNotTheHost) {
  const int kProbe = 9991;  // no command of the window's own
  int thrown = 0, after = 0;
  m_window->m_ctrlRemote.Bind(
      wxEVT_MENU, [&thrown](wxCommandEvent&) { ++thrown, throw std::bad_alloc(); }, kProbe);
  m_window->Bind(
      wxEVT_MENU, [&thrown](wxCommandEvent&) { ++thrown, throw 42; }, kProbe + 1);
  m_window->m_ctrlLocal.Bind(
      wxEVT_MENU, [&after](wxCommandEvent&) { ++after; }, kProbe + 2);
  for (int id : {kProbe, kProbe + 1, kProbe + 2}) EXPECT_NO_THROW(SendCommand(m_window.get(), id)) << id;
  EXPECT_EQ(thrown, 2);
  EXPECT_EQ(after, 1) << "the window goes on handling commands";
}

TEST_F(MainWindowTest, TransferManagerToggleAndTheUnreachableBookmarkCommand) {
  CDlgFtpTransferManager* manager = m_window->m_pTransferManager;
  SendCommand(m_window.get(), 9099);
  EXPECT_TRUE(manager->IsShown());
  EXPECT_EQ(manager->m_bShow, 1);
  SendCommand(m_window.get(), 9099);
  EXPECT_FALSE(manager->IsShown());
  EXPECT_EQ(manager->m_bShow, 0);

  // Five popups: the sixth the command assumes is not there; nothing changes.
  const size_t items = m_window->GetMenuBar()->GetMenu(4)->GetMenuItemCount();
  SendCommand(m_window.get(), 9130);
  EXPECT_EQ(m_window->GetMenuBar()->GetMenuCount(), 5u);
  EXPECT_EQ(m_window->GetMenuBar()->GetMenu(4)->GetMenuItemCount(), items);
  EXPECT_EQ(m_window->GetMenuBar()->FindItem(100), nullptr);
}

TEST_F(MainWindowTest, ATransferManagerDeletedFirstIsLeftAlone) {
  // As the framework's shut-down may do: every open window deleted in turn.
  delete m_window->m_pTransferManager;
  SendCommand(m_window.get(), 9099);  // nothing left to show
  for (wxWindow* w : wxTopLevelWindows) {
    if (w->IsBeingDeleted()) continue;
    EXPECT_EQ(dynamic_cast<CDlgFtpTransferManager*>(w), nullptr);
  }
  m_window.reset();  // and nothing to destroy again
  EXPECT_TRUE(MainWindows().empty());
}

TEST_F(MainWindowTest, TraceLinesWithAndWithoutThreadIdAndThePaneLimit) {
  m_window->AddTrace(0, 0, "Open internet session failed");
  m_window->AddTrace(0, 4242, "Closed Ftp connection");
  EXPECT_EQ(m_window->m_strRemoteTrace, "Open internet session failed \n[4242] Closed Ftp connection \n");
  EXPECT_EQ(m_window->m_richRemoteTrace->GetValue(), m_window->m_strRemoteTrace);
  EXPECT_EQ(m_window->m_richLocalTrace->GetValue(), "") << "the pane under the local list stays empty";

  const wxString line(wxT('x'), 99);  // 99 + " \n" = 101 characters a line
  for (int i = 0; i < 300; ++i) m_window->AddTrace(0, 0, line);
  const size_t total = m_window->m_strRemoteTrace.length();
  EXPECT_GT(total, 30000u) << "the trace itself is never shortened";
  const wxString shown = m_window->m_richRemoteTrace->GetValue();
  EXPECT_EQ(shown.length(), 20000u);
  EXPECT_EQ(shown, m_window->m_strRemoteTrace.Right(20000));
}

TEST(EntryTest, ModalRunEndsWithExitOkAppendingResultsBehindTheCallersOwn) {
  Cftpfacezn face;
  wxArrayString results;
  results.Add("/existing/one");
  WhenModal([](CDlgFTPMainWnd* window) {
    window->m_arrDownloadResults.Add("/tmp/a.txt");
    window->m_arrDownloadResults.Add("/tmp/b.txt");
    // Enter does not close the window.
    wxUIActionSimulator().Char(WXK_RETURN);
    PumpFor(100);
    EXPECT_TRUE(window->IsModalRun());
    SendCommand(window, 9095);
  });
  EXPECT_EQ(face.showFtpMainDoMo("", &results, nullptr), 1);
  ASSERT_EQ(results.size(), 3u);
  EXPECT_EQ(results[0], "/existing/one");
  EXPECT_EQ(results[1], "/tmp/a.txt");
  EXPECT_EQ(results[2], "/tmp/b.txt");
}

TEST(EntryTest, CloseBoxAndEscapeEndWithCancelLeavingTheArrayUntouched) {
  Cftpfacezn face;
  wxArrayString results;
  results.Add("keep");
  WhenModal([](CDlgFTPMainWnd* window) {
    window->m_arrDownloadResults.Add("/tmp/never.txt");
    window->Close();
  });
  EXPECT_EQ(face.showFtpMainDoMo("/", &results, nullptr), 0);
  ASSERT_EQ(results.size(), 1u);
  EXPECT_EQ(results[0], "keep");

  WhenModal([](CDlgFTPMainWnd* window) {
    window->Raise();
    window->Client()->FindWindow(9068)->SetFocus();
    PumpFor(50);
    wxUIActionSimulator().Char(WXK_ESCAPE);
  });
  EXPECT_EQ(face.showFtpMainDoMo("/", nullptr, nullptr), 0);
}

TEST(EntryTest, ShowFrameWndTwiceReusesOneWindowAndEmptyMeansHome) {
  const size_t before = MainWindows().size();
  {
    Cftpfacezn face;
    EXPECT_EQ(face.showFrameWnd("", nullptr), 1);
    ASSERT_EQ(MainWindows().size(), before + 1);
    CDlgFTPMainWnd* window = MainWindows().back();
    EXPECT_TRUE(window->IsShown());
    EXPECT_EQ(window->m_strLocalDir, wxGetHomeDir());
    EXPECT_EQ(window->m_editLocalDir->GetValue(), wxGetHomeDir());

    window->Close();  // the close box only hides a modeless window
    EXPECT_FALSE(window->IsShown());
    EXPECT_EQ(face.showFrameWnd("/tmp", nullptr), 1);
    EXPECT_EQ(MainWindows().size(), before + 1);
    EXPECT_TRUE(window->IsShown());
    EXPECT_EQ(window->m_strLocalDir, "/tmp");

    // A modal run on an entry object that holds a window uses that window.
    WhenModal([window](CDlgFTPMainWnd* running) {
      EXPECT_EQ(running, window);
      SendCommand(running, 9095);
    });
    EXPECT_EQ(face.showFtpMainDoMo("/", nullptr, nullptr), 1);
  }
  EXPECT_EQ(MainWindows().size(), before) << "destroying the entry object deletes its window";
  Cftpface never_shown;  // destroying one that never opened a window does nothing
}

TEST(EntryTest, TransferManagerStaysUsableDuringAModalRunAndGoesWithTheWindow) {
  wxWeakRef<CDlgFtpTransferManager> manager;
  {
    Cftpfacezn face;
    ASSERT_EQ(face.showFrameWnd("/tmp", nullptr), 1);
    CDlgFTPMainWnd* window = MainWindows().back();
    manager = window->m_pTransferManager;
    SendCommand(window, 9099);
    ASSERT_TRUE(manager->IsShown());
    WhenModal([&](CDlgFTPMainWnd* running) {
      EXPECT_TRUE(manager->IsEnabled()) << "the user can still cancel and resubmit transfers";
      // A second run on the same window could never be ended; it is refused.
      EXPECT_EQ(running->DoModal(), -1);
      EXPECT_TRUE(running->IsModalRun());
      SendCommand(running, 9095);
    });
    EXPECT_EQ(face.showFtpMainDoMo("/", nullptr, nullptr), 1);
    EXPECT_TRUE(manager->IsEnabled());
  }
  // A hidden transfer manager left behind would keep the host running.
  EXPECT_TRUE(PumpUntil([&] { return !manager; }));
}

TEST(EntryTest, AModalRunFromAHostModalDialogTakesInputOnTheModelessWindow) {
  Cftpfacezn face;
  ASSERT_EQ(face.showFrameWnd("/tmp", nullptr), 1);
  CDlgFTPMainWnd* window = MainWindows().back();
  // A modal dialog of the host disables every other top-level window.
  window->Disable();
  WhenModal([](CDlgFTPMainWnd* running) {
    EXPECT_TRUE(running->IsEnabled()) << "a modal window the user cannot use";
    SendCommand(running, 9095);
  });
  EXPECT_EQ(face.showFtpMainDoMo("/", nullptr, nullptr), 1);
  EXPECT_FALSE(window->IsEnabled()) << "left as the host's dialog expects to find it";
}

TEST(EntryTest, AnEntryObjectDestroyedDuringItsModalRunEndsTheRunWithCancel) {
  const size_t before = MainWindows().size();
  auto* face = new Cftpfacezn;
  ASSERT_EQ(face->showFrameWnd("/tmp", nullptr), 1);
  wxArrayString results;
  results.Add("keep");
  // Bounds the run should the window fail to end it.
  wxTimer watchdog;
  bool fired = false;
  watchdog.Bind(wxEVT_TIMER, [&](wxTimerEvent&) {
    fired = true;
    if (wxEventLoopBase::GetActive()) wxEventLoopBase::GetActive()->Exit(-99);
  });
  watchdog.StartOnce(10000);
  WhenModal([&](CDlgFTPMainWnd* running) {
    running->m_arrDownloadResults.Add("/tmp/never.txt");
    delete face;  // as a host might from a timer of its own
  });
  EXPECT_EQ(face->showFtpMainDoMo("/", &results, nullptr), 0);
  watchdog.Stop();
  EXPECT_FALSE(fired);
  ASSERT_EQ(results.size(), 1u);
  EXPECT_EQ(results[0], "keep");
  EXPECT_EQ(MainWindows().size(), before);
}

TEST(EntryTest, AWindowAlreadyGoneIsNotDeletedAgain) {
  const size_t before = MainWindows().size();
  // The framework's shut-down deletes every open window before a host's
  // application object (and an entry object it holds) goes.
  auto face = std::make_unique<Cftpfacezn>();
  ASSERT_EQ(face->showFrameWnd("/tmp", nullptr), 1);
  CDlgFTPMainWnd* window = MainWindows().back();
  delete window;
  ASSERT_EQ(MainWindows().size(), before);
  // Should the host still call it, it gets a new window.
  EXPECT_EQ(face->showFrameWnd("/tmp", nullptr), 1);
  ASSERT_EQ(MainWindows().size(), before + 1);
  EXPECT_TRUE(MainWindows().back()->IsShown());
  delete MainWindows().back();
  face.reset();

  // Two copies share one window: the second one to go finds it gone.
  auto first = std::make_unique<Cftpfacezn>();
  ASSERT_EQ(first->showFrameWnd("/tmp", nullptr), 1);
  auto second = std::make_unique<Cftpfacezn>(*first);
  first.reset();
  EXPECT_EQ(MainWindows().size(), before);
  second.reset();
  EXPECT_EQ(MainWindows().size(), before);
}

}  // namespace
