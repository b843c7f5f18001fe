#include "transfer/localfile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <mutex>
#include <set>
#include <utility>

#include "panes/localfs.h"

namespace ftpzn {
namespace {

// Large enough that writing costs one system call per 64 blocks of a
// transfer, as the command-line client's downloads do; reads ahead in the
// pieces its uploads found fastest.
constexpr size_t kWriteBuffer = 256 * 1024;
constexpr size_t kReadBuffer = 64 * 1024;

// The files open for writing, by device and inode, so that a second path
// to the same file (a link, "a/../b") is the same file.
std::mutex g_writersMutex;
std::set<std::pair<dev_t, ino_t>> g_writers;

bool IsBeingWritten(dev_t device, ino_t inode) { return g_writers.count({device, inode}) != 0; }

}  // namespace

int CFileException::CauseFromErrno(int error) {
  switch (error) {
    case ENOENT:
      return fileNotFound;
    case ENOTDIR:
      return badPath;
    case EMFILE:
    case ENFILE:
      return tooManyOpenFiles;
    case EACCES:
    case EPERM:
    case EROFS:
    case EISDIR:
      return accessDenied;
    case EIO:
      return hardIO;
    case EBUSY:
      return sharingViolation;
    case ENOSPC:
    case EDQUOT:
      return diskFull;
    default:
      return generic;
  }
}

LocalFile::~LocalFile() { Abort(); }

bool LocalFile::Open(const wxString& path, uint32_t flags, CFileException* error) {
  Abort();
  const bool writing = (flags & modeWrite) != 0;
  const std::string bytes = LocalPathToBytes(path);
  auto fail = [&](int code) {
    if (m_fd >= 0) close(m_fd);
    m_fd = -1;
    if (error) *error = CFileException{CFileException::CauseFromErrno(code), path};
    return false;
  };
  // Not truncated yet: the file may be another transfer's, found below.
  const int mode = writing ? O_WRONLY | ((flags & modeCreate) ? O_CREAT : 0) : O_RDONLY;
  m_fd = open(bytes.c_str(), mode | O_CLOEXEC, 0666);
  if (m_fd < 0) return fail(errno);
  struct stat st {};
  if (fstat(m_fd, &st) != 0) return fail(errno);
  if (S_ISDIR(st.st_mode)) return fail(EISDIR);
  {
    std::lock_guard lock(g_writersMutex);
    if (IsBeingWritten(st.st_dev, st.st_ino)) return fail(EBUSY);
    if (writing) g_writers.insert({st.st_dev, st.st_ino});
  }
  m_writing = writing;
  m_identity = {st.st_dev, st.st_ino};
  m_truncatePending = writing && (flags & modeCreate) && S_ISREG(st.st_mode) && st.st_size > 0;
  m_path = path;
  m_buffer.reset(new char[writing ? kWriteBuffer : kReadBuffer]);
  m_begin = m_end = 0;
  return true;
}

void LocalFile::Fail(int error) const { throw CFileException{CFileException::CauseFromErrno(error), m_path}; }

uint32_t LocalFile::Read(void* buffer, uint32_t count) {
  if (m_fd < 0 || m_writing) Fail(EBADF);
  auto* out = static_cast<char*>(buffer);
  // Short only at the end of the file, as a file read always was: a
  // transfer takes a short block for the last one.
  uint32_t done = 0;
  while (done < count) {
    if (m_begin == m_end) {
      const ssize_t n = read(m_fd, m_buffer.get(), kReadBuffer);
      if (n < 0 && errno == EINTR) continue;
      if (n < 0) Fail(errno);
      if (n == 0) break;
      m_begin = 0;
      m_end = static_cast<size_t>(n);
    }
    const size_t n = std::min<size_t>(count - done, m_end - m_begin);
    std::memcpy(out + done, m_buffer.get() + m_begin, n);
    m_begin += n;
    done += static_cast<uint32_t>(n);
  }
  return done;
}

void LocalFile::Write(const void* buffer, uint32_t count) {
  if (m_fd < 0 || !m_writing) Fail(EBADF);
  if (m_end + count > kWriteBuffer) {
    if (const int error = Drain()) Fail(error);
  }
  if (count > kWriteBuffer && m_truncatePending) {
    if (const int error = Drain()) Fail(error);
  }
  for (const char* in = static_cast<const char*>(buffer); count > kWriteBuffer;) {
    const ssize_t n = write(m_fd, in, count);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) Fail(n < 0 ? errno : ENOSPC);
    in += n;
    count -= static_cast<uint32_t>(n);
    buffer = in;
  }
  std::memcpy(m_buffer.get() + m_end, buffer, count);
  m_end += count;
}

int LocalFile::Drain() {
  if (m_truncatePending) {
    if (ftruncate(m_fd, 0) != 0) return errno;
    m_truncatePending = false;
  }
  size_t at = 0;
  while (at < m_end) {
    const ssize_t n = write(m_fd, m_buffer.get() + at, m_end - at);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      const int error = n < 0 ? errno : ENOSPC;
      m_end = 0;
      return error;
    }
    at += static_cast<size_t>(n);
  }
  m_end = 0;
  return 0;
}

uint64_t LocalFile::GetLength() const {
  struct stat st {};
  if (m_fd < 0 || fstat(m_fd, &st) != 0) return 0;
  return static_cast<uint64_t>(st.st_size) + (m_writing ? m_end : 0);
}

void LocalFile::Release() {
  if (m_writing) {
    std::lock_guard lock(g_writersMutex);
    g_writers.erase({m_identity.device, m_identity.inode});
  }
  m_writing = false;
}

void LocalFile::Close() {
  if (m_fd < 0) return;
  int error = m_writing ? Drain() : 0;
  CloseDescriptor(error);
}

void LocalFile::CloseDescriptor(int error) {
  if (close(m_fd) != 0 && error == 0 && errno != EINTR) error = errno;
  m_fd = -1;
  Release();
  m_buffer.reset();
  if (error) Fail(error);
}

void LocalFile::Abort() {
  if (m_fd < 0) return;
  // What was written stays; a file nothing was written to keeps what it
  // held before.
  if (m_writing && m_end > 0) Drain();
  try {
    CloseDescriptor(0);
  } catch (const CFileException&) {
    // Nothing is reported here; the failure that led to it was.
  }
}

}  // namespace ftpzn
