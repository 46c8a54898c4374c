// Registry entries of an in-process COM class under HKEY_CLASSES_ROOT, for the DllRegisterServer
// and DllUnregisterServer of any of our servers: CLSID\{clsid} (description, InprocServer32 =
// the DLL's path with ThreadingModel Apartment, ProgID, Version, Programmable, and TypeLib when
// the class has a type library) and the ProgID key with its CLSID. Unregistering removes the
// CLSID tree, and the ProgID tree only while its CLSID value still names the class. Both answer an
// HRESULT (SELFREG_E_CLASS when a key cannot be written) and never throw. Thread use: any.
#pragma once

#include <windows.h>

#include <string>

namespace dossync::win32 {

struct InprocClass {
  CLSID clsid;
  const wchar_t* progId;
  const wchar_t* description;
  const GUID* typeLibrary;  // nullptr: no TypeLib value
};
HRESULT registerInprocClass(const InprocClass& c, const std::wstring& dllPath);
HRESULT unregisterInprocClass(const InprocClass& c);

// "{XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX}"
std::wstring guidText(const GUID& g);

}  // namespace dossync::win32
