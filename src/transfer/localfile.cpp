#include "transfer/localfile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
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
  int fd = -1;
  auto fail = [&](int code) {
    if (fd >= 0) close(fd);
    if (error) *error = CFileException{CFileException::CauseFromErrno(code), path};
    return false;
  };
  // Not emptied yet: the file may be another transfer's, found below.
  const int mode = writing ? O_WRONLY | ((flags & modeCreate) ? O_CREAT : 0) : O_RDONLY;
  fd = open(bytes.c_str(), mode | O_CLOEXEC, 0666);
  if (fd < 0) return fail(errno);
  struct stat st {};
  if (fstat(fd, &st) != 0) return fail(errno);
  if (S_ISDIR(st.st_mode)) return fail(EISDIR);
  {
    std::lock_guard lock(g_writersMutex);
    if (g_writers.count({st.st_dev, st.st_ino})) return fail(EBUSY);
    if (writing) g_writers.insert({st.st_dev, st.st_ino});
  }
  m_state = std::make_unique<State>();
  State& f = *m_state;
  f.fd = fd;
  f.writing = writing;
  f.truncatePending = writing && (flags & modeCreate) && S_ISREG(st.st_mode) && st.st_size > 0;
  f.device = st.st_dev;
  f.inode = st.st_ino;
  f.path = path;
  f.buffer.reset(new char[writing ? kWriteBuffer : kReadBuffer]);
  return true;
}

void LocalFile::Fail(int error) const {
  throw CFileException{CFileException::CauseFromErrno(error), m_state ? m_state->path : wxString()};
}

const char* LocalFile::ReadInPlace(uint32_t count, uint32_t& n) {
  if (!m_state || m_state->writing) Fail(EBADF);
  State& f = *m_state;
  count = static_cast<uint32_t>(std::min<size_t>(count, kReadBuffer));
  // Short only at the end of the file, as a file read always was: a
  // transfer takes a short block for the last one.
  if (f.end - f.begin < count) {
    std::memmove(f.buffer.get(), f.buffer.get() + f.begin, f.end - f.begin);
    f.end -= f.begin;
    f.begin = 0;
    while (f.end < count) {
      const ssize_t got = read(f.fd, f.buffer.get() + f.end, kReadBuffer - f.end);
      if (got < 0 && errno == EINTR) continue;
      if (got < 0) Fail(errno);
      if (got == 0) break;
      f.end += static_cast<size_t>(got);
    }
  }
  n = static_cast<uint32_t>(std::min<size_t>(count, f.end - f.begin));
  const char* block = f.buffer.get() + f.begin;
  f.begin += n;
  return block;
}

uint32_t LocalFile::Read(void* buffer, uint32_t count) {
  auto* out = static_cast<char*>(buffer);
  uint32_t done = 0;
  while (done < count) {
    uint32_t n = 0;
    const char* block = ReadInPlace(count - done, n);
    if (n == 0) break;
    std::memcpy(out + done, block, n);
    done += n;
  }
  return done;
}

char* LocalFile::WriteRoom(uint32_t count) {
  if (!m_state || !m_state->writing || count > kWriteBuffer) Fail(EBADF);
  State& f = *m_state;
  if (f.end + count > kWriteBuffer) {
    if (const int error = Drain()) Fail(error);
  }
  return f.buffer.get() + f.end;
}

void LocalFile::Commit(uint32_t n) { m_state->end += n; }

void LocalFile::Write(const void* buffer, uint32_t count) {
  const char* in = static_cast<const char*>(buffer);
  while (count > 0) {
    const uint32_t piece = static_cast<uint32_t>(std::min<size_t>(count, kWriteBuffer));
    std::memcpy(WriteRoom(piece), in, piece);
    Commit(piece);
    in += piece;
    count -= piece;
  }
}

int LocalFile::Drain() {
  State& f = *m_state;
  if (f.truncatePending) {
    if (ftruncate(f.fd, 0) != 0) return errno;
    f.truncatePending = false;
  }
  size_t at = 0;
  while (at < f.end) {
    const ssize_t n = write(f.fd, f.buffer.get() + at, f.end - at);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      const int error = n < 0 ? errno : ENOSPC;
      f.end = 0;
      return error;
    }
    at += static_cast<size_t>(n);
  }
  f.end = 0;
  return 0;
}

uint64_t LocalFile::GetLength() const {
  struct stat st {};
  if (!m_state || fstat(m_state->fd, &st) != 0) return 0;
  return static_cast<uint64_t>(st.st_size) + (m_state->writing ? m_state->end : 0);
}

void LocalFile::Close() {
  if (!m_state) return;
  const wxString path = m_state->path;
  int error = m_state->writing ? Drain() : 0;
  if (const int closing = CloseDescriptor(); error == 0) error = closing;
  if (error) throw CFileException{CFileException::CauseFromErrno(error), path};
}

int LocalFile::CloseDescriptor() {
  const std::unique_ptr<State> f = std::move(m_state);
  const int error = close(f->fd) != 0 && errno != EINTR ? errno : 0;
  if (f->writing) {
    std::lock_guard lock(g_writersMutex);
    g_writers.erase({f->device, f->inode});
  }
  return error;
}

void LocalFile::Abort() noexcept {
  if (!m_state) return;
  // What was written stays; a file nothing was written to keeps what it
  // held before.
  if (m_state->writing && m_state->end > 0) Drain();
  CloseDescriptor();
}

}  // namespace ftpzn
