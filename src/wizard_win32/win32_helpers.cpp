#include "wizard_win32/win32_helpers.h"

#include <cwchar>

#include "base/utf16.h"

namespace dossync::win32ui {

std::wstring widen(const std::string& s) {
  return utf16::widen<wchar_t>(s);
}

std::string narrow(const std::wstring& s) {
  return utf16::narrow(s);
}

std::wstring windowText(HWND h) {
  int n = GetWindowTextLengthW(h);
  std::wstring out(static_cast<size_t>(n) + 1, L'\0');
  out.resize(static_cast<size_t>(GetWindowTextW(h, out.data(), n + 1)));
  return out;
}

void setText(HWND h, const std::string& text) {
  std::wstring w = widen(text);
  if (windowText(h) != w) SetWindowTextW(h, w.c_str());
}

UINT screenDpi() {
  HDC dc = GetDC(nullptr);
  UINT dpi = static_cast<UINT>(GetDeviceCaps(dc, LOGPIXELSY));
  ReleaseDC(nullptr, dc);
  return dpi ? dpi : 96;
}

UINT windowDpi(HWND h) {
  static auto get = systemProc<GetDpiForWindowFn>(L"user32.dll", "GetDpiForWindow");
  UINT dpi = get ? get(h) : 0;
  return dpi ? dpi : screenDpi();
}

LOGFONTW messageFont(UINT dpi) {
  NONCLIENTMETRICSW ncm{};
  ncm.cbSize = sizeof(ncm);
  static auto forDpi =
      systemProc<SystemParametersInfoForDpiFn>(L"user32.dll", "SystemParametersInfoForDpi");
  if (forDpi && forDpi(SPI_GETNONCLIENTMETRICS, sizeof(ncm), &ncm, 0, dpi))
    return ncm.lfMessageFont;
  if (!SystemParametersInfoW(SPI_GETNONCLIENTMETRICS, sizeof(ncm), &ncm, 0)) {
    LOGFONTW lf{};
    lf.lfHeight = -MulDiv(9, static_cast<int>(dpi), 72);
    lf.lfWeight = FW_NORMAL;
    lf.lfCharSet = DEFAULT_CHARSET;
    wcscpy(lf.lfFaceName, L"MS Shell Dlg 2");
    return lf;
  }
  ncm.lfMessageFont.lfHeight =
      MulDiv(ncm.lfMessageFont.lfHeight, static_cast<int>(dpi), static_cast<int>(screenDpi()));
  return ncm.lfMessageFont;
}

HINSTANCE moduleHandle() {
  HMODULE m = nullptr;
  GetModuleHandleExW(
      GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
      reinterpret_cast<LPCWSTR>(&moduleHandle), &m);
  return m;
}

int32_t shiftState() {
  return (GetKeyState(VK_SHIFT) < 0 ? 1 : 0) | (GetKeyState(VK_CONTROL) < 0 ? 2 : 0) |
         (GetKeyState(VK_MENU) < 0 ? 4 : 0);
}

}  // namespace dossync::win32ui
