// Transfers through the transfer manager window, side by side with curl and
// lftp against the same vsftpd, files on tmpfs, the clients taking turns
// round by round; a 5 ms timer in the window records the event loop's worst
// delay while ours run. Then 100,000 transfers queued (time, the process's
// peak memory, threads alive) and the time from Cancel to a running
// transfer's removal. Needs root (the test servers do) and a display:
// bench/transfer-bench.sh runs it under Xvfb. RUNS (default 5), SIZE_MB
// (1024), QUEUE (100000; 0 leaves the queue out), CANCELS (5; 0 leaves
// Cancel out) and OPS ("get put") tune it. TLS=explicit runs the server,
// the window's transfers and the peers over explicit TLS with a certificate
// of the test CA, which the window trusts through SSL_CERT_FILE
// (bench/tls-bench.sh).
#include <dirent.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <wx/listctrl.h>
#include <wx/timer.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "bench_support.h"
#include "ftp_servers.h"
#include "gui_harness.h"
#include "mainwnd/dlgftpmainwnd.h"
#include "transfer/dlgftptransfermanager.h"

namespace {

using ftpzn::bench::Clock;
using ftpzn::bench::EnvInt;
using ftpzn::bench::Median;
using ftpzn::bench::Shell;
using ftpzn::bench::Since;
using ftpzn::testing::FtpServerKind;
using ftpzn::testing::FtpTestServer;
using ftpzn::testing::FtpTlsMode;
using ftpzn::testing::FtpTlsOptions;

// A figure of /proc/self/status in kB.
long StatusKb(const char* key) {
  std::ifstream in("/proc/self/status");
  std::string line;
  const std::string prefix = std::string(key) + ":";
  while (std::getline(in, line))
    if (line.rfind(prefix, 0) == 0) return std::atol(line.c_str() + prefix.size());
  return -1;
}

int ThreadCount() {
  int count = 0;
  if (DIR* dir = opendir("/proc/self/task")) {
    while (dirent* entry = readdir(dir))
      if (entry->d_name[0] != '.') ++count;
    closedir(dir);
  }
  return count;
}

// The longest gap between two ticks of a 5 ms timer: how long the event
// loop was kept from its work.
class LoopDelayMeter : public wxTimer {
 public:
  void Begin() {
    m_last = Clock::now();
    m_worst = 0;
    Start(5);
  }
  double End() {
    Stop();
    return m_worst;
  }
  void Notify() override {
    const Clock::time_point now = Clock::now();
    m_worst = std::max(m_worst, std::chrono::duration<double, std::milli>(now - m_last).count());
    m_last = now;
  }

 private:
  Clock::time_point m_last;
  double m_worst = 0;
};

TEST(TransferBench, ThroughTheManagerBesidePeers) {
  const int runs = EnvInt("RUNS", 5);
  const int sizeMb = EnvInt("SIZE_MB", 1024);
  const int queued = EnvInt("QUEUE", 100000);
  const int cancels = EnvInt("CANCELS", 5);
  const char* tlsSetting = std::getenv("TLS");
  const std::string tlsName = tlsSetting ? tlsSetting : "";
  ASSERT_TRUE(tlsName.empty() || tlsName == "explicit") << "TLS=explicit or unset, not " << tlsName;
  FtpTlsOptions tls;
  if (!tlsName.empty()) tls.mode = FtpTlsMode::Explicit;
  const std::string work = ftpzn::bench::MakeWorkDir("ftpzn-transfer-bench");
  ASSERT_FALSE(work.empty());
  // Also when an assertion ends the test early: the files are gigabytes of
  // memory.
  struct RemoveAtEnd {
    std::string path;
    ~RemoveAtEnd() { ftpzn::testing::RemoveTree(path); }
  } removeWork{work};
  const std::string root = work + "/root", out = work + "/out", src = work + "/src";
  for (const std::string& dir : {root, root + "/up", out, src}) mkdir(dir.c_str(), 0755);
  printf("preparing %d MiB on tmpfs...\n", sizeMb);
  ASSERT_TRUE(Shell("head -c " + std::to_string(sizeMb) + "M /dev/urandom > " + root + "/big && cp " + root +
                    "/big " + src + "/big"));
  ftpzn::testing::GiveToTestAccount(root);
  std::string error;
  auto server = FtpTestServer::Start(FtpServerKind::Vsftpd, root, error, false, tls);
  ASSERT_TRUE(server) << error;
  const std::string url = server->Url();
  std::string caFile, curl = "curl -s --max-time 900";
  if (tls.mode != FtpTlsMode::None) {
    // Before the first handshake: the engine reads the trust store once.
    const ftpzn::testing::TestCertificates* certs = ftpzn::testing::TrustTestCertificates(error);
    ASSERT_TRUE(certs) << error;
    caFile = certs->caFile;
    curl += " --ssl-reqd --cacert " + caFile;
    printf("over explicit TLS, the test CA in %s\n", caFile.c_str());
  }
  const std::string lftp = ftpzn::bench::LftpScript(url, caFile);

  auto* window = new CDlgFTPMainWnd;
  window->m_strLocalDir = wxString::FromUTF8(out);
  ASSERT_TRUE(window->Create());
  window->Show();
  CDlgFtpTransferManager& manager = *window->m_pTransferManager;
  manager.Show();
  ftpzn::test::PumpFor(200);
  LoopDelayMeter meter;
  double worstDelayMs = 0;

  auto args = [&](bool upload) {
    ftpzn::TransferArgs a{"127.0.0.1",
                          FtpTestServer::kUser,
                          FtpTestServer::kPassword,
                          "big",
                          wxString::FromUTF8(upload ? src : out + "/"),
                          upload ? "/up" : "/"};
    a.fileSize = static_cast<uint32_t>(static_cast<uint64_t>(sizeMb) << 20);
    a.port = server->Port();
    a.passive = true;
    if (tls.mode != FtpTlsMode::None) a.tls = ftpzn::inet::TlsMode::Explicit;
    return a;
  };
  // One transfer through the window, to its row's removal; -1 on failure.
  auto ours = [&](bool upload) {
    meter.Begin();
    const auto start = Clock::now();
    const bool added = upload ? manager.AddUpload(args(true)) : manager.AddDownload(args(false));
    const bool done = added && ftpzn::test::RunEventLoopUntil([&] { return manager.GetRowCount() == 0; }, 600000);
    const double seconds = Since(start);
    worstDelayMs = std::max(worstDelayMs, meter.End());
    const std::string made = upload ? root + "/up/big" : out + "/big";
    EXPECT_TRUE(Shell("cmp " + root + "/big " + made)) << made;
    return done ? seconds : -1;
  };
  // The first touch of memory the machine handed back to its host costs
  // several times the copy into it: every run writes into recently used
  // memory (as bench/ftp-bench.sh does).
  auto settle = [&] {
    Shell("head -c " + std::to_string(sizeMb + 64) + "M /dev/zero > " + work + "/settle; rm -f " + work +
          "/settle");
  };
  std::map<std::string, std::function<double()>> clients = {
      {"get ftpzn", [&] { return ours(false); }},
      {"get curl", [&] { return Shell(curl + " -o " + out + "/curl " + url + "/big") ? 0.0 : -1; }},
      {"get lftp", [&] { return Shell(lftp + "get big -o " + out + "/lftp'") ? 0.0 : -1; }},
      {"put ftpzn", [&] { return ours(true); }},
      {"put curl", [&] { return Shell(curl + " -T " + src + "/big " + url + "/up/curl") ? 0.0 : -1; }},
      {"put lftp", [&] { return Shell(lftp + "put " + src + "/big -o up/lftp'") ? 0.0 : -1; }},
  };
  std::map<std::string, std::vector<double>> times;
  std::map<std::string, std::vector<double>> roundRatios;
  const char* opsSetting = std::getenv("OPS");
  const std::string ops = opsSetting && *opsSetting ? opsSetting : "get put";
  for (const std::string op : {"get", "put"}) {
    if (ops.find(op) == std::string::npos) continue;
    printf("%s %d MiB, %d rounds, clients taking turns\n", op.c_str(), sizeMb, runs);
    const std::vector<std::string> names = {"ftpzn", "curl", "lftp"};
    for (int round = 0; round < runs; ++round) {
      std::map<std::string, double> seconds;
      for (size_t turn = 0; turn < names.size(); ++turn) {
        const std::string& name = names[(round + turn) % names.size()];
        Shell("rm -f " + out + "/* " + root + "/up/*");
        settle();
        const auto start = Clock::now();
        double s = clients[op + " " + name]();
        if (s == 0.0) s = Since(start);
        seconds[name] = s;
        if (s > 0) times[op + " " + name].push_back(s);
      }
      printf("  round %d: ftpzn %.3f  curl %.3f  lftp %.3f\n", round + 1, seconds["ftpzn"], seconds["curl"],
             seconds["lftp"]);
      const double peer =
          std::min(seconds["curl"] > 0 ? seconds["curl"] : 1e9, seconds["lftp"] > 0 ? seconds["lftp"] : 1e9);
      if (seconds["ftpzn"] > 0 && peer < 1e9) roundRatios[op].push_back(peer / seconds["ftpzn"]);
    }
  }
  ftpzn::test::PumpFor(100);

  // 100,000 transfers queued as a tree expansion queues them: held, so none
  // starts while the list grows.
  double queueSeconds = -1, tickMany = -1, tickFew = -1, killSeconds = -1;
  long rssBefore = -1, rssAfter = -1, peakKb = -1;
  int threadsAlive = -1;
  if (queued > 0) {
    const int threadsBefore = ThreadCount();
    rssBefore = StatusKb("VmRSS");
    std::ofstream("/proc/self/clear_refs") << "5";  // the peak starts again from here
    manager.m_bHold = 1;
    ftpzn::TransferArgs one = args(false);
    one.fileSize = 1000;
    const auto queueStart = Clock::now();
    for (int i = 0; i < queued; ++i) {
      one.fileName = wxString::Format("file-%06d.dat", i);
      manager.AddDownload(one);
    }
    queueSeconds = Since(queueStart);
    ftpzn::test::PumpFor(300);
    peakKb = StatusKb("VmHWM");
    rssAfter = StatusKb("VmRSS");
    threadsAlive = ThreadCount() - threadsBefore;
    EXPECT_EQ(static_cast<int>(manager.GetRowCount()), queued);
    // A scheduler tick where the rule's walk is longest: nothing counted as
    // running and no row queued, so the walk the rule asks for passes every
    // row. Timed over 100,000 rows and over 10.
    auto tickMicros = [&] {
      CDlgFTPMainWnd* mainWindow = manager.m_pFtpMainWnd;
      manager.m_pFtpMainWnd = nullptr;
      for (size_t row = 0; row < manager.GetRowCount(); ++row)
        manager.OnStatus(manager.GetRow(row).threadId, "Failed");
      manager.m_pFtpMainWnd = mainWindow;
      manager.m_bHold = 0;
      manager.m_nActive = 0;
      manager.RunScheduler();  // drops what the rows left in the queued index
      const auto start = Clock::now();
      for (int i = 0; i < 10000; ++i) manager.RunScheduler();
      return Since(start) * 1e6 / 10000;
    };
    tickMany = tickMicros();
    const auto killStart = Clock::now();
    manager.KillAll();
    killSeconds = Since(killStart);
    manager.m_bHold = 1;
    for (int i = 0; i < 10; ++i) manager.AddDownload(one);
    tickFew = tickMicros();
    manager.KillAll();
    manager.m_nActive = 0;
    ftpzn::test::PumpFor(200);
  }

  // Cancel of a running transfer, to its row's removal.
  std::vector<double> cancelMs;
  for (int i = 0; i < cancels; ++i) {
    ASSERT_TRUE(manager.AddDownload(args(false)));
    ASSERT_TRUE(ftpzn::test::PumpUntil(
        [&] {
          return manager.GetRowCount() == 1 &&
                 manager.GetCellText(0, ftpzn::TransferQueue::kColumnStatus).StartsWith("Receiving");
        },
        20000));
    // A small file may be through already: nothing left to cancel.
    if (manager.GetRowCount() == 0 || manager.m_listCtrl->GetItemCount() == 0) continue;
    manager.m_listCtrl->SetItemState(0, wxLIST_STATE_SELECTED, wxLIST_STATE_SELECTED);
    const auto start = Clock::now();
    wxCommandEvent cancel(wxEVT_MENU, CDlgFtpTransferManager::ID_TRANSFER_CANCEL);
    manager.ProcessWindowEvent(cancel);
    ASSERT_TRUE(ftpzn::test::PumpUntil([&] { return manager.GetRowCount() == 0; }, 20000));
    cancelMs.push_back(Since(start) * 1000);
  }

  window->Destroy();
  ftpzn::test::PumpFor(50);
  server->Stop();

  auto best = [&](const std::string& key) {
    const auto& v = times[key];
    return v.empty() ? -1.0 : *std::min_element(v.begin(), v.end());
  };
  printf("\n%-22s %12s %12s %12s   %s\n", "", "ftpzn", "curl", "lftp", "ftpzn vs best peer");
  std::map<std::string, double> summaryRatio;
  for (const std::string op : {"get", "put"}) {
    if (ops.find(op) == std::string::npos) continue;
    for (const std::string stat : {"best", "median"}) {
      auto pick = [&](const std::string& who) {
        return stat == "best" ? best(op + " " + who) : Median(times[op + " " + who]);
      };
      auto rate = [&](double s) { return s > 0 ? sizeMb / s : 0.0; };
      const double us = pick("ftpzn");
      const double peer =
          std::min(pick("curl") > 0 ? pick("curl") : 1e9, pick("lftp") > 0 ? pick("lftp") : 1e9);
      printf("%-22s %6.0f MiB/s %6.0f MiB/s %6.0f MiB/s   %.3fx\n", (op + " " + stat).c_str(), rate(us),
             rate(pick("curl")), rate(pick("lftp")), us > 0 ? peer / us : 0);
    }
    summaryRatio[op] = Median(roundRatios[op]);
    printf("%-22s %52.3fx\n", (op + " per round").c_str(), summaryRatio[op]);
  }
  printf("(ratio > 1: ftpzn through the window faster than the best peer)\n");
  printf("event loop's worst delay while transferring: %.1f ms\n", worstDelayMs);
  if (queued > 0) {
    printf(
        "%d transfers queued in %.2f s; peak memory of the process %.1f MB (RSS %.1f -> %.1f MB); "
        "%d threads more\n",
        queued, queueSeconds, peakKb / 1024.0, rssBefore / 1024.0, rssAfter / 1024.0, threadsAlive);
    printf(
        "a scheduler tick: %.3f us over %d rows, %.3f us over 10; all %d cancelled and removed in %.2f s\n",
        tickMany, queued, tickFew, queued, killSeconds);
  }
  const double worstCancel = cancelMs.empty() ? -1 : *std::max_element(cancelMs.begin(), cancelMs.end());
  if (cancels > 0) {
    printf(
        "Cancel of a running %d MiB download to its removal: median %.1f ms, worst %.1f ms (%zu cancelled)\n",
        sizeMb, Median(cancelMs), worstCancel, cancelMs.size());
  }
  printf(
      "summary: get=%.3f put=%.3f latency_ms=%.0f queue100k_s=%.2f queue100k_mb=%.0f threads=%d "
      "cancel_ms=%.0f\n",
      summaryRatio["get"], summaryRatio["put"], worstDelayMs, queueSeconds, peakKb / 1024.0, threadsAlive,
      worstCancel);
}

}  // namespace
