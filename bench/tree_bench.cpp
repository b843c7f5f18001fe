// A tree of many small files downloaded and uploaded through the window
// (the Download and Upload commands, the walks, the transfer manager),
// beside lftp mirror and lftp mirror --parallel=4 against the same vsftpd,
// files on tmpfs; our rate against lftp mirror's (sequential), and against
// one whole small-file transfer by ftpzn-ftp (connect, login, RETR or STOR,
// QUIT) timed in the same run. Also the walks of the tree alone. Needs root
// (the test servers do) and a display: bench/tree-bench.sh runs it under
// Xvfb.
//
// FILES (5000), FOLDERS (100), RUNS (1), FLOOR_RUNS (40, 0 for none) and
// DIRECTIONS ("down up") tune it. For bench/latency-bench.sh: SERVER_URL
// and SERVER_ROOT name a server already running over SERVER_ROOT (none is
// started then), SITE_PORT a port on 127.0.0.1 that the window, lftp and
// ftpzn-ftp use instead of the server's (a delaying proxy's), and
// PROXY_COUNTS and PROXY_PID that proxy's counts file and process, to
// report the round trips of every step.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <sstream>
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

// One client connection as the latency proxy counted it.
struct ProxyConn {
  long chunks = 0, commands = 0, data = 0;
  bool open = false;
};
using ProxySnapshot = std::map<int, ProxyConn>;

// What a step cost through the proxy: round trips are command chunks plus
// data connections.
struct ProxyCost {
  long chunks = 0, commands = 0, data = 0, conns = 0;
  long Rtts() const { return chunks + data; }
  void Add(const ProxyConn& now, const ProxyConn* before) {
    chunks += now.chunks - (before ? before->chunks : 0);
    commands += now.commands - (before ? before->commands : 0);
    data += now.data - (before ? before->data : 0);
    if (!before) ++conns;
  }
};

// Everything on every connection between two snapshots: the window's
// browsing connection and the workers' pooled ones outlive a step.
ProxyCost Delta(const ProxySnapshot& before, const ProxySnapshot& after) {
  ProxyCost cost;
  for (const auto& [number, conn] : after) {
    auto it = before.find(number);
    cost.Add(conn, it == before.end() ? nullptr : &it->second);
  }
  return cost;
}

// Only the connections opened between two snapshots: an lftp run's own,
// without the QUITs the window's pool sends meanwhile.
ProxyCost Opened(const ProxySnapshot& before, const ProxySnapshot& after) {
  ProxyCost cost;
  for (const auto& [number, conn] : after)
    if (!before.count(number)) cost.Add(conn, nullptr);
  return cost;
}

// The latency proxy's counts file, read fresh: the proxy rewrites it on
// SIGUSR1 and numbers its writes.
class ProxyCounts {
 public:
  ProxyCounts() {
    const char* file = std::getenv("PROXY_COUNTS");
    m_file = file ? file : "";
    m_pid = ftpzn::bench::EnvInt("PROXY_PID", 0);
  }
  bool Enabled() const { return !m_file.empty() && m_pid > 0; }

  // With `closedAfter`, also waits (bounded) until every connection
  // numbered above it has ended, so that a finished client's last commands
  // are in.
  ProxySnapshot Read(int closedAfter = -1) const {
    ProxySnapshot snapshot;
    if (!Enabled()) return snapshot;
    for (int attempt = 0; attempt < 50; ++attempt) {
      long dumps = 0;
      Parse(dumps);
      if (kill(m_pid, SIGUSR1) != 0) return snapshot;
      long now = dumps;
      for (int i = 0; i < 200 && now <= dumps; ++i) {
        ftpzn::test::PumpFor(10);
        snapshot = Parse(now);
      }
      bool settled = true;
      for (const auto& [number, conn] : snapshot)
        if (closedAfter >= 0 && number > closedAfter && conn.open) settled = false;
      if (settled) break;
      ftpzn::test::PumpFor(50);
    }
    return snapshot;
  }

 private:
  ProxySnapshot Parse(long& dumps) const {
    ProxySnapshot snapshot;
    std::ifstream in(m_file);
    std::string line;
    while (std::getline(in, line)) {
      std::istringstream words(line);
      std::string kind, word;
      words >> kind;
      if (kind == "total") {
        while (words >> word)
          if (word.rfind("dumps=", 0) == 0) dumps = std::atol(word.c_str() + 6);
      } else if (kind == "conn") {
        int number = 0;
        words >> number;
        ProxyConn& conn = snapshot[number];
        while (words >> word) {
          const size_t eq = word.find('=');
          if (eq == std::string::npos) continue;
          const std::string key = word.substr(0, eq);
          const long value = std::atol(word.c_str() + eq + 1);
          if (key == "open") conn.open = value != 0;
          if (key == "chunks") conn.chunks = value;
          if (key == "commands") conn.commands = value;
          if (key == "data") conn.data = value;
        }
      }
    }
    return snapshot;
  }

  std::string m_file;
  int m_pid = 0;
};

int LastConn(const ProxySnapshot& snapshot) { return snapshot.empty() ? 0 : snapshot.rbegin()->first; }

std::string Describe(const ProxyCost& cost, int files) {
  char text[160];
  snprintf(text, sizeof text, "%ld (%.2f a file; %ld commands, %ld data and %ld control connections)",
           cost.Rtts(), static_cast<double>(cost.Rtts()) / files, cost.commands, cost.data, cost.conns);
  return text;
}

TEST(TreeBench, ManySmallFilesThroughTheWindow) {
  const int files = EnvInt("FILES", 5000);
  const int folders = EnvInt("FOLDERS", 100);
  const int runs = EnvInt("RUNS", 1);
  const int floorRuns = EnvInt("FLOOR_RUNS", 40);
  const char* directionsEnv = std::getenv("DIRECTIONS");
  const std::string directions = directionsEnv ? directionsEnv : "down up";
  const bool doDown = directions.find("down") != std::string::npos;
  const bool doUp = directions.find("up") != std::string::npos;
  const char* serverUrl = std::getenv("SERVER_URL");
  const char* serverRoot = std::getenv("SERVER_ROOT");
  const bool external = serverUrl && *serverUrl && serverRoot && *serverRoot;
  const ProxyCounts proxy;
  const std::string work = ftpzn::bench::MakeWorkDir("ftpzn-tree-bench");
  ASSERT_FALSE(work.empty());
  const std::string root = external ? std::string(serverRoot) : work + "/root";
  const std::string src = work + "/src", out = work + "/out";
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
  // A running server's root may hold an earlier run's tree.
  if (external) Shell("rm -rf " + root + "/tree " + root + "/up " + root + "/floor");
  fs::create_directories(root + "/up");
  fs::create_directories(root + "/floor");
  fs::create_directories(out);
  ASSERT_TRUE(Shell("cp -r " + src + "/tree " + root + "/tree"));
  std::ofstream(root + "/floor/f.txt") << std::string(500, 'f');
  std::ofstream(work + "/floor.txt") << std::string(500, 'f');
  ftpzn::testing::GiveToTestAccount(root);
  std::string error;
  std::unique_ptr<FtpTestServer> server;
  std::string url;
  if (external) {
    url = serverUrl;
  } else {
    server = FtpTestServer::Start(FtpServerKind::Vsftpd, root, error);
    ASSERT_TRUE(server) << error;
    url = server->Url();
  }
  // Every client goes to the site's port: the server's, or a proxy's.
  const int serverPort = std::atoi(url.substr(url.rfind(':') + 1).c_str());
  const int sitePort = EnvInt("SITE_PORT", serverPort);
  url = url.substr(0, url.rfind(':') + 1) + std::to_string(sitePort);
  const std::string lftp = ftpzn::bench::LftpScript(url);
  const std::string tool = std::string(FTPZN_FTP_TOOL);

  auto* window = new CDlgFTPMainWnd;
  window->m_strLocalDir = wxString::FromUTF8(out);
  ASSERT_TRUE(window->Create());
  window->Show();
  ftpzn::test::LogIn(*window, static_cast<uint16_t>(sitePort));
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
    if (floorRuns <= 0) return;
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
    const bool done = ftpzn::test::RunEventLoopUntil([&] { return manager.GetRowCount() == 0; }, 3600 * 1000);
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
  // Our step's round trips (everything meanwhile) or lftp's (its own
  // connections, once they have ended), when a proxy counts them.
  std::vector<std::string> trips;
  auto counted = [&](const char* what, bool lftpRun, const std::function<double()>& step) {
    const ProxySnapshot before = proxy.Read();
    const double seconds = step();
    if (proxy.Enabled()) {
      const ProxySnapshot after = proxy.Read(lftpRun ? LastConn(before) : -1);
      trips.push_back(std::string(what) + " " +
                      Describe(lftpRun ? Opened(before, after) : Delta(before, after), files));
    }
    return seconds;
  };
  // A number, or "-" for what was not run (negative).
  auto num = [](double value, const char* format) {
    char text[32];
    if (value < 0) return std::string("-");
    snprintf(text, sizeof text, format, value);
    return std::string(text);
  };
  for (int round = 0; round < runs; ++round) {
    Shell("rm -rf " + out + "/* " + root + "/up/*");
    trips.clear();
    if (doDown) {
      down.push_back(counted("ftpzn down", false, [&] { return ours(false); }));
      lftpDown.push_back(
          counted("lftp mirror down", true, [&] { return timed(lftp + "mirror tree " + out + "/lftp1'"); }));
      lftpDown4.push_back(counted("lftp mirror --parallel=4 down", true, [&] {
        return timed(lftp + "mirror --parallel=4 tree " + out + "/lftp4'");
      }));
    }
    if (doUp) {
      up.push_back(counted("ftpzn up", false, [&] { return ours(true); }));
      lftpUp.push_back(counted("lftp mirror up", true,
                               [&] { return timed(lftp + "mirror -R " + src + "/tree up/lftp1'"); }));
      lftpUp4.push_back(counted("lftp mirror --parallel=4 up", true, [&] {
        return timed(lftp + "mirror -R --parallel=4 " + src + "/tree up/lftp4'");
      }));
    }
    auto t = [&](const std::vector<double>& v) { return num(v.empty() ? -1 : v.back(), "%.1f s"); };
    printf("round %d: ftpzn %s / %s, lftp mirror %s / %s, lftp mirror --parallel=4 %s / %s (down / up)\n",
           round + 1, t(down).c_str(), t(up).c_str(), t(lftpDown).c_str(), t(lftpUp).c_str(),
           t(lftpDown4).c_str(), t(lftpUp4).c_str());
    if (!trips.empty())
      printf("round %d round trips (command chunks + data connections through the proxy):\n", round + 1);
    for (const std::string& line : trips) printf("  %s\n", line.c_str());
  }
  measureFloors();

  window->Destroy();
  ftpzn::test::PumpFor(50);
  if (server) server->Stop();
  if (external) Shell("rm -rf " + root + "/tree " + root + "/up " + root + "/floor");
  ftpzn::testing::RemoveTree(work);

  // Rates and ratios from the medians; "-" for what was not run.
  auto rate = [&](const std::vector<double>& v) { return v.empty() ? -1.0 : files / Median(v); };
  auto ratio = [&](const std::vector<double>& peer, const std::vector<double>& us) {
    return peer.empty() || us.empty() ? -1.0 : Median(peer) / Median(us);
  };
  const double floorDown = floorGet.empty() ? -1 : 1 / Median(floorGet);
  const double floorUp = floorPut.empty() ? -1 : 1 / Median(floorPut);
  printf("\n%d files in %d folders, files per second (median of %d rounds)\n", files, folders, runs);
  auto row = [&](const char* what, double d, double u) {
    printf("  %-36s %8s down %8s up\n", what, num(d, "%.1f").c_str(), num(u, "%.1f").c_str());
  };
  row("ftpzn through the window", rate(down), rate(up));
  row("lftp mirror", rate(lftpDown), rate(lftpUp));
  row("lftp mirror --parallel=4", rate(lftpDown4), rate(lftpUp4));
  row("floor: one ftpzn-ftp transfer each", floorDown, floorUp);
  printf("  ftpzn against lftp mirror: %s down, %s up (its time over ours; goal: at least 1.0)\n",
         num(ratio(lftpDown, down), "%.3f").c_str(), num(ratio(lftpUp, up), "%.3f").c_str());
  printf("  ftpzn against lftp mirror --parallel=4: %s down, %s up\n",
         num(ratio(lftpDown4, down), "%.3f").c_str(), num(ratio(lftpUp4, up), "%.3f").c_str());
  if (floorDown > 0)
    printf("  ftpzn against the floor: %s down, %s up\n",
           num(rate(down) < 0 ? -1 : rate(down) / floorDown, "%.3f").c_str(),
           num(rate(up) < 0 ? -1 : rate(up) / floorUp, "%.3f").c_str());
  printf("walk of the tree alone: remote %.3f s, local %.3f s (%zu entries)\n", remoteWalk, localWalk,
         walked);
  printf("summary: down_files_s=%s up_files_s=%s down_vs_lftp=%s up_vs_lftp=%s walk_s=%.3f\n",
         num(rate(down), "%.1f").c_str(), num(rate(up), "%.1f").c_str(),
         num(ratio(lftpDown, down), "%.3f").c_str(), num(ratio(lftpUp, up), "%.3f").c_str(),
         std::max(remoteWalk, localWalk));
}

}  // namespace
