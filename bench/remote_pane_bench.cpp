// How long the remote pane takes to open a directory of many entries, side
// by side with the engine's listing alone and with curl and lftp listing the
// same directory from the same vsftpd. Files on tmpfs. Needs root (the test
// servers do) and a display: bench/remote-pane-bench.sh runs it under Xvfb.
// ENTRIES (default 100000) and RUNS (default 3) tune it.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

#include "bench_support.h"
#include "ftp_servers.h"
#include "gui_harness.h"
#include "inet/inet.h"
#include "mainwnd/dlgftpmainwnd.h"

namespace {

using ftpzn::bench::EnvInt;
using ftpzn::testing::FtpServerKind;
using ftpzn::testing::FtpTestServer;
using Clock = std::chrono::steady_clock;

template <typename Fn>
double BestSeconds(int runs, Fn&& fn) {
  double best = 1e9;
  for (int i = 0; i < runs; ++i) {
    const auto start = Clock::now();
    if (!fn()) return -1;
    best = std::min(best, std::chrono::duration<double>(Clock::now() - start).count());
  }
  return best;
}

TEST(RemotePaneBench, OpenADirectoryOfManyEntries) {
  const int entries = EnvInt("ENTRIES", 100000);
  const int runs = EnvInt("RUNS", 3);
  char pattern[] = "/dev/shm/ftpzn-pane-bench.XXXXXX";
  ASSERT_NE(mkdtemp(pattern), nullptr);
  const std::string root = pattern;
  chmod(root.c_str(), 0755);
  mkdir((root + "/list").c_str(), 0755);
  for (int i = 0; i < entries; ++i) {
    char name[64];
    snprintf(name, sizeof name, "/list/entry-%06d.dat", i);
    std::ofstream(root + name) << std::string(static_cast<size_t>(i % 100), 'x');
  }
  ftpzn::testing::GiveToTestAccount(root);
  std::string error;
  auto server = FtpTestServer::Start(FtpServerKind::Vsftpd, root, error);
  ASSERT_TRUE(server) << error;

  ftpzn::inet::CInternetSession session;
  auto connection = session.GetFtpConnection(
      wxString(server->Host()).ToStdWstring(), wxString(FtpTestServer::kUser).ToStdWstring(),
      wxString(FtpTestServer::kPassword).ToStdWstring(), server->Port(), true);
  auto* window = new CDlgFTPMainWnd;
  ASSERT_TRUE(window->Create());
  window->Show();
  ftpzn::test::PumpFor(100);

  // The engine alone: the listing that any client pays.
  size_t listed = 0;
  const double engine = BestSeconds(runs, [&] {
    connection->SetCurrentDirectory(L"/list");
    ftpzn::inet::CFtpFileFind find(connection.get());
    listed = 0;
    for (bool more = find.FindFile(); more; ++listed) more = find.FindNextFile();
    return true;
  });
  // The pane: the same listing, the rows, and the first page painted.
  CFtpListzn1Remote& pane = window->m_ctrlRemote;
  window->m_strRemoteDir = "/list";
  const double paneSeconds = BestSeconds(runs, [&] {
    const bool filled = pane.FillDirectory("/list", connection.get(), true) == 1;
    pane.Update();
    return filled;
  });
  EXPECT_EQ(pane.GetItemCount(), entries + 1);
  EXPECT_EQ(listed, static_cast<size_t>(entries));

  // The peers over the same server and directory.
  const std::string url = server->Url();
  const std::string hostPort = url.substr(url.find('@') + 1);
  const std::string curl = "curl -s -o /dev/null '" + url + "/list/'";
  const std::string lftp = std::string("lftp -c 'set ftp:ssl-allow no; set net:max-retries 1; open -u ") +
                           FtpTestServer::kUser + "," + FtpTestServer::kPassword + " ftp://" + hostPort +
                           "; cls -1 /list' >/dev/null";
  const double curlSeconds = BestSeconds(runs, [&] { return std::system(curl.c_str()) == 0; });
  const double lftpSeconds = BestSeconds(runs, [&] { return std::system(lftp.c_str()) == 0; });

  printf("\nopen a directory of %d entries on vsftpd, best of %d (seconds)\n", entries, runs);
  printf("  %-44s %8.3f\n", "remote pane (list, rows, first page)", paneSeconds);
  printf("  %-44s %8.3f\n", "engine listing alone (CFtpFileFind)", engine);
  printf("  %-44s %8.3f\n", "curl (raw LIST to /dev/null)", curlSeconds);
  printf("  %-44s %8.3f\n", "lftp cls -1", lftpSeconds);
  printf("  pane beyond the engine's listing: %.3f s\n", paneSeconds - engine);
  printf("summary: pane_s=%.3f engine_s=%.3f pane_vs_engine=%.3f curl_s=%.3f lftp_s=%.3f\n", paneSeconds,
         engine, engine > 0 ? paneSeconds / engine : 0.0, curlSeconds, lftpSeconds);

  pane.m_pConnection = nullptr;
  window->Destroy();
  ftpzn::test::PumpFor(20);
  connection->Close();
  server->Stop();
  ftpzn::testing::RemoveTree(root);
}

}  // namespace
