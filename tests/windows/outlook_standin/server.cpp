// outlook_standin.dll (tests only): regsvr32 registers it as "Outlook.Application", so that the
// tests' scripts and dossync's automation client get Outlook's object model (objects.h) over the
// vCard folder store named by DOSSYNC_STANDIN_STORE (a Windows path; unset, CreateInstance fails
// with E_FAIL and error info saying why). It also serves the progress dialog stand-in (dialog.h)
// by its CLSID, which the tests register themselves when they want it.
#include <windows.h>
#include <objbase.h>
#include <oleauto.h>
#include <olectl.h>

#include <atomic>
#include <filesystem>
#include <memory>
#include <new>
#include <string>

#include "backends/vdir/vdir_store.h"
#include "dialog.h"
#include "objects.h"
#include "platform/win32/automation.h"
#include "platform/win32/com_registration.h"

namespace {

using namespace dossync;

constexpr CLSID kClsid = {
    0xfc4cc544, 0x0543, 0x4688, {0x9a, 0x85, 0xd4, 0x2e, 0x96, 0xb5, 0x44, 0xc3}};
const win32::InprocClass kClass{kClsid, L"Outlook.Application",
                                L"Outlook stand-in over a vCard folder store (tests only)",
                                nullptr};

HMODULE g_module = nullptr;
std::atomic<long> g_locks{0};
std::atomic<long> g_factories{0};

// Tells the caller why a creation failed, through its error info.
HRESULT creationFailed(HRESULT hr, const std::wstring& why) {
  ICreateErrorInfo* create = nullptr;
  if (SUCCEEDED(::CreateErrorInfo(&create))) {
    create->SetDescription(const_cast<LPOLESTR>(why.c_str()));
    create->SetSource(const_cast<LPOLESTR>(L"outlook_standin"));
    IErrorInfo* info = nullptr;
    if (SUCCEEDED(create->QueryInterface(IID_IErrorInfo, reinterpret_cast<void**>(&info)))) {
      ::SetErrorInfo(0, info);
      info->Release();
    }
    create->Release();
  }
  return hr;
}

// Hands the caller the interface it asked for of a new object, letting go of the object's own
// reference.
template <class T>
HRESULT handOut(T* object, REFIID iid, void** out) {
  HRESULT hr = object->QueryInterface(iid, out);
  object->Release();
  return hr;
}

class Factory final : public IClassFactory {
 public:
  explicit Factory(bool dialog = false) : dialog_(dialog) { ++g_factories; }
  ~Factory() { --g_factories; }

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override {
    if (!out) return E_POINTER;
    if (IsEqualIID(iid, IID_IUnknown) || IsEqualIID(iid, IID_IClassFactory)) {
      *out = static_cast<IClassFactory*>(this);
      AddRef();
      return S_OK;
    }
    *out = nullptr;
    return E_NOINTERFACE;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return ::InterlockedIncrement(&refs_); }
  ULONG STDMETHODCALLTYPE Release() override {
    ULONG n = ::InterlockedDecrement(&refs_);
    if (n == 0) delete this;
    return n;
  }

  HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID iid, void** out) override {
    if (!out) return E_POINTER;
    *out = nullptr;
    if (outer) return CLASS_E_NOAGGREGATION;
    if (dialog_) {
      IDispatch* dialog = dossync::standin::newDialogObject();
      if (!dialog) return creationFailed(E_FAIL, L"The dialog's type library is not loadable");
      return handOut(dialog, iid, out);
    }
    wchar_t store[1024];
    const DWORD n = ::GetEnvironmentVariableW(L"DOSSYNC_STANDIN_STORE", store, 1024);
    const std::wstring root(store, n < 1024 ? n : 0);
    if (root.empty())
      return creationFailed(E_FAIL,
                            L"DOSSYNC_STANDIN_STORE is not set: it names the folder of the vCard "
                            L"store that stands in for Outlook");
    IDispatch* app = nullptr;
    try {
      const std::u8string utf8 = std::filesystem::path(root).u8string();
      app = dossync::standin::newApplicationObject(vdir::makeVdirApplication(
          std::string(reinterpret_cast<const char*>(utf8.data()), utf8.size())));
    } catch (const std::bad_alloc&) {
      return E_OUTOFMEMORY;
    } catch (const std::exception& e) {
      return creationFailed(E_FAIL,
                            L"Cannot open the store " + root + L": " + win32::widen(e.what()));
    }
    return handOut(app, iid, out);
  }
  HRESULT STDMETHODCALLTYPE LockServer(BOOL lock) override {
    g_locks += lock ? 1 : -1;
    return S_OK;
  }

 private:
  LONG refs_ = 1;
  bool dialog_;
};

}  // namespace

std::wstring dossync::standin::modulePath() {
  wchar_t path[MAX_PATH] = {};
  return std::wstring(path, ::GetModuleFileNameW(g_module, path, MAX_PATH));
}

extern "C" {

BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID) {
  if (reason == DLL_PROCESS_ATTACH) {
    g_module = instance;
    ::DisableThreadLibraryCalls(instance);
  }
  return TRUE;
}

STDAPI DllGetClassObject(REFCLSID clsid, REFIID iid, void** out) {
  if (!out) return E_POINTER;
  *out = nullptr;
  const bool dialog = IsEqualCLSID(clsid, dossync::standin::kDialogClsid);
  if (!dialog && !IsEqualCLSID(clsid, kClsid)) return CLASS_E_CLASSNOTAVAILABLE;
  auto* factory = new (std::nothrow) Factory(dialog);
  return factory ? handOut(factory, iid, out) : E_OUTOFMEMORY;
}

STDAPI DllCanUnloadNow() {
  return dossync::standin::liveObjects() == 0 && dossync::standin::liveDialogs() == 0 &&
                 g_locks == 0 && g_factories == 0
             ? S_OK
             : S_FALSE;
}

STDAPI DllRegisterServer() {
  std::wstring path = dossync::standin::modulePath();
  if (path.empty()) return SELFREG_E_CLASS;
  return dossync::win32::registerInprocClass(kClass, path);
}

STDAPI DllUnregisterServer() {
  return dossync::win32::unregisterInprocClass(kClass);
}

}  // extern "C"
