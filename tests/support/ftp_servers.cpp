#include "ftp_servers.h"

#include <arpa/inet.h>
#include <crypt.h>
#include <dirent.h>
#include <fcntl.h>
#include <ftw.h>
#include <netinet/in.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <poll.h>
#include <pwd.h>
#include <shadow.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <map>
#include <mutex>
#include <sstream>
#include <thread>
#include <tuple>

namespace ftpzn::testing {

namespace {

using Clock = std::chrono::steady_clock;

std::string ServersDir() {
  const char* env = getenv("FTPZN_SERVERS_DIR");
  return env && *env ? env : "/var/cache/ftpzn-servers";
}

std::string Binary(const std::string& relative) { return ServersDir() + "/root/" + relative; }

bool WriteFile(const std::string& path, const std::string& text, mode_t mode = 0644) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << text;
  out.close();
  return out && chmod(path.c_str(), mode) == 0;
}

std::string ReadTail(const std::string& path, size_t max = 600) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream s;
  s << in.rdbuf();
  std::string text = s.str();
  return text.size() > max ? text.substr(text.size() - max) : text;
}

int RunShell(const std::string& command) {
  int rc = system(command.c_str());
  return WIFEXITED(rc) ? WEXITSTATUS(rc) : -1;
}

// The servers are unpacked once per machine; do it on first use so that a
// test run needs no separate step.
bool EnsureUnpacked(std::string& error) {
  static std::mutex mutex;
  std::lock_guard lock(mutex);
  if (access(Binary("usr/sbin/vsftpd").c_str(), X_OK) == 0 &&
      access(Binary("usr/sbin/pure-ftpd").c_str(), X_OK) == 0 &&
      access(Binary("usr/sbin/proftpd").c_str(), X_OK) == 0) {
    return true;
  }
  std::string script = std::string(FTPZN_SOURCE_DIR) + "/scripts/ftp-test-servers.sh";
  if (RunShell(script + " '" + ServersDir() + "'") != 0) {
    error = "cannot unpack the FTP servers into " + ServersDir() + " (" + script + " failed)";
    return false;
  }
  return true;
}

// The system account vsftpd logs in through PAM; the other servers use
// their own user files mapped onto the same uid. A SHA-512 hash keeps each
// login at a few ms (yescrypt costs ~40 ms).
bool EnsureAccount(std::string& error) {
  static std::mutex mutex;
  static bool done = false;
  std::lock_guard lock(mutex);
  if (done) return true;
  int lockFd = open("/tmp/ftpzn-test-account.lock", O_CREAT | O_RDWR | O_CLOEXEC, 0600);
  if (lockFd >= 0) flock(lockFd, LOCK_EX);
  const std::string home = "/var/lib/ftpzntest";
  if (!getpwnam(FtpTestServer::kUser)) {
    RunShell(std::string("useradd -M -d ") + home + " -s /bin/sh -U " + FtpTestServer::kUser +
             " 2>/dev/null");
  }
  passwd* pw = getpwnam(FtpTestServer::kUser);
  if (pw) {
    mkdir(home.c_str(), 0755);
    if (chown(home.c_str(), pw->pw_uid, pw->pw_gid) != 0) {
      // Only vsftpd minds, and it says so at login.
    }
    spwd* sp = getspnam(FtpTestServer::kUser);
    std::string hash = sp && sp->sp_pwdp ? sp->sp_pwdp : "";
    const char* check = hash.rfind("$6$", 0) == 0 ? crypt(FtpTestServer::kPassword, hash.c_str()) : nullptr;
    if (!check || hash != check) {
      RunShell(std::string("echo '") + FtpTestServer::kUser + ":" + FtpTestServer::kPassword +
               "' | chpasswd -c SHA512");
    }
  }
  if (lockFd >= 0) close(lockFd);
  if (!getpwnam(FtpTestServer::kUser)) {
    error = std::string("cannot create the test account ") + FtpTestServer::kUser + " (useradd needs root)";
    return false;
  }
  done = true;
  return true;
}

std::string Sha512Hash(const char* password) {
  crypt_data data{};
  const char* hash = crypt_r(password, "$6$ftpzntestsalt$", &data);
  return hash ? hash : "";
}

bool FillAddress(const std::string& host, uint16_t port, sockaddr_storage& ss, socklen_t& len) {
  std::memset(&ss, 0, sizeof ss);
  if (host.find(':') != std::string::npos) {
    auto& a = reinterpret_cast<sockaddr_in6&>(ss);
    a.sin6_family = AF_INET6;
    a.sin6_port = htons(port);
    len = sizeof a;
    return inet_pton(AF_INET6, host.c_str(), &a.sin6_addr) == 1;
  }
  auto& a = reinterpret_cast<sockaddr_in&>(ss);
  a.sin_family = AF_INET;
  a.sin_port = htons(port);
  len = sizeof a;
  return inet_pton(AF_INET, host.c_str(), &a.sin_addr) == 1;
}

uint16_t FreePort(const std::string& host) {
  sockaddr_storage ss;
  socklen_t len;
  if (!FillAddress(host, 0, ss, len)) return 0;
  int fd = socket(ss.ss_family, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return 0;
  uint16_t port = 0;
  if (bind(fd, reinterpret_cast<sockaddr*>(&ss), len) == 0 &&
      getsockname(fd, reinterpret_cast<sockaddr*>(&ss), &len) == 0) {
    port = ntohs(ss.ss_family == AF_INET6 ? reinterpret_cast<sockaddr_in6&>(ss).sin6_port
                                          : reinterpret_cast<sockaddr_in&>(ss).sin_port);
  }
  close(fd);
  return port;
}

// `openssl ca` for every certificate, self-signed ones included: it is the
// only command in OpenSSL 3.0 that takes a start date, which the expired
// certificate needs and which the others set a day back so that a client
// whose clock reads a second behind still finds them valid.
const char kOpensslConfig[] = R"([req]
distinguished_name = dn
prompt = no
[dn]
CN = unused
[ca_ext]
basicConstraints = critical,CA:TRUE
keyUsage = critical,keyCertSign,cRLSign
subjectKeyIdentifier = hash
[server_ext]
basicConstraints = CA:FALSE
keyUsage = critical,digitalSignature,keyEncipherment
extendedKeyUsage = serverAuth
subjectAltName = IP:127.0.0.1,IP:::1,DNS:localhost
[otherhost_ext]
basicConstraints = CA:FALSE
keyUsage = critical,digitalSignature,keyEncipherment
extendedKeyUsage = serverAuth
subjectAltName = DNS:other.example
[ca]
default_ca = test_ca
[test_ca]
database = db/index.txt
new_certs_dir = db
serial = db/serial
default_md = sha256
policy = any
unique_subject = no
copy_extensions = none
[any]
organizationalUnitName = optional
commonName = supplied
)";

std::string AsnTime(time_t t) {
  tm utc{};
  gmtime_r(&t, &utc);
  char buf[32];
  strftime(buf, sizeof buf, "%Y%m%d%H%M%SZ", &utc);
  return buf;
}

// Runs openssl in `dir`, its output into `dir`/openssl.log; false with
// that log's tail in `error`.
bool Openssl(const std::string& dir, const std::string& args, std::string& error) {
  if (RunShell("cd '" + dir + "' && openssl " + args + " >>openssl.log 2>&1") == 0) return true;
  error = "openssl " + args + " failed: " + ReadTail(dir + "/openssl.log");
  return false;
}

// A key and a certificate `name`.key/.pem in `dir`, signed by the CA there
// or, for the CA and the self-signed one, by its own key.
bool MakeCertificate(const std::string& dir, const std::string& name, const std::string& subject,
                     const std::string& extensions, bool selfSigned, const std::string& start,
                     const std::string& end, std::string& error) {
  std::string signer = selfSigned ? "-selfsign -keyfile " + name + ".key" : "-cert ca.pem -keyfile ca.key";
  return Openssl(dir, "genpkey -algorithm EC -pkeyopt ec_paramgen_curve:P-256 -out " + name + ".key",
                 error) &&
         Openssl(dir,
                 "req -config openssl.cnf -new -key " + name + ".key -subj '" + subject + "' -out " + name +
                     ".csr",
                 error) &&
         Openssl(dir,
                 "ca -batch -config openssl.cnf -notext " + signer + " -startdate " + start + " -enddate " +
                     end + " -extfile openssl.cnf -extensions " + extensions + " -in " + name + ".csr -out " +
                     name + ".pem",
                 error);
}

bool MakeCertificates(const std::string& dir, std::string& error) {
  if (!WriteFile(dir + "/openssl.cnf", kOpensslConfig, 0600) || mkdir((dir + "/db").c_str(), 0700) != 0 ||
      !WriteFile(dir + "/db/index.txt", "", 0600) || !WriteFile(dir + "/db/serial", "1000\n", 0600)) {
    error = "cannot prepare " + dir + " for the test certificates";
    return false;
  }
  time_t now = time(nullptr);
  std::string start = AsnTime(now - 24 * 3600), end = AsnTime(now + 10L * 365 * 24 * 3600);
  if (!MakeCertificate(dir, "ca", "/CN=ftpzn test CA", "ca_ext", true, start, end, error)) return false;
  for (TestCertKind kind :
       {TestCertKind::Trusted, TestCertKind::SelfSigned, TestCertKind::OtherHost, TestCertKind::Expired}) {
    std::string name = TestCertName(kind);
    bool other = kind == TestCertKind::OtherHost;
    bool expired = kind == TestCertKind::Expired;
    std::string subject = "/OU=" + name + "/CN=" + (other ? "other.example" : "localhost");
    if (!MakeCertificate(dir, name, subject, other ? "otherhost_ext" : "server_ext",
                         kind == TestCertKind::SelfSigned, expired ? "20200101000000Z" : start,
                         expired ? "20210101000000Z" : end, error)) {
      return false;
    }
  }
  return true;
}

bool HasFinalReply(const std::string& text, const char* code) {
  std::string line = std::string(code) + " ";
  return text.rfind(line, 0) == 0 || text.find("\n" + line) != std::string::npos;
}

// Connects and reads the 220 greeting: in clear text, over TLS from the
// first byte (implicit), or in clear text followed by AUTH TLS and its 234
// (explicit); a TLS handshake accepts any certificate, so that a server that
// cannot load its certificate fails the start. Ends the session with QUIT so
// that it is gone soon after.
bool Greets(const std::string& host, uint16_t port, FtpTlsMode mode, std::string& seen) {
  const bool implicit = mode == FtpTlsMode::Implicit;
  sockaddr_storage ss;
  socklen_t len;
  if (!FillAddress(host, port, ss, len)) return false;
  int fd = socket(ss.ss_family, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return false;
  // Bounds every blocking read and write below, the handshake's included.
  timeval timeout{3, 0};
  setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
  setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &timeout, sizeof timeout);
  if (connect(fd, reinterpret_cast<sockaddr*>(&ss), len) != 0) {
    close(fd);
    return false;
  }
  SSL_CTX* ctx = nullptr;
  SSL* ssl = nullptr;
  auto until = Clock::now() + std::chrono::seconds(3);
  // Reads until `code`'s final line, bounded in size and time.
  auto readReply = [&](const char* code) {
    std::string text;
    while (Clock::now() < until && text.size() < 8192) {
      char buf[1024];
      int n = ssl ? SSL_read(ssl, buf, sizeof buf) : static_cast<int>(read(fd, buf, sizeof buf));
      if (n <= 0) break;
      text.append(buf, static_cast<size_t>(n));
      if (HasFinalReply(text, code)) {
        seen = text;
        return true;
      }
    }
    seen = text;
    return false;
  };
  bool ok = false;
  do {
    if (!implicit) {
      if (!readReply("220")) break;
      if (mode == FtpTlsMode::None) {
        ok = true;
        break;
      }
      const char auth[] = "AUTH TLS\r\n";
      if (write(fd, auth, sizeof auth - 1) != static_cast<ssize_t>(sizeof auth - 1) || !readReply("234"))
        break;
    }
    ctx = SSL_CTX_new(TLS_client_method());
    ssl = ctx ? SSL_new(ctx) : nullptr;
    if (!ssl || SSL_set_fd(ssl, fd) != 1) break;
    if (SSL_connect(ssl) != 1) {
      char reason[256] = "";
      ERR_error_string_n(ERR_get_error(), reason, sizeof reason);
      seen += std::string(" [TLS handshake failed: ") + reason + "]";
      break;
    }
    if (implicit && !readReply("220")) break;
    const char quit[] = "QUIT\r\n";
    SSL_write(ssl, quit, sizeof quit - 1);
    readReply("221");
    ok = true;
  } while (false);
  ERR_clear_error();
  if (ssl) SSL_free(ssl);
  if (ctx) SSL_CTX_free(ctx);
  close(fd);
  return ok;
}

int RemoveEntry(const char* path, const struct stat*, int, FTW*) { return ::remove(path); }
int ChownEntry(const char* path, const struct stat*, int, FTW*) {
  return lchown(path, FtpTestServer::Uid(), FtpTestServer::Gid()) == 0 ? 0 : 0;
}

}  // namespace

const char* FtpServerName(FtpServerKind kind) {
  static const char* const names[] = {"vsftpd", "pureftpd", "proftpd"};
  return names[static_cast<int>(kind)];
}

std::vector<FtpServerKind> AllFtpServers() {
  return {FtpServerKind::Vsftpd, FtpServerKind::PureFtpd, FtpServerKind::Proftpd};
}

const char* TestCertName(TestCertKind kind) {
  static const char* const names[] = {"trusted", "selfsigned", "otherhost", "expired"};
  return names[static_cast<int>(kind)];
}

std::string TestCertificates::CertFile(TestCertKind kind) const {
  return dir + "/" + TestCertName(kind) + ".pem";
}

std::string TestCertificates::KeyFile(TestCertKind kind) const {
  return dir + "/" + TestCertName(kind) + ".key";
}

const TestCertificates* SharedTestCertificates(std::string& error) {
  struct Shared {
    TestCertificates certs;
    std::string error;
    bool made = false;
    ~Shared() { RemoveTree(certs.dir); }
  };
  static std::mutex mutex;
  static Shared shared;
  std::lock_guard lock(mutex);
  if (!shared.made) {
    shared.made = true;
    shared.certs.dir = MakeScratchDir("ftpzn-certs");
    if (shared.certs.dir.empty()) {
      shared.error = "cannot create a directory for the test certificates";
    } else if (MakeCertificates(shared.certs.dir, shared.error)) {
      shared.certs.caFile = shared.certs.dir + "/ca.pem";
    }
  }
  if (shared.certs.caFile.empty()) {
    error = shared.error;
    return nullptr;
  }
  return &shared.certs;
}

const TestCertificates* TrustTestCertificates(std::string& error) {
  const TestCertificates* certificates = SharedTestCertificates(error);
  if (certificates) setenv("SSL_CERT_FILE", certificates->caFile.c_str(), 1);
  return certificates;
}

const char* FtpTlsModeName(FtpTlsMode mode) {
  static const char* const names[] = {"plain", "explicit", "implicit"};
  return names[static_cast<int>(mode)];
}

bool FtpServerSupportsTls(FtpServerKind kind, FtpTlsMode mode) {
  switch (kind) {
    case FtpServerKind::Vsftpd:
      return true;
    case FtpServerKind::PureFtpd:
      // Implicit TLS is a build option (--with-implicittls) that turns the
      // whole server into FTPS; Debian's build greets in clear text.
      return mode != FtpTlsMode::Implicit;
    case FtpServerKind::Proftpd:
      // mod_tls is in proftpd-mod-crypto, not in the proftpd-core unpacked
      // for the tests.
      return mode == FtpTlsMode::None;
  }
  return false;
}

uid_t FtpTestServer::Uid() {
  passwd* pw = getpwnam(kUser);
  return pw ? pw->pw_uid : 0;
}

gid_t FtpTestServer::Gid() {
  passwd* pw = getpwnam(kUser);
  return pw ? pw->pw_gid : 0;
}

uint16_t ClosedPort() { return FreePort("127.0.0.1"); }

void GiveToTestAccount(const std::string& path) { nftw(path.c_str(), ChownEntry, 16, FTW_PHYS); }

std::string MakeScratchDir(const std::string& prefix) {
  std::string pattern = "/tmp/" + prefix + "-XXXXXX";
  std::vector<char> buf(pattern.begin(), pattern.end());
  buf.push_back(0);
  return mkdtemp(buf.data()) ? std::string(buf.data()) : std::string();
}

void RemoveTree(const std::string& path) {
  if (!path.empty() && path != "/") nftw(path.c_str(), RemoveEntry, 16, FTW_DEPTH | FTW_PHYS);
}

std::string FtpTestServer::Url() const {
  std::string host = m_host.find(':') != std::string::npos ? "[" + m_host + "]" : m_host;
  return std::string(m_tls.mode == FtpTlsMode::Implicit ? "ftps://" : "ftp://") + kUser + ":" + kPassword +
         "@" + host + ":" + std::to_string(m_port);
}

std::vector<pid_t> FtpTestServer::Sessions() const {
  std::vector<pid_t> sessions;
  if (m_pid <= 0) return sessions;
  DIR* proc = opendir("/proc");
  if (!proc) return sessions;
  // Bounded by the number of processes on the machine.
  while (dirent* entry = readdir(proc)) {
    if (entry->d_name[0] < '1' || entry->d_name[0] > '9') continue;
    std::ifstream in(std::string("/proc/") + entry->d_name + "/stat");
    std::string stat((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    // "pid (comm) state ppid ...": comm may hold spaces and parentheses.
    size_t close = stat.rfind(')');
    if (close == std::string::npos) continue;
    std::istringstream fields(stat.substr(close + 1));
    char state = 0;
    long ppid = 0;
    if (!(fields >> state >> ppid)) continue;
    // A zombie is a session that has ended but is not yet reaped.
    if (ppid == m_pid && state != 'Z' && state != 'X') sessions.push_back(static_cast<pid_t>(atol(entry->d_name)));
  }
  closedir(proc);
  return sessions;
}

int FtpTestServer::SessionCount() const { return m_pid <= 0 ? -1 : static_cast<int>(Sessions().size()); }

void FtpTestServer::EndSessions() {
  // Each session's process (and what it started) ends as a server's idle
  // time-out would end it: the client sees its connection close.
  for (pid_t session : Sessions()) kill(session, SIGKILL);
}

bool FtpTestServer::WaitForSessionCount(int count, std::chrono::milliseconds timeout) const {
  auto until = Clock::now() + timeout;
  for (;;) {
    if (SessionCount() == count) return true;
    if (Clock::now() >= until) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
}

std::unique_ptr<FtpTestServer> FtpTestServer::Start(FtpServerKind kind, const std::string& root,
                                                    std::string& error, bool ipv6, const FtpTlsOptions& tls) {
  const std::string name = FtpServerName(kind);
  if (geteuid() != 0) {
    error = name + " needs root to run (it switches users and chroots)";
    return nullptr;
  }
  const bool useTls = tls.mode != FtpTlsMode::None;
  if (!FtpServerSupportsTls(kind, tls.mode)) {
    error = name + " as Debian ships it cannot serve " + FtpTlsModeName(tls.mode) + " TLS";
    return nullptr;
  }
  const TestCertificates* certs = useTls ? SharedTestCertificates(error) : nullptr;
  if (useTls && !certs) return nullptr;
  const std::string certFile = certs ? certs->CertFile(tls.cert) : "";
  const std::string keyFile = certs ? certs->KeyFile(tls.cert) : "";
  if (!EnsureUnpacked(error) || !EnsureAccount(error)) return nullptr;
  std::unique_ptr<FtpTestServer> server(new FtpTestServer);
  server->m_kind = kind;
  server->m_tls = tls;
  server->m_host = ipv6 ? "::1" : "127.0.0.1";
  server->m_workDir = MakeScratchDir("ftpzn-" + name);
  if (server->m_workDir.empty()) {
    error = "cannot create a work directory for " + name;
    return nullptr;
  }
  server->m_port = FreePort(server->m_host);
  if (server->m_port == 0) {
    error = "no free port on " + server->m_host;
    return nullptr;
  }
  GiveToTestAccount(root);
  chmod(root.c_str(), 0755);
  const std::string work = server->m_workDir;
  const std::string port = std::to_string(server->m_port);
  const std::string uid = std::to_string(Uid()), gid = std::to_string(Gid());
  const std::string hash = Sha512Hash(kPassword);
  std::vector<std::string> argv;
  std::ostringstream conf;

  switch (kind) {
    case FtpServerKind::Vsftpd: {
      // Sessions chroot into this; it must belong to root and not be writable.
      mkdir((work + "/empty").c_str(), 0555);
      conf << (ipv6 ? "listen=NO\nlisten_ipv6=YES\nlisten_address6=::1\n"
                    : "listen=YES\nlisten_ipv6=NO\nlisten_address=127.0.0.1\npasv_address=127.0.0.1\n")
           << "listen_port=" << port << "\n"
           << "background=NO\n"
              // Without this, LIST and uploads die with SIGSYS and the
              // client only sees the connection drop.
              "seccomp_sandbox=NO\n"
              "isolate=NO\nisolate_network=NO\n"
              "anonymous_enable=NO\nlocal_enable=YES\nwrite_enable=YES\nlocal_umask=022\n"
              "chroot_local_user=YES\nallow_writeable_chroot=YES\n"
           << "local_root=" << root << "\n"
           << "secure_chroot_dir=" << work << "/empty\n"
           << "pasv_enable=YES\npasv_min_port=20000\npasv_max_port=20999\n"
              "port_enable=YES\nconnect_from_port_20=NO\n"
              "utf8_filesystem=YES\n"
              "xferlog_enable=NO\ndual_log_enable=NO\n"
           << "vsftpd_log_file=" << work << "/vsftpd.log\n"
           << "max_clients=0\nmax_per_ip=0\n";
      if (useTls) {
        // ssl_tlsv1 is TLS 1.0 only; this build has no switches for 1.1 to
        // 1.3, which stay on. The default cipher list (DES-CBC3-SHA) leaves
        // TLS 1.2 handshakes without a cipher under OpenSSL 3 (TLS 1.3's
        // suites are not set by it). The strict_ssl_* options stay at their
        // default NO: a data connection may end with a bare TCP close.
        conf << "ssl_enable=YES\nallow_anon_ssl=NO\n"
                "force_local_logins_ssl=YES\nforce_local_data_ssl=YES\nrequire_ssl_reuse=YES\n"
                "ssl_sslv2=NO\nssl_sslv3=NO\nssl_tlsv1=NO\nssl_ciphers=HIGH\n"
             << "rsa_cert_file=" << certFile << "\n"
             << "rsa_private_key_file=" << keyFile << "\n"
             << "implicit_ssl=" << (tls.mode == FtpTlsMode::Implicit ? "YES" : "NO") << "\n";
      }
      if (!WriteFile(work + "/vsftpd.conf", conf.str(), 0600)) break;
      argv = {Binary("usr/sbin/vsftpd"), work + "/vsftpd.conf"};
      break;
    }
    case FtpServerKind::PureFtpd: {
      // pure-pw would hash with argon2 (3.5 s a login): write the line with
      // a SHA-512 crypt hash and only let it build the database.
      std::string line =
          std::string(kUser) + ":" + hash + ":" + uid + ":" + gid + "::" + root + "/./::::::::::::\n";
      if (!WriteFile(work + "/pureftpd.passwd", line, 0600)) break;
      std::string mkdb = Binary("usr/bin/pure-pw") + " mkdb " + work + "/pureftpd.pdb -f " + work +
                         "/pureftpd.passwd >" + work + "/mkdb.log 2>&1";
      if (RunShell(mkdb) != 0) {
        error = "pure-pw mkdb failed: " + ReadTail(work + "/mkdb.log");
        return nullptr;
      }
      argv = {Binary("usr/sbin/pure-ftpd"), "-S", server->m_host + "," + port, "-l",
              "puredb:" + work + "/pureftpd.pdb",
              "-E",  // no anonymous logins
              "-A",  // chroot everyone
              "-H",  // no reverse lookups
              "-p", "21000:21999",
              // Lists are cut silently at a few thousand names otherwise.
              "-L", "2000000:16", "-f", "none"};
      if (useTls) {
        // 3 rather than 2: clear data connections are refused too, as with
        // vsftpd's force_local_data_ssl, so a client that forgets PROT P
        // fails on both.
        argv.insert(argv.end(), {"-Y", "3", "-2", certFile + "," + keyFile});
      }
      break;
    }
    case FtpServerKind::Proftpd: {
      std::string passwdLine =
          std::string(kUser) + ":" + hash + ":" + uid + ":" + gid + "::" + root + ":/bin/sh\n";
      std::string groupLine = std::string(kUser) + ":x:" + gid + ":\n";
      if (!WriteFile(work + "/passwd", passwdLine, 0600) || !WriteFile(work + "/group", groupLine, 0600))
        break;
      conf << "ServerType standalone\nDefaultServer on\nServerName \"ftpzn test\"\n"
           << "Port " << port << "\n"
           << (ipv6 ? "UseIPv6 on\nDefaultAddress ::1\n"
                    : "UseIPv6 off\nDefaultAddress 127.0.0.1\nMasqueradeAddress 127.0.0.1\n")
           << "SocketBindTight on\n"
           << "User " << kUser << "\nGroup " << kUser << "\n"
           << "PidFile " << work << "/proftpd.pid\n"
           << "ScoreboardFile " << work << "/proftpd.scoreboard\n"
           << "SystemLog " << work << "/proftpd.log\n"
           << "TransferLog NONE\nWtmpLog off\nUseReverseDNS off\n"
              // It pads USER/PASS replies to hide timing otherwise.
              "DelayEngine off\n"
              "ControlsEngine off\n"
              "PassivePorts 22000 22999\n"
           << "AuthUserFile " << work << "/passwd\n"
           << "AuthGroupFile " << work << "/group\n"
           << "AuthOrder mod_auth_file.c\nAuthPAM off\nRequireValidShell off\nUseFtpUsers off\n"
              "DefaultRoot ~\nUmask 022\nAllowOverwrite on\nMaxInstances 100\n";
      if (!WriteFile(work + "/proftpd.conf", conf.str(), 0644)) break;
      argv = {Binary("usr/sbin/proftpd"), "-n", "-q", "-c", work + "/proftpd.conf"};
      break;
    }
  }
  if (argv.empty()) {
    error = "cannot write the configuration of " + name + " into " + work;
    return nullptr;
  }

  const std::string log = work + "/stdout.log";
  pid_t pid = fork();
  if (pid < 0) {
    error = std::string("fork: ") + strerror(errno);
    return nullptr;
  }
  if (pid == 0) {
    setpgid(0, 0);
    int in = open("/dev/null", O_RDONLY);
    int out = open(log.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    if (in >= 0) dup2(in, 0);
    if (out >= 0) {
      dup2(out, 1);
      dup2(out, 2);
    }
    std::vector<char*> args;
    for (auto& a : argv) args.push_back(a.data());
    args.push_back(nullptr);
    execv(args[0], args.data());
    _exit(127);
  }
  setpgid(pid, pid);
  server->m_pid = pid;

  // Bounded wait for the greeting.
  std::string seen;
  auto until = Clock::now() + std::chrono::seconds(10);
  while (Clock::now() < until) {
    int status = 0;
    if (waitpid(pid, &status, WNOHANG) == pid) {
      server->m_pid = -1;
      error = name + " exited (status " + std::to_string(WIFEXITED(status) ? WEXITSTATUS(status) : -1) +
              ") before greeting: " + ReadTail(log) + ReadTail(work + "/proftpd.log") +
              ReadTail(work + "/vsftpd.log");
      return nullptr;
    }
    if (Greets(server->m_host, server->m_port, tls.mode, seen)) {
      return server;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  error = name + " did not greet with 220" +
          (useTls ? std::string(" through ") + FtpTlsModeName(tls.mode) + " TLS" : "") + " within 10 s on " +
          server->m_host + " port " + port + " (saw \"" + seen + "\"): " + ReadTail(log) +
          (useTls && kind == FtpServerKind::Vsftpd ? ReadTail(work + "/vsftpd.log") : "");
  return nullptr;
}

void FtpTestServer::Stop() {
  if (m_pid > 0) {
    kill(-m_pid, SIGTERM);
    bool reaped = false;
    for (int i = 0; i < 60 && !reaped; ++i) {
      reaped = waitpid(m_pid, nullptr, WNOHANG) == m_pid;
      if (!reaped) std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    // Session processes of the group may outlive the listener.
    kill(-m_pid, SIGKILL);
    if (!reaped) waitpid(m_pid, nullptr, 0);
    m_pid = -1;
  }
  if (!m_workDir.empty()) {
    RemoveTree(m_workDir);
    m_workDir.clear();
  }
}

FtpTestServer::~FtpTestServer() { Stop(); }

SharedFtpServer& SharedServer(FtpServerKind kind, const std::string& prefix,
                              const std::function<void(const std::string& root)>& populate,
                              const FtpTlsOptions& tls) {
  // Stops every shared server and removes its root at exit.
  struct Registry {
    std::map<std::tuple<FtpServerKind, FtpTlsMode, TestCertKind>, SharedFtpServer> servers;
    ~Registry() {
      for (auto& [k, s] : servers) {
        if (s.server) s.server->Stop();
        if (!s.root.empty()) RemoveTree(s.root);
      }
    }
  };
  static Registry registry;
  // The certificate makes no difference without TLS.
  auto key = std::make_tuple(kind, tls.mode, tls.mode == FtpTlsMode::None ? TestCertKind::Trusted : tls.cert);
  auto it = registry.servers.find(key);
  if (it != registry.servers.end()) return it->second;
  SharedFtpServer& s = registry.servers[key];
  s.root = MakeScratchDir(prefix + FtpServerName(kind));
  if (populate) populate(s.root);
  s.server = FtpTestServer::Start(kind, s.root, s.error, false, tls);
  if (!s.server && s.error.empty()) s.error = "no reason given";
  return s;
}

}  // namespace ftpzn::testing
