// The in-process server's module state: the DLL's handle and path, the count of live objects
// and server locks (DllCanUnloadNow), the type library carried as resource TYPELIB 1, and the
// one-time wiring of the back ends the component uses on Windows (databases over ODBC, Outlook
// by automation, the host's progress dialog, the wizard).
//
// Every object of ours a host or another server holds counts in DllCanUnloadNow: the public
// classes and their factories, the selection collection, the progress dialog's start handler.
// The public classes also count per thread: when the last of them on a thread goes, that
// thread's shared state goes with it (pending writes committed, the databases' connections
// closed, the host's services released), so that nothing keeps a practice's file locked.
// Thread use: objects live in the host's single-threaded apartment; the module's counters are
// atomic, the per-thread count is the thread's own.
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

// Counts in DllCanUnloadNow for as long as it lives: a member of each object handed out.
class ModuleReference {
 public:
  ModuleReference() { objectCreated(); }
  ~ModuleReference() { objectDestroyed(); }
  ModuleReference(const ModuleReference&) = delete;
  ModuleReference& operator=(const ModuleReference&) = delete;
};

// A public object (clsOutlookSynchronization, clsOutlookSendMail) was made or destroyed on the
// calling thread; the last one destroyed releases the thread's shared state. Never throws.
void apartmentObjectCreated() noexcept;
void apartmentObjectDestroyed() noexcept;

// The type library, loaded once from the DLL's own resource; nullptr when it cannot be
// (then the interfaces answer E_FAIL to GetTypeInfo and their Invoke).
ITypeLib* typeLibrary();
// The type information of one interface or coclass of the library (AddRef'd), or nullptr.
ITypeInfo* typeInfo(REFGUID guid);

// Registers the back ends with the platform registry once per process.
void wireBackEnds();

}  // namespace dossync::com
