#include "inet/wirename.h"

#include <cstdint>

#include "platform/utf8.h"

namespace ftpzn::inet {

namespace {

constexpr char32_t kEscapeBase = 0xDC80;

// Length of the valid UTF-8 sequence at `s`, 0 when it is not one.
size_t ValidSequence(std::string_view s, char32_t& cp) {
  auto b = [&](size_t i) { return static_cast<uint8_t>(s[i]); };
  uint8_t c = b(0);
  if (c < 0x80) {
    cp = c;
    return 1;
  }
  size_t len;
  char32_t min;
  if ((c & 0xE0) == 0xC0) {
    len = 2, cp = c & 0x1F, min = 0x80;
  } else if ((c & 0xF0) == 0xE0) {
    len = 3, cp = c & 0x0F, min = 0x800;
  } else if ((c & 0xF8) == 0xF0) {
    len = 4, cp = c & 0x07, min = 0x10000;
  } else {
    return 0;
  }
  if (s.size() < len) return 0;
  for (size_t i = 1; i < len; ++i) {
    if ((b(i) & 0xC0) != 0x80) return 0;
    cp = (cp << 6) | (b(i) & 0x3F);
  }
  // Overlong forms, surrogates and values past Unicode are not UTF-8.
  if (cp < min || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) return 0;
  return len;
}

}  // namespace

std::wstring WireToWide(std::string_view bytes) {
  std::wstring out;
  out.reserve(bytes.size());
  while (!bytes.empty()) {
    char32_t cp = 0;
    size_t len = ValidSequence(bytes, cp);
    if (len == 0) {
      out += static_cast<wchar_t>(kEscapeBase + static_cast<uint8_t>(bytes[0]));
      len = 1;
    } else {
      if constexpr (sizeof(wchar_t) == 2) {
        if (cp >= 0x10000) {
          cp -= 0x10000;
          out += static_cast<wchar_t>(0xD800 + (cp >> 10));
          out += static_cast<wchar_t>(0xDC00 + (cp & 0x3FF));
          bytes.remove_prefix(len);
          continue;
        }
      }
      out += static_cast<wchar_t>(cp);
    }
    bytes.remove_prefix(len);
  }
  return out;
}

std::string WideToWire(std::wstring_view text) {
  std::string out;
  out.reserve(text.size());
  for (size_t i = 0; i < text.size(); ++i) {
    char32_t cp = static_cast<char32_t>(text[i]);
    if constexpr (sizeof(wchar_t) == 2) {
      if (cp >= 0xD800 && cp < 0xDC00 && i + 1 < text.size() && text[i + 1] >= 0xDC00 &&
          text[i + 1] < 0xE000) {
        cp = 0x10000 + ((cp - 0xD800) << 10) + (static_cast<char32_t>(text[i + 1]) - 0xDC00);
        ++i;
      }
    }
    if (cp >= kEscapeBase + 0x80 && cp <= kEscapeBase + 0xFF) {
      out += static_cast<char>(cp - kEscapeBase);
    } else if ((cp >= 0xD800 && cp <= 0xDFFF) || cp > 0x10FFFF) {
      out += '?';  // no byte form; cannot come from the wire
    } else {
      ftpzn::AppendUtf8(out, cp);
    }
  }
  return out;
}

}  // namespace ftpzn::inet
