// ftpzn-test-ftpd KIND ROOT [--ipv6] [--tls=explicit|implicit]
//                 [--cert=trusted|selfsigned|otherhost|expired]:
// starts one of the test servers over ROOT, prints its URL (and with TLS
// the test CA's file on standard error), and stops it when standard input
// ends (or on SIGINT/SIGTERM). For benchmarks and for trying things by
// hand.
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "ftp_servers.h"

using namespace ftpzn::testing;

namespace {
volatile sig_atomic_t g_stop = 0;
void OnSignal(int) { g_stop = 1; }
}  // namespace

int main(int argc, char** argv) {
  const char* usage =
      "usage: ftpzn-test-ftpd vsftpd|pureftpd|proftpd ROOT [--ipv6] [--tls=explicit|implicit]\n"
      "                       [--cert=trusted|selfsigned|otherhost|expired]\n";
  if (argc < 3) {
    std::fprintf(stderr, "%s", usage);
    return 2;
  }
  const std::string name = argv[1];
  std::vector<FtpServerKind> kinds = AllFtpServers();
  auto kind = std::find_if(kinds.begin(), kinds.end(), [&](FtpServerKind k) { return name == FtpServerName(k); });
  if (kind == kinds.end()) {
    std::fprintf(stderr, "unknown server %s\n", argv[1]);
    return 2;
  }
  bool ipv6 = false;
  FtpTlsOptions tls;
  for (int i = 3; i < argc; ++i) {
    std::string arg = argv[i];
    bool known = arg == "--ipv6";
    if (known) ipv6 = true;
    for (FtpTlsMode mode : {FtpTlsMode::Explicit, FtpTlsMode::Implicit}) {
      if (arg == std::string("--tls=") + FtpTlsModeName(mode)) {
        tls.mode = mode;
        known = true;
      }
    }
    for (TestCertKind cert :
         {TestCertKind::Trusted, TestCertKind::SelfSigned, TestCertKind::OtherHost, TestCertKind::Expired}) {
      if (arg == std::string("--cert=") + TestCertName(cert)) {
        tls.cert = cert;
        known = true;
      }
    }
    if (!known) {
      std::fprintf(stderr, "unknown option %s\n%s", argv[i], usage);
      return 2;
    }
  }
  std::string error;
  auto server = FtpTestServer::Start(*kind, argv[2], error, ipv6, tls);
  if (!server) {
    std::fprintf(stderr, "ftpzn-test-ftpd: %s\n", error.c_str());
    return 1;
  }
  if (tls.mode != FtpTlsMode::None) {
    const TestCertificates* certs = SharedTestCertificates(error);
    if (certs) std::fprintf(stderr, "ca: %s\n", certs->caFile.c_str());
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
