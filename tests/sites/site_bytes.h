// Building site-file bytes by hand for the tests, straight from the format:
// wide strings as FF FE FF, a length and UTF-16LE; integers as 4 bytes LE.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

namespace ftpzn::test {

using Bytes = std::vector<uint8_t>;

inline Bytes operator+(Bytes a, const Bytes& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

inline Bytes Raw(std::initializer_list<int> values) {
  Bytes out;
  for (int v : values) out.push_back(static_cast<uint8_t>(v));
  return out;
}

// A wide archive string of ASCII text shorter than 255 characters.
inline Bytes WideAscii(const std::string& text) {
  Bytes out = {0xFF, 0xFE, 0xFF, static_cast<uint8_t>(text.size())};
  for (char c : text) {
    out.push_back(static_cast<uint8_t>(c));
    out.push_back(0);
  }
  return out;
}

inline Bytes Int32(int32_t value) {
  const auto v = static_cast<uint32_t>(value);
  return {static_cast<uint8_t>(v), static_cast<uint8_t>(v >> 8), static_cast<uint8_t>(v >> 16),
          static_cast<uint8_t>(v >> 24)};
}

inline Bytes Magic() { return WideAscii("TOLMAVERN_DATA"); }

}  // namespace ftpzn::test
