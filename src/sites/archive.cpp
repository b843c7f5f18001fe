#include "sites/archive.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>
#include <utility>

namespace ftpzn {
namespace {

[[noreturn]] void ThrowEndOfFile() { throw ArchiveException("unexpected end of file"); }

}  // namespace

size_t MemorySource::Read(void* buffer, size_t count) {
  const size_t n = std::min(count, m_bytes.size() - m_nPos);
  if (n) std::memcpy(buffer, m_bytes.data() + m_nPos, n);
  m_nPos += n;
  return n;
}

void MemorySink::Write(const void* data, size_t count) {
  const auto* p = static_cast<const uint8_t*>(data);
  m_bytes.insert(m_bytes.end(), p, p + count);
}

PosixFile::~PosixFile() {
  if (m_fd >= 0) ::close(m_fd);
}

bool PosixFile::OpenForReading(const wxString& path) {
  // Without O_NONBLOCK a FIFO put in the file's place would block the open
  // until some writer came; only a regular file counts as openable, so a
  // directory or a device is "cannot be opened" like a missing file.
  m_fd = ::open(path.fn_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  return m_fd >= 0 && KeepRegularFile();
}

bool PosixFile::KeepRegularFile() {
  struct stat info {};
  int error = 0;
  if (::fstat(m_fd, &info) != 0)
    error = errno;
  else if (S_ISDIR(info.st_mode))
    error = EISDIR;
  else if (!S_ISREG(info.st_mode))
    error = EINVAL;
  if (error == 0) {
    // Regular files ignore O_NONBLOCK; cleared all the same so reads and
    // writes keep their plain blocking meaning.
    ::fcntl(m_fd, F_SETFL, ::fcntl(m_fd, F_GETFL) & ~O_NONBLOCK);
    return true;
  }
  ::close(m_fd);
  m_fd = -1;
  errno = error;
  return false;
}

void PosixFile::Close() {
  if (m_fd < 0) return;
  const int fd = m_fd;
  m_fd = -1;
  if (::close(fd) != 0) throw FileException("close failed", errno);
}

size_t PosixFile::Read(void* buffer, size_t count) {
  auto* p = static_cast<uint8_t*>(buffer);
  size_t done = 0;
  while (done < count) {
    const ssize_t n = ::read(m_fd, p + done, count - done);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) throw FileException("read failed", errno);
    if (n == 0) break;
    done += static_cast<size_t>(n);
  }
  return done;
}

namespace {

// The file a path finally names, following symbolic links (a bounded
// number, as the kernel does); a link to nothing yet names its target.
bool ResolveLinks(std::string& path) {
  for (int hops = 0; hops < 40; ++hops) {
    struct stat info {};
    if (::lstat(path.c_str(), &info) != 0) return errno == ENOENT;
    if (!S_ISLNK(info.st_mode)) return true;
    std::string target(4096, '\0');
    const ssize_t n = ::readlink(path.c_str(), target.data(), target.size());
    if (n <= 0 || static_cast<size_t>(n) >= target.size()) return false;
    target.resize(static_cast<size_t>(n));
    if (target.front() != '/') {
      const size_t slash = path.rfind('/');
      if (slash != std::string::npos) target.insert(0, path, 0, slash + 1);
    }
    path = std::move(target);
  }
  errno = ELOOP;
  return false;
}

}  // namespace

ReplacingFile::~ReplacingFile() { Discard(); }

bool ReplacingFile::Open(const wxString& path) {
  m_target = std::string(path.fn_str());
  if (m_target.empty()) {
    errno = ENOENT;
    return false;
  }
  if (!ResolveLinks(m_target)) return false;
  struct stat info {};
  if (::stat(m_target.c_str(), &info) == 0 && !S_ISREG(info.st_mode)) {
    // A directory, a FIFO or a device in the file's place is left alone.
    errno = S_ISDIR(info.st_mode) ? EISDIR : EINVAL;
    return false;
  }
  m_temporary = m_target + ".XXXXXX";
  m_fd = ::mkostemp(m_temporary.data(), O_CLOEXEC);  // mode 0600
  if (m_fd < 0) m_temporary.clear();
  return m_fd >= 0;
}

void ReplacingFile::Write(const void* data, size_t count) {
  const auto* p = static_cast<const uint8_t*>(data);
  size_t done = 0;
  while (done < count) {
    const ssize_t n = ::write(m_fd, p + done, count - done);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) throw FileException("write failed", errno);
    done += static_cast<size_t>(n);
  }
}

bool ReplacingFile::Commit() {
  if (::fsync(m_fd) != 0 || ::close(std::exchange(m_fd, -1)) != 0 ||
      ::rename(m_temporary.c_str(), m_target.c_str()) != 0) {
    const int error = errno;
    Discard();
    errno = error;
    return false;
  }
  m_temporary.clear();
  return true;
}

void ReplacingFile::Discard() {
  if (m_fd >= 0) ::close(std::exchange(m_fd, -1));
  if (!m_temporary.empty()) ::unlink(m_temporary.c_str());
  m_temporary.clear();
}

Archive::Archive(ByteSource& source) : m_mode(load), m_pSource(&source) {}
Archive::Archive(ByteSink& sink) : m_mode(store), m_pSink(&sink) {}

size_t Archive::ReadFromSource(uint8_t* into, size_t count) {
  size_t done = 0;
  while (done < count) {
    const size_t n = m_pSource->Read(into + done, count - done);
    if (n == 0) break;
    done += n;
  }
  m_nSourceRead += done;
  return done;
}

void Archive::FillFixed(size_t count) {
  if (m_nMax - m_nCur >= count) return;
  const size_t left = m_nMax - m_nCur;
  std::memmove(m_buffer, m_buffer + m_nCur, left);
  m_nCur = 0;
  m_nMax = left + ReadFromSource(m_buffer + left, kBufferSize - left);
  if (m_nMax < count) ThrowEndOfFile();
}

uint8_t Archive::ReadByte() {
  FillFixed(1);
  return m_buffer[m_nCur++];
}

uint16_t Archive::ReadWord() {
  FillFixed(2);
  const uint8_t* p = m_buffer + m_nCur;
  m_nCur += 2;
  return static_cast<uint16_t>(p[0] | (p[1] << 8));
}

uint32_t Archive::ReadDword() {
  FillFixed(4);
  const uint8_t* p = m_buffer + m_nCur;
  m_nCur += 4;
  return static_cast<uint32_t>(p[0]) | (static_cast<uint32_t>(p[1]) << 8) |
         (static_cast<uint32_t>(p[2]) << 16) | (static_cast<uint32_t>(p[3]) << 24);
}

uint64_t Archive::ReadQword() {
  FillFixed(8);
  uint64_t value = 0;
  for (int i = 7; i >= 0; --i) value = (value << 8) | m_buffer[m_nCur + i];
  m_nCur += 8;
  return value;
}

void Archive::ReadBytes(std::string& out, uint64_t count) {
  const size_t fromBuffer = static_cast<size_t>(std::min<uint64_t>(count, m_nMax - m_nCur));
  out.append(reinterpret_cast<const char*>(m_buffer + m_nCur), fromBuffer);
  m_nCur += fromBuffer;
  count -= fromBuffer;
  if (count == 0) return;

  // Whole blocks straight from the file, each kept only once it arrived: a
  // damaged length never makes us reserve more than the file holds.
  for (uint64_t direct = count / kBufferSize; direct > 0; --direct) {
    uint8_t block[kBufferSize];
    if (ReadFromSource(block, kBufferSize) < kBufferSize) ThrowEndOfFile();
    out.append(reinterpret_cast<const char*>(block), kBufferSize);
  }

  const size_t remainder = static_cast<size_t>(count % kBufferSize);
  if (remainder == 0) return;
  m_nCur = 0;
  m_nMax = ReadFromSource(m_buffer, kBufferSize);
  if (m_nMax < remainder) ThrowEndOfFile();
  out.append(reinterpret_cast<const char*>(m_buffer), remainder);
  m_nCur = remainder;
}

uint64_t Archive::ReadStringLength(bool& wide) {
  wide = false;
  uint8_t byteLength = ReadByte();
  if (byteLength < 0xFF) return byteLength;
  uint16_t wordLength = ReadWord();
  if (wordLength == 0xFFFE) {
    // The wide marker; the real length follows in the same escaped form.
    wide = true;
    byteLength = ReadByte();
    if (byteLength < 0xFF) return byteLength;
    wordLength = ReadWord();
  }
  // 0xFFFE is the wide marker in the first word; after the marker it is no
  // length either, and a 32-bit length follows as it does after 0xFFFF.
  if (wordLength < 0xFFFE) return wordLength;
  const uint32_t dwordLength = ReadDword();
  if (dwordLength < 0xFFFFFFFF) return dwordLength;
  return ReadQword();
}

wxString Archive::ReadString() {
  bool wide = false;
  const uint64_t length = ReadStringLength(wide);
  if (wide && length > std::numeric_limits<uint64_t>::max() / 2) ThrowEndOfFile();
  std::string bytes;
  ReadBytes(bytes, wide ? length * 2 : length);
  if (!wide) return FromWindows1252(bytes);
  std::u16string units(bytes.size() / 2, u'\0');
  for (size_t i = 0; i < units.size(); ++i)
    units[i] = static_cast<char16_t>(static_cast<uint8_t>(bytes[2 * i]) |
                                     (static_cast<uint8_t>(bytes[2 * i + 1]) << 8));
  return FromUtf16(units);
}

void Archive::WriteBytes(const void* data, size_t count) {
  const auto* p = static_cast<const uint8_t*>(data);
  while (count > 0) {
    if (m_nCur == kBufferSize) Flush();
    const size_t n = std::min(count, kBufferSize - m_nCur);
    std::memcpy(m_buffer + m_nCur, p, n);
    m_nCur += n;
    p += n;
    count -= n;
  }
}

void Archive::Flush() {
  if (m_nCur == 0) return;
  const size_t n = m_nCur;
  m_nCur = 0;
  m_pSink->Write(m_buffer, n);
}

void Archive::WriteByte(uint8_t value) { WriteBytes(&value, 1); }

void Archive::WriteWord(uint16_t value) {
  const uint8_t bytes[2] = {static_cast<uint8_t>(value), static_cast<uint8_t>(value >> 8)};
  WriteBytes(bytes, 2);
}

void Archive::WriteDword(uint32_t value) {
  uint8_t bytes[4];
  for (int i = 0; i < 4; ++i) bytes[i] = static_cast<uint8_t>(value >> (8 * i));
  WriteBytes(bytes, 4);
}

void Archive::WriteQword(uint64_t value) {
  uint8_t bytes[8];
  for (int i = 0; i < 8; ++i) bytes[i] = static_cast<uint8_t>(value >> (8 * i));
  WriteBytes(bytes, 8);
}

void Archive::WriteString(const wxString& value) {
  const std::u16string units = ToUtf16(value);
  const uint64_t length = units.size();
  // The shortest escape that holds the length: a byte, a word, a dword or a
  // qword, each announced by the all-ones value of the one before.
  int escape = length < 0xFF ? 0 : length < 0xFFFE ? 1 : length < 0xFFFFFFFF ? 2 : 3;
  if (m_pLongerEscapes && m_nStrings < m_pLongerEscapes->size())
    escape = std::min(3, escape + (*m_pLongerEscapes)[m_nStrings]);
  ++m_nStrings;
  WriteByte(0xFF);
  WriteWord(0xFFFE);
  if (escape == 0) {
    WriteByte(static_cast<uint8_t>(length));
  } else {
    WriteByte(0xFF);
    if (escape == 1) {
      WriteWord(static_cast<uint16_t>(length));
    } else {
      WriteWord(0xFFFF);
      if (escape == 2) {
        WriteDword(static_cast<uint32_t>(length));
      } else {
        WriteDword(0xFFFFFFFF);
        WriteQword(length);
      }
    }
  }
  for (char16_t unit : units) WriteWord(static_cast<uint16_t>(unit));
}

std::u16string ToUtf16(const wxString& text) {
  std::u16string units;
  units.reserve(text.length());
  for (wxString::const_iterator it = text.begin(); it != text.end(); ++it) {
    const uint32_t cp = static_cast<uint32_t>((*it).GetValue());
    if (cp > 0xFFFF && cp <= 0x10FFFF) {
      const uint32_t v = cp - 0x10000;
      units.push_back(static_cast<char16_t>(0xD800 + (v >> 10)));
      units.push_back(static_cast<char16_t>(0xDC00 + (v & 0x3FF)));
    } else {
      units.push_back(static_cast<char16_t>(cp));
    }
  }
  return units;
}

wxString FromUtf16(const std::u16string& units) {
  std::wstring wide;
  wide.reserve(units.size());
  for (size_t i = 0; i < units.size(); ++i) {
    const char16_t u = units[i];
    if constexpr (sizeof(wchar_t) >= 4) {
      if (u >= 0xD800 && u <= 0xDBFF && i + 1 < units.size() && units[i + 1] >= 0xDC00 &&
          units[i + 1] <= 0xDFFF) {
        const uint32_t cp = 0x10000 + ((static_cast<uint32_t>(u) - 0xD800) << 10) + (units[i + 1] - 0xDC00);
        wide.push_back(static_cast<wchar_t>(cp));
        ++i;
        continue;
      }
    }
    wide.push_back(static_cast<wchar_t>(u));
  }
  return wxString(wide);
}

wxString FromWindows1252(const std::string& bytes) {
  static const char16_t kHigh[32] = {0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,
                                     0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0x008D, 0x017D, 0x008F,
                                     0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,
                                     0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178};
  std::wstring wide;
  wide.reserve(bytes.size());
  for (char c : bytes) {
    const uint8_t b = static_cast<uint8_t>(c);
    wide.push_back(static_cast<wchar_t>(b >= 0x80 && b < 0xA0 ? kHigh[b - 0x80] : b));
  }
  return wxString(wide);
}

}  // namespace ftpzn
