// The class factory DllGetClassObject hands out: makes a new T (reference count 1) for each
// CreateInstance and counts itself and its locks in the module (DllCanUnloadNow). No
// aggregation. Thread use: the host's apartment.
#pragma once

#include <windows.h>
#include <unknwn.h>

#include <new>

#include "com_server/module.h"

namespace dossync::com {

template <class T>
class ClassFactory final : public IClassFactory {
 public:
  ClassFactory() { objectCreated(); }
  ~ClassFactory() { objectDestroyed(); }

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
  ULONG STDMETHODCALLTYPE AddRef() override { return InterlockedIncrement(&refs_); }
  ULONG STDMETHODCALLTYPE Release() override {
    ULONG n = InterlockedDecrement(&refs_);
    if (n == 0) delete this;
    return n;
  }
  HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID iid, void** out) override {
    if (!out) return E_POINTER;
    *out = nullptr;
    if (outer) return CLASS_E_NOAGGREGATION;
    try {
      wireBackEnds();
      T* object = new T();
      HRESULT hr = object->QueryInterface(iid, out);
      object->Release();
      return hr;
    } catch (const std::bad_alloc&) {
      return E_OUTOFMEMORY;
    } catch (...) {
      return E_UNEXPECTED;
    }
  }
  HRESULT STDMETHODCALLTYPE LockServer(BOOL lock) override {
    lockServer(lock != FALSE);
    return S_OK;
  }

 private:
  LONG refs_ = 1;
};

}  // namespace dossync::com
