// The internet client service: an FTP engine with the classes and codes of
// the platform service the module was written against (CInternetSession,
// CFtpConnection, CFtpFileFind, CInternetFile, CInternetException).
// Window-free: POSIX sockets and the standard library only.
//
// Strings: every text of this API is a std::wstring (wxString converts from
// it directly). Names on the wire are bytes, UTF-8 where the server agrees;
// a byte that is not valid UTF-8 is kept as the code point U+DC80 plus the
// byte and sent back as that byte, so every name round-trips exactly.
//
// Threads: calls block, with the session's time-outs. A session and its
// connections belong to the thread that uses them; the last error and the
// last response text are per thread.
//
// Errors: calls that return bool set the thread's last error (GetLastError)
// and return false; GetFtpConnection, OpenFile, Read, Write and Flush throw
// CInternetException. Codes: 12002 time-out, 12007 name not resolved,
// 12029 cannot connect, 12030 connection closed (also a 421 reply), 12031
// reset, 12013/12014/12015 login refused (user, password, other), 12017
// cancelled (connection closed), 12003 the server refused a command (its
// reply is the last response text), 12110 another operation is under way
// on the connection, 12111 the connection was lost earlier, 18 an
// enumeration with nothing (more) to find.
#pragma once

#include <cstdint>
#include <exception>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "inet/listing.h"
#include "inet/tls.h"

namespace ftpzn::inet {

class FtpControl;
class SessionObserver;

// Option numbers for SetOption / QueryOption.
constexpr uint32_t INTERNET_OPTION_CONNECT_TIMEOUT = 2;
constexpr uint32_t INTERNET_OPTION_CONNECT_RETRIES = 3;  // accepted, no effect
constexpr uint32_t INTERNET_OPTION_SEND_TIMEOUT = 5;
constexpr uint32_t INTERNET_OPTION_RECEIVE_TIMEOUT = 6;
constexpr uint32_t INTERNET_OPTION_DATA_SEND_TIMEOUT = 7;
constexpr uint32_t INTERNET_OPTION_DATA_RECEIVE_TIMEOUT = 8;

constexpr uint32_t INTERNET_OPEN_TYPE_PRECONFIG = 0;
constexpr uint16_t INTERNET_DEFAULT_FTP_PORT = 21;
constexpr uint32_t INTERNET_FLAG_RELOAD = 0x80000000;  // accepted, no effect: nothing is cached
constexpr uint32_t FTP_TRANSFER_TYPE_ASCII = 1;
constexpr uint32_t FTP_TRANSFER_TYPE_BINARY = 2;
constexpr uint32_t GENERIC_READ = 0x80000000;
constexpr uint32_t GENERIC_WRITE = 0x40000000;

// File attributes for CFtpFileFind::MatchesMask.
constexpr uint32_t FILE_ATTRIBUTE_DIRECTORY = 0x10;
constexpr uint32_t FILE_ATTRIBUTE_NORMAL = 0x80;
constexpr uint32_t FILE_ATTRIBUTE_REPARSE_POINT = 0x400;  // symbolic links

// Codes of OnStatusCallback.
constexpr uint32_t INTERNET_STATUS_RESOLVING_NAME = 10;
constexpr uint32_t INTERNET_STATUS_NAME_RESOLVED = 11;
constexpr uint32_t INTERNET_STATUS_CONNECTING_TO_SERVER = 20;
constexpr uint32_t INTERNET_STATUS_CONNECTED_TO_SERVER = 21;
constexpr uint32_t INTERNET_STATUS_SENDING_REQUEST = 30;
constexpr uint32_t INTERNET_STATUS_REQUEST_SENT = 31;
constexpr uint32_t INTERNET_STATUS_RECEIVING_RESPONSE = 40;
constexpr uint32_t INTERNET_STATUS_RESPONSE_RECEIVED = 41;
constexpr uint32_t INTERNET_STATUS_CLOSING_CONNECTION = 50;
constexpr uint32_t INTERNET_STATUS_CONNECTION_CLOSED = 51;
constexpr uint32_t INTERNET_STATUS_HANDLE_CREATED = 60;
constexpr uint32_t INTERNET_STATUS_HANDLE_CLOSING = 70;

// Service types of ParseURL.
constexpr uint32_t AFX_INET_SERVICE_FTP = 1;
constexpr uint32_t AFX_INET_SERVICE_HTTP = 3;
constexpr uint32_t AFX_INET_SERVICE_UNK = 0x1000;
constexpr uint32_t AFX_INET_SERVICE_FILE = 0x1001;
constexpr uint32_t AFX_INET_SERVICE_HTTPS = 0x1007;
// FTP over TLS, which the platform's parser did not know: "ftpes://"
// (explicit, AUTH TLS on port 21) and "ftps://" (implicit, port 990).
constexpr uint32_t INET_SERVICE_FTPES = 0x2001;
constexpr uint32_t INET_SERVICE_FTPS = 0x2002;
// The TLS mode a service type of ParseURL asks for (None for plain FTP).
TlsMode TlsModeForService(uint32_t serviceType);

// Says goodbye to every connection kept by pooling sessions (see
// CInternetSession::EnableConnectionPool): for a disconnect, a change of
// site and the end of the module.
void EmptyConnectionPool();
// How many connections the pool holds, for tests.
size_t PooledConnectionCount();

// The calling thread's last error of this engine (0 after a success that
// sets it).
uint32_t GetLastError();
void SetLastError(uint32_t code);
// The calling thread's last server reply, all its lines joined by CRLF; for
// a failure without a reply (resolve, connect, time-out) a one-line
// description such as "connect to 127.0.0.1 port 2121: Connection refused".
std::wstring InternetGetLastResponseInfo();

// "scheme://[user[:password]@]server[:port][/object]". Service types FTP,
// HTTP, HTTPS, FILE, else unknown; a text without "://" does not parse. The
// port is the scheme's default when absent; the object is "/" when absent.
// Nothing is percent-decoded (see DecodeUrlComponent).
bool ParseURL(const std::wstring& url, uint32_t& serviceType, std::wstring& server, std::wstring& object,
              uint16_t& port);
bool ParseURLEx(const std::wstring& url, uint32_t& serviceType, std::wstring& server, std::wstring& object,
                uint16_t& port, std::wstring& user, std::wstring& password);
// "%XX" sequences to their bytes, read as wire text (see above).
std::wstring DecodeUrlComponent(const std::wstring& text);

class CInternetException : public std::exception {
 public:
  explicit CInternetException(uint32_t error, uintptr_t context = 1);
  // The text of the code from the engine's error-text table; false (and
  // an empty text) for a code the table lacks.
  bool GetErrorMessage(std::wstring& text) const;
  const char* what() const noexcept override { return m_what.c_str(); }

  uint32_t m_dwError;
  uintptr_t m_dwContext;

 private:
  std::string m_what;
};

class CFtpConnection;

class CInternetSession {
 public:
  // The agent, access type, proxy and flags are accepted and have no effect.
  explicit CInternetSession(const wchar_t* agent = nullptr, uintptr_t context = 1,
                            uint32_t accessType = INTERNET_OPEN_TYPE_PRECONFIG,
                            const wchar_t* proxyName = nullptr, const wchar_t* proxyBypass = nullptr,
                            uint32_t flags = 0);
  virtual ~CInternetSession();
  CInternetSession(const CInternetSession&) = delete;
  CInternetSession& operator=(const CInternetSession&) = delete;

  // Time-outs in milliseconds (0: none). Defaults: 30 s connect, 60 s send
  // and receive. They apply to connections made afterwards and to open ones.
  bool SetOption(uint32_t option, uint32_t value);
  bool QueryOption(uint32_t option, uint32_t& value) const;
  bool EnableStatusCallback(bool enable = true);
  // Called on the calling thread for each status change. For 10 (resolving)
  // `info` is the server name and for 11 (resolved) its address, each a
  // NUL-terminated wchar_t string (`infoLength` in bytes, terminator
  // included); for other codes it is null.
  virtual void OnStatusCallback(uintptr_t context, uint32_t status, const void* info, uint32_t infoLength);
  // The dialogue with the server, one line at a time, the password of PASS
  // replaced by "****"; for diagnosis. Called whether or not the status
  // callback is enabled.
  virtual void OnProtocolTrace(bool sent, const std::string& line);

  // Connects and logs in. An empty user logs in as "anonymous". Throws.
  // With TLS a certificate that the system does not trust fails with
  // 12045, 12037 or 12038 unless TrustCertificate named it or
  // OnUntrustedCertificate accepts it.
  std::unique_ptr<CFtpConnection> GetFtpConnection(const std::wstring& server, const std::wstring& user = {},
                                                   const std::wstring& password = {},
                                                   uint16_t port = INTERNET_DEFAULT_FTP_PORT,
                                                   bool passive = false, TlsMode tls = TlsMode::None);
  // Closed connections of this session are kept logged in for a while
  // and handed to the next GetFtpConnection (of any session that pools) to
  // the same server with the same login, mode and TLS mode; that one
  // behaves from then on as a new one would. Off by default.
  void EnableConnectionPool(bool enable = true) { m_pooling = enable; }
  // A certificate (its SHA-256 fingerprint, as TlsPeerInfo writes it) that
  // this session's connections accept without asking.
  void TrustCertificate(const std::string& fingerprint);
  // Asked on the connecting thread when a server's certificate is not
  // trusted by the system; true accepts it for this session. The default
  // refuses.
  virtual bool OnUntrustedCertificate(const std::wstring& server, uint16_t port, const TlsPeerInfo& peer);
  // Closes every connection made by this session (their later calls fail
  // with 12017).
  void Close();
  uintptr_t GetContext() const { return m_context; }

 private:
  friend class CFtpConnection;
  friend class CInternetFile;
  friend class CFtpFileFind;
  friend class SessionObserver;
  // With the context of the handle the notice belongs to: a find's or a
  // file's own, else the session's.
  void Report(uint32_t status, const std::string& info);
  void Report(uint32_t status, const std::string& info, uintptr_t context);
  bool AcceptCertificate(const std::wstring& server, uint16_t port, const TlsPeerInfo& peer);
  // Trusted by the system, or accepted by this session already.
  bool Trusts(const TlsPeerInfo& peer) const;

  uintptr_t m_context;
  std::set<std::string> m_trustedCertificates;
  bool m_pooling = false;
  bool m_statusCallback = false;
  uint32_t m_connectMs = 30000;
  uint32_t m_sendMs = 60000;
  uint32_t m_receiveMs = 60000;
  std::set<CFtpConnection*> m_connections;
};

class CInternetFile;
class CFtpFileFind;

class CFtpConnection {
 public:
  ~CFtpConnection();
  CFtpConnection(const CFtpConnection&) = delete;
  CFtpConnection& operator=(const CFtpConnection&) = delete;

  bool SetCurrentDirectory(const std::wstring& directory);
  bool GetCurrentDirectory(std::wstring& directory);
  bool CreateDirectory(const std::wstring& directory);
  bool RemoveDirectory(const std::wstring& directory);
  bool Remove(const std::wstring& file);
  bool Rename(const std::wstring& from, const std::wstring& to);
  // Opens `name` for reading (GENERIC_READ) or writing (GENERIC_WRITE) with
  // FTP_TRANSFER_TYPE_BINARY or _ASCII. Never null: throws instead. The
  // connection is busy (12110) until the file is closed.
  std::unique_ptr<CInternetFile> OpenFile(const std::wstring& name, uint32_t access = GENERIC_READ,
                                          uint32_t flags = FTP_TRANSFER_TYPE_BINARY, uintptr_t context = 1);
  // Says goodbye and closes; later calls fail with 12017.
  void Close();
  const std::wstring& GetServerName() const { return m_server; }
  // True when listings use MLSD (the server offers it), else LIST.
  bool UsesMlsd() const;
  TlsMode GetTlsMode() const;
  // The TLS details of the control connection; null without TLS.
  const TlsPeerInfo* GetTlsInfo() const;

 private:
  friend class CInternetSession;
  friend class CInternetFile;
  friend class CFtpFileFind;
  friend class SessionObserver;
  CFtpConnection(CInternetSession& session, std::wstring server, uint16_t port);
  // Runs one command that must succeed, for the bool-returning calls.
  template <typename Fn>
  bool Run(Fn&& fn, bool absoluteDirectory = false);
  // Runs `fn` on the control connection. A connection from the pool that
  // stands elsewhere than a new one would is first replaced (unless `fn`
  // is a CWD to an absolute path), and one whose server turns out to be
  // gone before it answered anything is replaced and `fn` run again.
  template <typename Fn>
  auto Use(Fn&& fn, bool absoluteDirectory = false);
  // A new connection in place of the current one, in the directory the
  // old one was known to stand in when `keepDirectory`.
  void Reopen(bool keepDirectory);
  FtpControl* Ready();  // throws NetError when closed, dropped or busy

  CInternetSession* m_session;
  std::wstring m_server;
  uint16_t m_port;
  std::unique_ptr<SessionObserver> m_observer;
  std::unique_ptr<FtpControl> m_control;
  // With a pooling session: the login, to hand the connection on or make
  // it again; whether it came from the pool and has not answered since;
  // whether it must leave the directory it was left in.
  bool m_pooled = false;
  std::unique_ptr<struct PoolKey> m_key;
  bool m_fromPool = false;
  bool m_awayFromLogin = false;
  bool m_busy = false;  // a find or a file is under way
  CInternetFile* m_openFile = nullptr;
};

class Stream;

// A file being read from or written to the server. Reads and writes go
// through a buffer of its own, so small blocks cost no system call each.
class CInternetFile {
 public:
  ~CInternetFile();
  CInternetFile(const CInternetFile&) = delete;
  CInternetFile& operator=(const CInternetFile&) = delete;

  // `count` bytes, fewer only at the end of the file (0 there). Throws.
  uint32_t Read(void* buffer, uint32_t count);
  void Write(const void* buffer, uint32_t count);  // throws
  void Flush();                                    // throws
  // Ends the transfer and frees the connection. Reports nothing by
  // exception: the thread's last error is 0 when the server confirmed the
  // transfer, else its code (an upload's result is known only here, and a
  // download's when its last Read returned bytes before the failure).
  void Close();

 private:
  friend class CFtpConnection;
  CInternetFile(CFtpConnection& connection, std::unique_ptr<Stream> data, bool writing, uintptr_t context);
  [[noreturn]] void Fail(uint32_t code);
  uint32_t ReadSome(void* buffer, uint32_t count);
  void Send(const char* data, size_t size);

  CFtpConnection* m_connection;
  std::unique_ptr<Stream> m_data;
  bool m_writing;
  bool m_atEnd = false;
  uintptr_t m_context;
  std::vector<char> m_buffer;
  size_t m_begin = 0;           // reading: unread bytes are [m_begin, m_end)
  size_t m_end = 0;             // writing: bytes to send are [0, m_end)
  uint32_t m_pendingError = 0;  // a failure held back behind bytes already returned
};

// What one listing may hold, so that no server can make the client hold
// more: ten million entries of usual length fit well inside. A listing
// that goes beyond fails with 12030 and says which bound it met.
struct ListingLimits {
  size_t lineBytes = 64 * 1024;
  uint64_t totalBytes = uint64_t{4} << 30;
  size_t entries = 20'000'000;
};

// Lists the connection's current directory. The connection must outlive
// the finder, as with the platform's classes.: MLSD where the server offers
// it, else LIST. "." and ".." are never returned. The connection is busy
// (12110) until the find is closed or its last entry has been reached.
class CFtpFileFind {
 public:
  explicit CFtpFileFind(CFtpConnection* connection, uintptr_t context = 1);
  ~CFtpFileFind();
  CFtpFileFind(const CFtpFileFind&) = delete;
  CFtpFileFind& operator=(const CFtpFileFind&) = delete;

  // `pattern`: null, "*" or "*.*" for everything, else a wildcard
  // (* and ?) matched against the names. False with last error 18 when
  // nothing is found. As with the platform's finder, FindNextFile must be
  // called before the first entry is read; it returns false when the entry
  // it moved to is the last one.
  bool FindFile(const wchar_t* pattern = nullptr, uint32_t flags = INTERNET_FLAG_RELOAD);
  // Tests lower the bounds to reach them quickly; no thread may be listing.
  static void SetLimitsForTesting(const ListingLimits& limits);
  bool FindNextFile();
  std::wstring GetFileName() const;
  uint64_t GetLength() const;
  // File time (100 ns units since 1601, UTC); false when the server gave
  // no time.
  bool GetLastWriteTime(uint64_t& fileTime) const;
  bool IsDirectory() const;
  bool IsDots() const;  // always false: dots are never returned
  bool MatchesMask(uint32_t mask) const;
  // The current entry as parsed (name in wire bytes), for tools. Either
  // describes the current entry until the next FindNextFile or FindFile (not
  // the entry it was taken at); the view costs no copy.
  const FtpListEntry& GetEntry() const;
  // How many entries the last FindFile found, so that a caller can make
  // room for all of them at once.
  size_t GetCount() const { return m_count; }
  const FtpListEntryView& GetEntryView() const;
  void Close();

 private:
  // The entries are kept as a stream of variable-length records in large
  // blocks (numbers as 7-bit groups, each time as the difference to the one
  // before, then the name and the link target): a listing of 100,000 names
  // held as FtpListEntry objects cost an allocation and a hundred bytes
  // each, and its page faults alone were a tenth of the listing's time.
  // An enumeration only moves forward, so a record is decoded when
  // FindNextFile reaches it.
  struct Block {
    std::unique_ptr<char[]> bytes;
    size_t used = 0;
  };
  static constexpr size_t kBlockSize = 256 * 1024;
  static constexpr size_t kMaxSpareBlocks = 16;

  void Clear();
  void PrepareBlocksWhileIdle(int dataFd);
  void Append(const FtpListEntry& entry);
  void DecodeNext();
  const FtpListEntryView* Current() const;

  CFtpConnection* m_connection;
  uintptr_t m_context;
  std::vector<Block> m_blocks;
  std::vector<std::unique_ptr<char[]>> m_spareBlocks;  // made ready for Append
  size_t m_capacity = 0;     // of the last block
  int64_t m_appendTime = 0;  // the last time written, for the next difference
  size_t m_count = 0;
  size_t m_next = 0;  // index of the entry FindNextFile moves to
  size_t m_readBlock = 0;
  size_t m_readOffset = 0;
  int64_t m_readTime = 0;
  FtpListEntryView m_current;
  bool m_open = false;
  // The current entry with its own strings, for GetEntry, filled on demand.
  mutable FtpListEntry m_unpacked;
  mutable size_t m_unpackedIndex = 0;  // m_next when it was filled; 0: never
};

}  // namespace ftpzn::inet
