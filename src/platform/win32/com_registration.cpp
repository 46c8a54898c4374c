#include "platform/win32/com_registration.h"

#include <objbase.h>
#include <olectl.h>

#include <cwchar>

namespace dossync::win32 {

namespace {

// Sets the value `name` (nullptr for the default value) of HKEY_CLASSES_ROOT\key, making the key.
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

void deleteTree(const std::wstring& key) {
  RegDeleteTreeW(HKEY_CLASSES_ROOT, key.c_str());
}

// The default value of HKEY_CLASSES_ROOT\key; "" when there is none.
std::wstring defaultValue(const std::wstring& key) {
  wchar_t text[80] = {};
  DWORD bytes = sizeof text - sizeof(wchar_t);
  if (RegGetValueW(HKEY_CLASSES_ROOT, key.c_str(), nullptr, RRF_RT_REG_SZ, nullptr, text, &bytes) !=
      ERROR_SUCCESS)
    return {};
  return text;
}

}  // namespace

std::wstring guidText(const GUID& g) {
  wchar_t text[40] = {};
  StringFromGUID2(g, text, 40);
  return text;
}

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
  if (ok && c.typeLibrary)
    ok = setValue(clsidKey + L"\\TypeLib", nullptr, guidText(*c.typeLibrary));
  return ok ? S_OK : SELFREG_E_CLASS;
}

HRESULT unregisterInprocClass(const InprocClass& c) {
  const std::wstring clsid = guidText(c.clsid);
  deleteTree(L"CLSID\\" + clsid);
  // The ProgID may have been taken over since by another server (a newer build, the product
  // this one replaces): it goes only while it still names our class.
  if (_wcsicmp(defaultValue(std::wstring(c.progId) + L"\\CLSID").c_str(), clsid.c_str()) == 0)
    deleteTree(c.progId);
  return S_OK;
}

}  // namespace dossync::win32
