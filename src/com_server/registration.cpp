#include "com_server/registration.h"

#include <oleauto.h>
#include <olectl.h>

#include "com_server/module.h"
#include "kvoutlookdx_h.h"

namespace dossync::com {

namespace {

const InprocClass kClasses[] = {
    {CLSID_clsOutlookSynchronization, L"kvoutlookdx.clsOutlookSynchronization",
     L"clsOutlookSynchronization", &LIBID_kvoutlookdx},
    {CLSID_clsOutlookSendMail, L"kvoutlookdx.clsOutlookSendMail", L"clsOutlookSendMail",
     &LIBID_kvoutlookdx},
};

SYSKIND systemKind() {
  return sizeof(void*) == 8 ? SYS_WIN64 : SYS_WIN32;
}

}  // namespace

HRESULT registerServer() {
  std::wstring path = modulePath();
  for (const InprocClass& c : kClasses) {
    HRESULT hr = registerInprocClass(c, path);
    if (FAILED(hr)) return hr;
  }
  ITypeLib* lib = typeLibrary();
  if (!lib) return SELFREG_E_TYPELIB;
  std::wstring helpDir = path.substr(0, path.find_last_of(L"\\/"));
  HRESULT hr = RegisterTypeLib(lib, const_cast<wchar_t*>(path.c_str()), helpDir.data());
  return FAILED(hr) ? SELFREG_E_TYPELIB : S_OK;
}

HRESULT unregisterServer() {
  for (const InprocClass& c : kClasses) unregisterInprocClass(c);
  // Removes the TypeLib key and the Interface keys of the library's interfaces.
  UnRegisterTypeLib(LIBID_kvoutlookdx, 1, 0, LOCALE_NEUTRAL, systemKind());
  return S_OK;
}

}  // namespace dossync::com
