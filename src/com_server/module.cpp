#include "com_server/module.h"

#include <olectl.h>

#include <atomic>
#include <mutex>

#include "com_server/class_factory.h"
#include "com_server/registration.h"
#include "com_server/send_mail_object.h"
#include "com_server/sync_object.h"
#include "core/apartment.h"
#include "kvoutlookdx_h.h"

namespace dossync::com {

namespace {
HMODULE g_module = nullptr;
std::atomic<long> g_objects{0};
std::atomic<long> g_locks{0};
thread_local long t_apartmentObjects = 0;
}  // namespace

HMODULE moduleHandle() {
  return g_module;
}

std::wstring modulePath() {
  std::wstring path(MAX_PATH, L'\0');
  for (;;) {
    DWORD n = GetModuleFileNameW(g_module, path.data(), static_cast<DWORD>(path.size()));
    if (n < path.size()) {
      path.resize(n);
      return path;
    }
    path.resize(path.size() * 2);
  }
}

void objectCreated() {
  ++g_objects;
}
void objectDestroyed() {
  --g_objects;
}
void lockServer(bool lock) {
  lock ? ++g_locks : --g_locks;
}
bool canUnload() {
  return g_objects == 0 && g_locks == 0;
}

void apartmentObjectCreated() noexcept {
  ++t_apartmentObjects;
}

void apartmentObjectDestroyed() noexcept {
  if (--t_apartmentObjects > 0) return;
  // What was written in groups is committed before the connections close; what cannot be
  // committed now has no procedure left to report it to.
  try {
    apartment().idleDatabases(true);
  } catch (...) {
  }
  try {
    resetApartment();
  } catch (...) {
  }
}

ITypeLib* typeLibrary() {
  // Loaded once and kept for the life of the process (a host may create objects again after
  // releasing them all; the library is small).
  static ITypeLib* library = [] {
    ITypeLib* lib = nullptr;
    if (FAILED(LoadTypeLibEx(modulePath().c_str(), REGKIND_NONE, &lib))) lib = nullptr;
    return lib;
  }();
  return library;
}

ITypeInfo* typeInfo(REFGUID guid) {
  ITypeLib* lib = typeLibrary();
  ITypeInfo* info = nullptr;
  if (!lib || FAILED(lib->GetTypeInfoOfGuid(guid, &info))) return nullptr;
  return info;
}

}  // namespace dossync::com

using namespace dossync::com;

extern "C" BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID) {
  if (reason == DLL_PROCESS_ATTACH) {
    g_module = instance;
    DisableThreadLibraryCalls(instance);
  }
  return TRUE;
}

extern "C" HRESULT STDAPICALLTYPE DllGetClassObject(REFCLSID clsid, REFIID iid, void** out) {
  if (!out) return E_POINTER;
  *out = nullptr;
  IClassFactory* factory = nullptr;
  // Nothing below throws; the factory's own members catch what the objects they make throw.
  if (IsEqualCLSID(clsid, CLSID_clsOutlookSynchronization))
    factory = new (std::nothrow) ClassFactory<SyncObject>();
  else if (IsEqualCLSID(clsid, CLSID_clsOutlookSendMail))
    factory = new (std::nothrow) ClassFactory<SendMailObject>();
  else
    return CLASS_E_CLASSNOTAVAILABLE;
  if (!factory) return E_OUTOFMEMORY;
  HRESULT hr = factory->QueryInterface(iid, out);
  factory->Release();
  return hr;
}

extern "C" HRESULT STDAPICALLTYPE DllCanUnloadNow() {
  return canUnload() ? S_OK : S_FALSE;
}

extern "C" HRESULT STDAPICALLTYPE DllRegisterServer() {
  try {
    return registerServer();
  } catch (...) {
    return SELFREG_E_CLASS;
  }
}

extern "C" HRESULT STDAPICALLTYPE DllUnregisterServer() {
  try {
    return unregisterServer();
  } catch (...) {
    return SELFREG_E_CLASS;
  }
}
