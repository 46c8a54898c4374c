// General Win32 helpers of the wizard's window: UTF-8 window texts, what newer systems offer
// (looked up at run time, so that older ones still run the wizard), DPI and the message font,
// the module the code runs in, its manifest made active, and the shift state of the keyboard.
// Thread use: the thread that owns the windows concerned.
#pragma once

#include <windows.h>

#include <cstdint>
#include <string>

namespace dossync::win32ui {

std::wstring widen(const std::string& s);
std::string narrow(const std::wstring& s);
std::wstring windowText(HWND h);
// Sets a window's text unless it reads so already (which spares a repaint).
void setText(HWND h, const std::string& text);

// ---- What newer systems offer, looked up at run time.

template <typename F>
F systemProc(const wchar_t* dll, const char* name) {
  HMODULE m = GetModuleHandleW(dll);
  return m ? reinterpret_cast<F>(GetProcAddress(m, name)) : nullptr;
}

using SetThreadDpiAwarenessContextFn = DPI_AWARENESS_CONTEXT(WINAPI*)(DPI_AWARENESS_CONTEXT);
using GetDpiForWindowFn = UINT(WINAPI*)(HWND);
using AdjustWindowRectExForDpiFn = BOOL(WINAPI*)(LPRECT, DWORD, BOOL, DWORD, UINT);
using SystemParametersInfoForDpiFn = BOOL(WINAPI*)(UINT, UINT, PVOID, UINT, UINT);

// Per-monitor awareness for the windows this thread creates meanwhile: a DLL cannot choose
// the host process's awareness, but its own windows can have their own.
class DpiAwarenessScope {
 public:
  DpiAwarenessScope() {
    set_ =
        systemProc<SetThreadDpiAwarenessContextFn>(L"user32.dll", "SetThreadDpiAwarenessContext");
    if (set_) old_ = set_(DPI_AWARENESS_CONTEXT_PER_MONITOR_AWARE_V2);
  }
  ~DpiAwarenessScope() {
    if (set_ && old_) set_(old_);
  }
  DpiAwarenessScope(const DpiAwarenessScope&) = delete;
  DpiAwarenessScope& operator=(const DpiAwarenessScope&) = delete;

 private:
  SetThreadDpiAwarenessContextFn set_ = nullptr;
  DPI_AWARENESS_CONTEXT old_ = nullptr;
};

// The screen's DPI, and a window's (the screen's where the system cannot tell).
UINT screenDpi();
UINT windowDpi(HWND h);
// The font of message boxes, at a DPI.
LOGFONTW messageFont(UINT dpi);

// The module this code is linked into (the DLL, not the host's program).
HINSTANCE moduleHandle();

// The module's own manifest (resource 2, as for isolation-aware code) made active while the
// controls are created: with a comctl32 version 6 dependency in it, they get visual styles
// whatever the host process's manifest says. Without one nothing changes.
class ActivationScope {
 public:
  explicit ActivationScope(HINSTANCE module) {
    if (!FindResourceW(module, MAKEINTRESOURCEW(2), MAKEINTRESOURCEW(24))) return;  // RT_MANIFEST
    ACTCTXW ac{};
    ac.cbSize = sizeof(ac);
    ac.dwFlags = ACTCTX_FLAG_HMODULE_VALID | ACTCTX_FLAG_RESOURCE_NAME_VALID;
    ac.hModule = module;
    ac.lpResourceName = MAKEINTRESOURCEW(2);
    context_ = CreateActCtxW(&ac);
    if (context_ != INVALID_HANDLE_VALUE && !ActivateActCtx(context_, &cookie_)) {
      ReleaseActCtx(context_);
      context_ = INVALID_HANDLE_VALUE;
    }
  }
  ~ActivationScope() {
    if (context_ == INVALID_HANDLE_VALUE) return;
    DeactivateActCtx(0, cookie_);
    ReleaseActCtx(context_);
  }
  ActivationScope(const ActivationScope&) = delete;
  ActivationScope& operator=(const ActivationScope&) = delete;

 private:
  HANDLE context_ = INVALID_HANDLE_VALUE;
  ULONG_PTR cookie_ = 0;
};

// The keys held down, as KeyDown reports them: 1 Shift, 2 Ctrl, 4 Alt.
int32_t shiftState();

}  // namespace dossync::win32ui
