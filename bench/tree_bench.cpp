// A tree of many small files downloaded and uploaded through the window
// (the Download and Upload commands, the walks, the transfer manager),
// beside lftp mirror and lftp mirror --parallel=4 against the same vsftpd,
// files on tmpfs. The design runs about one transfer at a time, each with a
// connection and login of its own, so its floor is one whole small-file
// transfer by ftpzn-ftp (connect, login, RETR or STOR, QUIT), timed in the
// same run; our rate is reported against it. Also the walks of the tree
// alone. Needs root (the test servers do) and a display:
// bench/tree-bench.sh runs it under Xvfb. FILES (5000), FOLDERS (100),
// RUNS (1) and FLOOR_RUNS (40) tune it.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "bench_support.h"
#include "connection/treewalk.h"
#include "ftp_servers.h"
#include "gui_harness.h"
#include "mainwnd/dlgftpmainwnd.h"
#include "transfer/dlgftptransfermanager.h"
#include "window_fixture.h"

namespace {

namespace fs = std::filesystem;
using ftpzn::bench::Clock;
using ftpzn::bench::EnvInt;
using ftpzn::bench::Median;
using ftpzn::bench::Shell;
using ftpzn::bench::Since;
using ftpzn::testing::FtpServerKind;
using ftpzn::testing::FtpTestServer;

class SilentObserver : public ftpzn::TreeWalkObserver {
 public:
  void Message(const wxString& text) override { ADD_FAILURE() << text.utf8_str(); }
  void Trace(const wxString&) override {}
  bool Continue(const wxString&, size_t) override { return true; }
};

void Select(CFtpListzn& pane, const wxString& name) {
  for (int row = 0; row < pane.GetItemCount(); ++row)
    pane.SetItemState(row, pane.GetRowName(row) == name ? wxLIST_STATE_SELECTED : 0, wxLIST_STATE_SELECTED);
}

TEST(TreeBench, ManySmallFilesThroughTheWindow) {
  const int files = EnvInt("FILES", 5000);
  const int folders = EnvInt("FOLDERS", 100);
  const int runs = EnvInt("RUNS", 1);
  const int floorRuns = EnvInt("FLOOR_RUNS", 40);
  const std::string work = ftpzn::bench::MakeWorkDir("ftpzn-tree-bench");
  ASSERT_FALSE(work.empty());
  const std::string root = work + "/root", src = work + "/src", out = work + "/out";
  // Folder names begin with a character no path here has: the expansions
  // cut a directory by the set of the start's characters, which would
  // shorten names that begin with one of them.
  for (int i = 0; i < files; ++i) {
    char folder[16], name[32];
    snprintf(folder, sizeof folder, "#%02d", i % folders);
    snprintf(name, sizeof name, "f%05d.txt", i);
    fs::create_directories(src + "/tree/" + folder);
    std::ofstream(src + "/tree/" + folder + "/" + name)
        << std::string(static_cast<size_t>(100 + i % 1000), 'x');
  }
  fs::create_directories(root + "/up");
  fs::create_directories(root + "/floor");
  fs::create_directories(out);
  ASSERT_TRUE(Shell("cp -r " + src + "/tree " + root + "/tree"));
  std::ofstream(root + "/floor/f.txt") << std::string(500, 'f');
  std::ofstream(work + "/floor.txt") << std::string(500, 'f');
  ftpzn::testing::GiveToTestAccount(root);
  std::string error;
  auto server = FtpTestServer::Start(FtpServerKind::Vsftpd, root, error);
  ASSERT_TRUE(server) << error;
  const std::string url = server->Url();
  const std::string lftp = ftpzn::bench::LftpScript(url);
  const std::string tool = std::string(FTPZN_FTP_TOOL);

  auto* window = new CDlgFTPMainWnd;
  window->m_strLocalDir = wxString::FromUTF8(out);
  ASSERT_TRUE(window->Create());
  window->Show();
  ftpzn::test::LogIn(*window, server->Port());
  CDlgFtpTransferManager& manager = *window->m_pTransferManager;
  manager.Show();
  ftpzn::test::PumpFor(200);

  // The walks alone.
  SilentObserver quiet;
  double remoteWalk = 1e9, localWalk = 1e9;
  size_t walked = 0;
  for (int i = 0; i < 3; ++i) {
    std::vector<ftpzn::TreeEntry> entries;
    auto start = Clock::now();
    ftpzn::RemoteTreeWalk(window->m_pFtpConnection.get(), "/tree", entries, quiet);
    remoteWalk = std::min(remoteWalk, Since(start));
    walked = entries.size();
    entries.clear();
    start = Clock::now();
    ftpzn::LocalTreeWalk(wxString::FromUTF8(src) + "/tree", entries, quiet);
    localWalk = std::min(localWalk, Since(start));
  }
  EXPECT_EQ(walked, static_cast<size_t>(files + folders + 1));

  // One whole small-file transfer, as often as asked: the floor.
  auto floor = [&](const std::string& command) {
    std::vector<double> times;
    for (int i = 0; i < floorRuns; ++i) {
      const auto start = Clock::now();
      if (Shell(command)) times.push_back(Since(start));
    }
    return Median(times);
  };
  std::vector<double> floorGet, floorPut;
  auto measureFloors = [&] {
    floorGet.push_back(floor(tool + " get " + url + "/floor/f.txt " + work + "/floor-out.txt"));
    floorPut.push_back(floor(tool + " put " + work + "/floor.txt " + url + "/floor/p.txt"));
  };
  measureFloors();

  auto ours = [&](bool upload) {
    window->m_strRemoteDir = upload ? "/up" : "/";
    // An empty directory lists nothing and would leave the rows standing.
    window->m_ctrlRemote.DeleteAllItems();
    window->m_ctrlRemote.FillDirectory(window->m_strRemoteDir, window->m_pFtpConnection.get(), true);
    window->m_strLocalDir = wxString::FromUTF8(upload ? src : out);
    window->m_ctrlLocal.FillDirectory(window->m_strLocalDir);
    Select(upload ? static_cast<CFtpListzn&>(window->m_ctrlLocal) : window->m_ctrlRemote, "tree");
    const auto start = Clock::now();
    wxCommandEvent press(wxEVT_BUTTON, upload ? CDlgFTPMainWnd::ID_UPLOAD : CDlgFTPMainWnd::ID_DOWNLOAD);
    window->ProcessWindowEvent(press);
    const bool done = ftpzn::test::PumpUntil([&] { return manager.GetRowCount() == 0; }, 3600 * 1000);
    const double seconds = Since(start);
    const std::string made = upload ? root + "/up/tree" : out + "/tree";
    EXPECT_TRUE(done && Shell("diff -r " + src + "/tree " + made)) << made;
    return done ? seconds : -1;
  };
  std::vector<double> down, up, lftpDown, lftpDown4, lftpUp, lftpUp4;
  auto timed = [&](const std::string& command) {
    const auto start = Clock::now();
    return Shell(command) ? Since(start) : -1;
  };
  for (int round = 0; round < runs; ++round) {
    Shell("rm -rf " + out + "/* " + root + "/up/*");
    down.push_back(ours(false));
    lftpDown.push_back(timed(lftp + "mirror tree " + out + "/lftp1'"));
    lftpDown4.push_back(timed(lftp + "mirror --parallel=4 tree " + out + "/lftp4'"));
    up.push_back(ours(true));
    lftpUp.push_back(timed(lftp + "mirror -R " + src + "/tree up/lftp1'"));
    lftpUp4.push_back(timed(lftp + "mirror -R --parallel=4 " + src + "/tree up/lftp4'"));
    printf(
        "round %d: ftpzn %.1f s / %.1f s, lftp mirror %.1f s / %.1f s, lftp mirror --parallel=4 %.1f s / "
        "%.1f s "
        "(down / up)\n",
        round + 1, down.back(), up.back(), lftpDown.back(), lftpUp.back(), lftpDown4.back(), lftpUp4.back());
  }
  measureFloors();

  window->Destroy();
  ftpzn::test::PumpFor(50);
  server->Stop();
  ftpzn::testing::RemoveTree(work);

  auto rate = [&](const std::vector<double>& v) { return files / Median(v); };
  const double floorDown = 1 / Median(floorGet), floorUp = 1 / Median(floorPut);
  printf("\n%d files in %d folders, files per second (median of %d rounds)\n", files, folders, runs);
  printf("  %-36s %8.1f down %8.1f up\n", "ftpzn through the window", rate(down), rate(up));
  printf("  %-36s %8.1f down %8.1f up\n", "lftp mirror", rate(lftpDown), rate(lftpUp));
  printf("  %-36s %8.1f down %8.1f up\n", "lftp mirror --parallel=4", rate(lftpDown4), rate(lftpUp4));
  printf("  %-36s %8.1f down %8.1f up\n", "floor: one ftpzn-ftp transfer each", floorDown, floorUp);
  printf("  ftpzn against the floor: %.3f down, %.3f up (goal: at least 0.9)\n", rate(down) / floorDown,
         rate(up) / floorUp);
  printf("walk of the tree alone: remote %.3f s, local %.3f s (%zu entries)\n", remoteWalk, localWalk,
         walked);
  printf("summary: down_files_s=%.1f up_files_s=%.1f down_floor=%.3f up_floor=%.3f walk_s=%.3f\n", rate(down),
         rate(up), rate(down) / floorDown, rate(up) / floorUp, std::max(remoteWalk, localWalk));
}

}  // namespace
