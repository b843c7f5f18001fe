// The archive format of the site file: little-endian integers and counted
// strings behind a 4096-byte buffer. The reader models the buffer exactly,
// because the end of the record list is found by asking whether the buffer
// still holds unread bytes, not by looking at the file's length.
#pragma once

#include <wx/string.h>

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

namespace ftpzn {

// Fewer bytes than a read asked for (the archive's end-of-file failure).
class ArchiveException : public std::runtime_error {
 public:
  explicit ArchiveException(const std::string& what) : std::runtime_error(what) {}
};

// A failing system call on the file behind an archive; `error` is errno.
class FileException : public std::runtime_error {
 public:
  FileException(const std::string& what, int error) : std::runtime_error(what), m_nError(error) {}
  int Error() const { return m_nError; }

 private:
  int m_nError;
};

// Where a loading archive gets its bytes. Read returns fewer than asked only
// at the end of the data, and throws FileException on an error.
class ByteSource {
 public:
  virtual ~ByteSource() = default;
  virtual size_t Read(void* buffer, size_t count) = 0;
};

// Where a storing archive puts its bytes; throws FileException on an error.
class ByteSink {
 public:
  virtual ~ByteSink() = default;
  virtual void Write(const void* data, size_t count) = 0;
};

class MemorySource : public ByteSource {
 public:
  explicit MemorySource(std::vector<uint8_t> bytes) : m_bytes(std::move(bytes)) {}
  size_t Read(void* buffer, size_t count) override;

 private:
  std::vector<uint8_t> m_bytes;
  size_t m_nPos = 0;
};

class MemorySink : public ByteSink {
 public:
  void Write(const void* data, size_t count) override;
  const std::vector<uint8_t>& Bytes() const { return m_bytes; }

 private:
  std::vector<uint8_t> m_bytes;
};

// A file opened for reading with open(2); closes itself. Reads retry on
// EINTR.
class PosixFile : public ByteSource {
 public:
  PosixFile() = default;
  ~PosixFile() override;
  PosixFile(const PosixFile&) = delete;
  PosixFile& operator=(const PosixFile&) = delete;

  // False with errno set when the file cannot be opened or is not a
  // regular file; never blocks.
  bool OpenForReading(const wxString& path);
  // Throws FileException when the close reports an error.
  void Close();

  size_t Read(void* buffer, size_t count) override;

 private:
  // Closes the descriptor and fails (errno set) unless it is a regular file.
  bool KeepRegularFile();

  int m_fd = -1;
};

// A new version of a file, made whole before it replaces the old one: the
// bytes go to a temporary file (mode 0600: the file holds passwords) in the
// target's directory, and Commit flushes it and renames it over the target.
// A symbolic link is written through: the file it finally names is
// replaced, the link stays. Without Commit the temporary file is removed.
class ReplacingFile : public ByteSink {
 public:
  ReplacingFile() = default;
  ~ReplacingFile() override;
  ReplacingFile(const ReplacingFile&) = delete;
  ReplacingFile& operator=(const ReplacingFile&) = delete;

  // False with errno set when the target exists but is no regular file, or
  // its directory takes no new file; never blocks.
  bool Open(const wxString& path);
  void Write(const void* data, size_t count) override;
  // False with errno set when the data could not be made durable or put in
  // the target's place; the target is then unchanged.
  bool Commit();

 private:
  void Discard();

  std::string m_target;
  std::string m_temporary;
  int m_fd = -1;
};

class Archive {
 public:
  enum Mode { load, store };
  static constexpr size_t kBufferSize = 4096;

  Archive(ByteSource& source);
  Archive(ByteSink& sink);

  bool IsLoading() const { return m_mode == load; }
  bool IsStoring() const { return m_mode == store; }

  // Loading. Each throws ArchiveException when the data ends too early.
  uint8_t ReadByte();
  uint16_t ReadWord();
  uint32_t ReadDword();
  uint64_t ReadQword();
  // Both string forms: wide (UTF-16LE after the marker) and narrow
  // (Windows-1252).
  wxString ReadString();
  // Reads `count` bytes the way the framework's block read does: the buffer
  // first, then whole buffer-sized blocks straight from the file, then a
  // refill of the buffer for the remainder.
  void ReadBytes(std::string& out, uint64_t count);
  // True when every byte the buffer was filled with has been consumed.
  bool IsBufferEmpty() const { return m_nCur == m_nMax; }
  // Bytes of the source consumed so far.
  uint64_t Position() const { return m_nSourceRead - (m_nMax - m_nCur); }

  // Storing. Always the wide string form.
  void WriteByte(uint8_t value);
  void WriteWord(uint16_t value);
  void WriteDword(uint32_t value);
  void WriteQword(uint64_t value);
  void WriteString(const wxString& value);
  // String number i written by this archive (from 0) takes
  // (*escapes)[i] longer length escapes than it needs, at most the qword
  // form: the file then ends its records elsewhere, and every reader takes
  // each escape. Null: the shortest forms.
  void UseLongerEscapes(const std::vector<uint8_t>* escapes) { m_pLongerEscapes = escapes; }
  size_t StringsWritten() const { return m_nStrings; }
  void WriteBytes(const void* data, size_t count);
  void Flush();

  Archive& operator<<(int32_t value) {
    WriteDword(static_cast<uint32_t>(value));
    return *this;
  }
  Archive& operator<<(const wxString& value) {
    WriteString(value);
    return *this;
  }
  Archive& operator>>(int32_t& value) {
    value = static_cast<int32_t>(ReadDword());
    return *this;
  }
  Archive& operator>>(wxString& value) {
    value = ReadString();
    return *this;
  }

 private:
  // Makes at least `count` unread bytes available: moves what is left to the
  // start of the buffer and reads until it is full or the file ends.
  void FillFixed(size_t count);
  size_t ReadFromSource(uint8_t* into, size_t count);
  uint64_t ReadStringLength(bool& wide);

  Mode m_mode;
  ByteSource* m_pSource = nullptr;
  ByteSink* m_pSink = nullptr;
  uint8_t m_buffer[kBufferSize];
  size_t m_nCur = 0;
  size_t m_nMax = 0;
  uint64_t m_nSourceRead = 0;
  const std::vector<uint8_t>* m_pLongerEscapes = nullptr;
  size_t m_nStrings = 0;
};

// UTF-16 code units of a string. A code point outside the basic plane
// becomes a surrogate pair; a lone surrogate (kept in a wxString as its own
// code unit value) is written back as that unit, so every string read
// from a file is written back unchanged.
std::u16string ToUtf16(const wxString& text);
wxString FromUtf16(const std::u16string& units);
// Windows-1252, as the first platform's ANSI code page; the five undefined
// bytes map to the C1 controls of the same value, as that platform does.
wxString FromWindows1252(const std::string& bytes);

}  // namespace ftpzn
