// The local file of a transfer: a file object opened, read or written and
// closed, with the first platform's exclusive opening and its file
// exceptions. Reads and writes go through a buffer of their own, so a
// transfer in 4096-byte blocks costs one system call per many blocks;
// whatever was written is handed to the system when the file is closed,
// also after a failure. Window-free.
#pragma once

#include <sys/types.h>
#include <wx/string.h>

#include <cstdint>
#include <memory>

namespace ftpzn {

// A failed read, write or close: the cause code of the first platform
// (from errno: ENOENT 2, ENOTDIR 3, EMFILE 4, EACCES/EROFS 5, EIO 10, a
// sharing violation 11, ENOSPC 13, anything else 1) and the file's path.
struct CFileException {
  enum Cause : int {
    generic = 1,
    fileNotFound = 2,
    badPath = 3,
    tooManyOpenFiles = 4,
    accessDenied = 5,
    hardIO = 10,
    sharingViolation = 11,
    diskFull = 13,
  };
  static int CauseFromErrno(int error);

  int m_cause = generic;
  wxString m_strFileName;
};

class LocalFile {
 public:
  enum OpenFlags : uint32_t { modeRead = 0x0000, modeWrite = 0x0001, modeCreate = 0x1000 };

  LocalFile() = default;
  ~LocalFile();
  LocalFile(const LocalFile&) = delete;
  LocalFile& operator=(const LocalFile&) = delete;

  // Opens for reading, or for writing (modeCreate: created if missing, its
  // old content replaced by what is written: it is emptied when the first
  // bytes go out or at Close, so a transfer that fails before sending
  // anything leaves an existing file as it was). False on failure, with
  // `error` filled when given. Opening is exclusive: while a file is open
  // for writing, any other open of it in this process fails as a sharing
  // violation, so two transfers never write one file.
  bool Open(const wxString& path, uint32_t flags, CFileException* error = nullptr);
  bool IsOpen() const { return m_state != nullptr; }
  // Up to `count` bytes; 0 at the end. Throws CFileException.
  uint32_t Read(void* buffer, uint32_t count);
  // Throws CFileException; the failure may also surface at Close.
  void Write(const void* buffer, uint32_t count);
  // The same without a copy of the block on the way: Read's bytes where
  // the file already holds them (valid until the next call), and room in
  // the file's own buffer for the next `count` bytes, of which Commit
  // writes the first `n`. Each throws CFileException.
  const char* ReadInPlace(uint32_t count, uint32_t& n);
  char* WriteRoom(uint32_t count);
  void Commit(uint32_t n);
  uint64_t GetLength() const;
  // Hands what is buffered to the system and closes; throws
  // CFileException when that fails (the file is closed all the same).
  void Close();
  // Closes without reporting: what is buffered is still written, as far as
  // the system takes it.
  void Abort() noexcept;

 private:
  // Everything an open file needs, made at Open: a queued transfer's file
  // costs one pointer.
  struct State {
    int fd = -1;
    bool writing = false;
    bool truncatePending = false;
    dev_t device = 0;
    ino_t inode = 0;
    wxString path;
    std::unique_ptr<char[]> buffer;
    size_t begin = 0;  // reading: unread bytes are [begin, end)
    size_t end = 0;    // writing: bytes to write are [0, end)
  };
  [[noreturn]] void Fail(int error) const;
  // Writes the buffer out; the errno of a failure, else 0.
  int Drain();
  // Closes and forgets the file; the errno of a failed close, else 0.
  int CloseDescriptor();

  std::unique_ptr<State> m_state;
};

}  // namespace ftpzn
