// The in-process server's module state: the DLL's handle and path, the count of live objects
// and server locks (DllCanUnloadNow), the type library carried as resource TYPELIB 1, and the
// one-time wiring of the back ends the component uses on Windows (databases over ODBC, Outlook
// by automation, the host's progress dialog, the wizard).
// Thread use: objects live in the host's single-threaded apartment; the counters are atomic.
#pragma once

#include <windows.h>
#include <oaidl.h>

#include <string>

namespace dossync::com {

HMODULE moduleHandle();
// The DLL's full path (what the registry's InprocServer32 and TypeLib keys name).
std::wstring modulePath();

void objectCreated();
void objectDestroyed();
void lockServer(bool lock);
bool canUnload();

// The type library, loaded once from the DLL's own resource; nullptr when it cannot be
// (then the interfaces answer E_FAIL to GetTypeInfo and their Invoke).
ITypeLib* typeLibrary();
// The type information of one interface or coclass of the library (AddRef'd), or nullptr.
ITypeInfo* typeInfo(REFGUID guid);

// Registers the back ends with the platform registry once per process.
void wireBackEnds();

}  // namespace dossync::com
