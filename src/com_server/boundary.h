// The edge between the host and the component: nothing thrown inside crosses it. guard runs a
// body and swallows what escapes it (the component reports its own errors through the host's
// error service; what still escapes is a fault of this layer, and the host must not see it);
// outText and outBool fill an out parameter the same way, leaving "" or False when the body
// failed.
#pragma once

#include <windows.h>
#include <oleauto.h>

#include <string>

#include "platform/win32/automation.h"

namespace dossync::com {

template <class Body>
void guard(Body&& body) noexcept {
  try {
    body();
  } catch (...) {
  }
}

template <class Body>
HRESULT outText(BSTR* out, Body&& body) noexcept {
  if (!out) return E_POINTER;
  *out = nullptr;
  std::string text;
  guard([&] { text = body(); });
  *out = SysAllocString(win32::widen(text).c_str());
  return S_OK;
}

template <class Body>
HRESULT outBool(VARIANT_BOOL* out, Body&& body) noexcept {
  if (!out) return E_POINTER;
  *out = VARIANT_FALSE;
  guard([&] { *out = body() ? VARIANT_TRUE : VARIANT_FALSE; });
  return S_OK;
}

}  // namespace dossync::com
