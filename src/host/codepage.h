// Windows-1252, the 8-bit code page names are stored in when the host has no other: one byte
// per character, so Latin names keep their full length in files that count characters.
// The core's own strings are UTF-8.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace kv::host {

namespace cp1252 {

// Code points of bytes 0x80 to 0x9F; the five bytes the code page leaves undefined map to the
// control character of the same value, as the Windows conversion does, so every byte reads.
inline constexpr char16_t kHigh[32] = {
    0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0x008D, 0x017D, 0x008F, 0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178};

inline char32_t ToCodePoint(unsigned char b) {
  return b >= 0x80 && b < 0xA0 ? char32_t{kHigh[b - 0x80]} : char32_t{b};
}

// The byte of a code point, or '?' when the code page lacks it.
inline char FromCodePoint(char32_t c) {
  if (c < 0x80 || (c >= 0xA0 && c <= 0xFF)) return static_cast<char>(c);
  for (int i = 0; i < 32; ++i)
    if (kHigh[i] == c) return static_cast<char>(0x80 + i);
  return '?';
}

inline void AppendUtf8(std::string& out, char32_t c) {
  if (c < 0x80) {
    out.push_back(static_cast<char>(c));
  } else if (c < 0x800) {
    out.push_back(static_cast<char>(0xC0 | (c >> 6)));
    out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
  } else {  // everything the code page holds lies in the basic plane
    out.push_back(static_cast<char>(0xE0 | (c >> 12)));
    out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
  }
}

}  // namespace cp1252

// UTF-8 to Windows-1252. Each character becomes one byte; one the code page lacks, and each
// malformed UTF-8 sequence, becomes '?'.
inline std::string Utf8ToCp1252(std::string_view s) {
  std::string out;
  out.reserve(s.size());
  for (size_t i = 0; i < s.size();) {
    const auto b = static_cast<unsigned char>(s[i]);
    size_t len = b < 0x80 ? 1 : (b >> 5) == 6 ? 2 : (b >> 4) == 14 ? 3 : (b >> 3) == 30 ? 4 : 0;
    char32_t c = len == 1 ? b : len == 2 ? (b & 0x1F) : len == 3 ? (b & 0x0F) : (b & 0x07);
    bool ok = len > 0 && i + len <= s.size();
    for (size_t k = 1; ok && k < len; ++k) {
      const auto cb = static_cast<unsigned char>(s[i + k]);
      ok = (cb & 0xC0) == 0x80;
      c = (c << 6) | (cb & 0x3F);
    }
    // Overlong forms and surrogates are not characters.
    static constexpr char32_t kMin[5] = {0, 0, 0x80, 0x800, 0x10000};
    ok = ok && c >= kMin[len] && c <= 0x10FFFF && (c < 0xD800 || c > 0xDFFF);
    out.push_back(ok ? cp1252::FromCodePoint(c) : '?');
    i += ok ? len : 1;
  }
  return out;
}

// Windows-1252 to UTF-8; every byte is a character.
inline std::string Cp1252ToUtf8(std::string_view s) {
  std::string out;
  out.reserve(s.size() * 2);
  for (char b : s) cp1252::AppendUtf8(out, cp1252::ToCodePoint(static_cast<unsigned char>(b)));
  return out;
}

}  // namespace kv::host
