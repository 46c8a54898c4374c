// Self-registration of kvoutlookdx.dll (regsvr32): for each class its CLSID key (name,
// InprocServer32 = this DLL with ThreadingModel Apartment, ProgID, TypeLib, Version), its ProgID
// key ("kvoutlookdx.clsOutlookSynchronization", "kvoutlookdx.clsOutlookSendMail") and the type
// library with its interfaces. Unregistering removes exactly those keys. Both answer an
// HRESULT (SELFREG_E_CLASS / SELFREG_E_TYPELIB on failure) and never throw.
//
// registerInprocClass/unregisterInprocClass (platform/win32/com_registration.h) are the CLSID
// and ProgID part alone, shared with the other in-process servers of the project.
#pragma once

#include <windows.h>

#include <string>

#include "platform/win32/com_registration.h"

namespace dossync::com {

HRESULT registerServer();
HRESULT unregisterServer();

using win32::InprocClass;
using win32::registerInprocClass;
using win32::unregisterInprocClass;

}  // namespace dossync::com
