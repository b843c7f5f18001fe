// ftpzn-test-ftpd KIND ROOT [--ipv6]: starts one of the test servers over
// ROOT, prints its URL, and stops it when standard input ends (or on
// SIGINT/SIGTERM). For benchmarks and for trying things by hand.
#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "ftp_servers.h"

using namespace ftpzn::testing;

namespace {
volatile sig_atomic_t g_stop = 0;
void OnSignal(int) { g_stop = 1; }
}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    std::fprintf(stderr, "usage: ftpzn-test-ftpd vsftpd|pureftpd|proftpd ROOT [--ipv6]\n");
    return 2;
  }
  FtpServerKind kind;
  std::string name = argv[1];
  if (name == "vsftpd") {
    kind = FtpServerKind::Vsftpd;
  } else if (name == "pureftpd") {
    kind = FtpServerKind::PureFtpd;
  } else if (name == "proftpd") {
    kind = FtpServerKind::Proftpd;
  } else {
    std::fprintf(stderr, "unknown server %s\n", argv[1]);
    return 2;
  }
  std::string error;
  auto server = FtpTestServer::Start(kind, argv[2], error, argc > 3 && std::strcmp(argv[3], "--ipv6") == 0);
  if (!server) {
    std::fprintf(stderr, "ftpzn-test-ftpd: %s\n", error.c_str());
    return 1;
  }
  struct sigaction sa {};
  sa.sa_handler = OnSignal;
  sigaction(SIGINT, &sa, nullptr);
  sigaction(SIGTERM, &sa, nullptr);
  std::printf("%s\n", server->Url().c_str());
  std::fflush(stdout);
  char buf[256];
  while (!g_stop && read(0, buf, sizeof buf) > 0) {
  }
  server->Stop();
  return 0;
}
