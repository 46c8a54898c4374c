#include "com_server/registration.h"

#include <oleauto.h>
#include <olectl.h>

#include "com_server/module.h"
#include "kvoutlookdx_h.h"

namespace dossync::com {

namespace {

std::wstring guidText(const GUID& g) {
  wchar_t text[40] = {};
  StringFromGUID2(g, text, 40);
  return text;
}

// Sets the value `name` ("" for the default value) of HKEY_CLASSES_ROOT\key, making the key.
bool setValue(const std::wstring& key, const wchar_t* name, const std::wstring& value) {
  HKEY h = nullptr;
  if (RegCreateKeyExW(HKEY_CLASSES_ROOT, key.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE,
                      KEY_WRITE, nullptr, &h, nullptr) != ERROR_SUCCESS)
    return false;
  const auto bytes = static_cast<DWORD>((value.size() + 1) * sizeof(wchar_t));
  bool ok = RegSetValueExW(h, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(value.c_str()),
                           bytes) == ERROR_SUCCESS;
  RegCloseKey(h);
  return ok;
}

void deleteTree(const std::wstring& key) { RegDeleteTreeW(HKEY_CLASSES_ROOT, key.c_str()); }

const InprocClass kClasses[] = {
    {CLSID_clsOutlookSynchronization, L"kvoutlookdx.clsOutlookSynchronization",
     L"clsOutlookSynchronization", &LIBID_kvoutlookdx},
    {CLSID_clsOutlookSendMail, L"kvoutlookdx.clsOutlookSendMail", L"clsOutlookSendMail",
     &LIBID_kvoutlookdx},
};

SYSKIND systemKind() { return sizeof(void*) == 8 ? SYS_WIN64 : SYS_WIN32; }

}  // namespace

HRESULT registerInprocClass(const InprocClass& c, const std::wstring& dllPath) {
  const std::wstring clsidKey = L"CLSID\\" + guidText(c.clsid);
  bool ok = setValue(clsidKey, nullptr, c.description) &&
            setValue(clsidKey + L"\\InprocServer32", nullptr, dllPath) &&
            setValue(clsidKey + L"\\InprocServer32", L"ThreadingModel", L"Apartment") &&
            setValue(clsidKey + L"\\ProgID", nullptr, c.progId) &&
            setValue(clsidKey + L"\\Version", nullptr, L"1.0") &&
            setValue(clsidKey + L"\\Programmable", nullptr, L"") &&
            setValue(c.progId, nullptr, c.description) &&
            setValue(std::wstring(c.progId) + L"\\CLSID", nullptr, guidText(c.clsid));
  if (ok && c.typeLibrary) ok = setValue(clsidKey + L"\\TypeLib", nullptr, guidText(*c.typeLibrary));
  return ok ? S_OK : SELFREG_E_CLASS;
}

HRESULT unregisterInprocClass(const InprocClass& c) {
  deleteTree(L"CLSID\\" + guidText(c.clsid));
  deleteTree(c.progId);
  return S_OK;
}

HRESULT registerServer() {
  const std::wstring path = modulePath();
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
