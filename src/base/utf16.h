// UTF-8 to UTF-16 and back, for the interfaces that speak UTF-16 (Win32, COM, ODBC's wide
// calls): Char16 is any 16-bit character type (wchar_t on Windows, char16_t, SQLWCHAR). A byte
// that starts no valid UTF-8 sequence, and a lone surrogate, become U+FFFD.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace dossync::utf16 {

template <class Char16>
std::basic_string<Char16> widen(std::string_view utf8) {
  static_assert(sizeof(Char16) == 2, "UTF-16 code units");
  std::basic_string<Char16> out;
  out.reserve(utf8.size());
  for (size_t i = 0; i < utf8.size();) {
    auto b = static_cast<unsigned char>(utf8[i]);
    uint32_t cp = 0xFFFD;
    size_t n = b < 0x80 ? 1 : (b >> 5) == 6 ? 2 : (b >> 4) == 14 ? 3 : (b >> 3) == 30 ? 4 : 0;
    if (n == 0 || i + n > utf8.size()) {
      ++i;
    } else {
      cp = n == 1 ? b : b & (0x7F >> n);
      bool ok = true;
      for (size_t k = 1; k < n; ++k) {
        auto c = static_cast<unsigned char>(utf8[i + k]);
        ok = ok && (c >> 6) == 2;
        cp = (cp << 6) | (c & 0x3F);
      }
      if (!ok || cp > 0x10FFFF) cp = 0xFFFD;
      i += ok ? n : 1;
    }
    if (cp >= 0x10000) {
      cp -= 0x10000;
      out.push_back(static_cast<Char16>(0xD800 + (cp >> 10)));
      out.push_back(static_cast<Char16>(0xDC00 + (cp & 0x3FF)));
    } else {
      out.push_back(static_cast<Char16>(cp));
    }
  }
  return out;
}

template <class Char16>
std::string narrow(const Char16* text, size_t size) {
  static_assert(sizeof(Char16) == 2, "UTF-16 code units");
  std::string out;
  out.reserve(size);
  for (size_t i = 0; i < size; ++i) {
    uint32_t cp = static_cast<uint16_t>(text[i]);
    uint32_t low = i + 1 < size ? static_cast<uint16_t>(text[i + 1]) : 0;
    if (cp >= 0xD800 && cp < 0xDC00 && low >= 0xDC00 && low < 0xE000) {
      cp = 0x10000 + ((cp - 0xD800) << 10) + (low - 0xDC00);
      ++i;
    } else if (cp >= 0xD800 && cp < 0xE000) {
      cp = 0xFFFD;
    }
    if (cp < 0x80) {
      out.push_back(static_cast<char>(cp));
    } else if (cp < 0x800) {
      out.push_back(static_cast<char>(0xC0 | (cp >> 6)));
      out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    } else if (cp < 0x10000) {
      out.push_back(static_cast<char>(0xE0 | (cp >> 12)));
      out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
      out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    } else {
      out.push_back(static_cast<char>(0xF0 | (cp >> 18)));
      out.push_back(static_cast<char>(0x80 | ((cp >> 12) & 0x3F)));
      out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
      out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    }
  }
  return out;
}

template <class Char16>
std::string narrow(const std::basic_string<Char16>& text) {
  return narrow(text.data(), text.size());
}

}  // namespace dossync::utf16
