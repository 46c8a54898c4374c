// Self-registration of kvoutlookdx.dll (regsvr32): for each class its CLSID key (name,
// InprocServer32 = this DLL with ThreadingModel Apartment, ProgID, TypeLib, Version), its ProgID
// key ("kvoutlookdx.clsOutlookSynchronization", "kvoutlookdx.clsOutlookSendMail") and the type
// library with its interfaces. Unregistering removes exactly those keys. Both answer an
// HRESULT (SELFREG_E_CLASS / SELFREG_E_TYPELIB on failure) and never throw.
//
// registerInprocClass/unregisterInprocClass are the CLSID and ProgID part alone, for any
// in-process server of the project.
#pragma once

#include <windows.h>

#include <string>

namespace dossync::com {

HRESULT registerServer();
HRESULT unregisterServer();

struct InprocClass {
  CLSID clsid;
  const wchar_t* progId;
  const wchar_t* description;
  const GUID* typeLibrary;  // nullptr: no TypeLib value
};
HRESULT registerInprocClass(const InprocClass& c, const std::wstring& dllPath);
HRESULT unregisterInprocClass(const InprocClass& c);

}  // namespace dossync::com
