// What both public classes share: reference counting (the module counts live objects),
// IDispatch through the type library's description of the dual interface Itf (ITypeInfo::Invoke
// does the argument conversion late-bound clients need), IProvideClassInfo2 and
// ISupportErrorInfo. A class adds its own interfaces through queryMore.
// Thread use: the host's single-threaded apartment.
#pragma once

#include <windows.h>
#include <ocidl.h>

#include "com_server/module.h"

namespace dossync::com {

template <class Itf>
class DualObject : public Itf, public IProvideClassInfo2, public ISupportErrorInfo {
 public:
  DualObject(const DualObject&) = delete;
  DualObject& operator=(const DualObject&) = delete;

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override {
    if (!out) return E_POINTER;
    *out = nullptr;
    if (IsEqualIID(iid, IID_IUnknown) || IsEqualIID(iid, IID_IDispatch) || IsEqualIID(iid, iid_))
      *out = static_cast<Itf*>(this);
    else if (IsEqualIID(iid, IID_IProvideClassInfo) || IsEqualIID(iid, IID_IProvideClassInfo2))
      *out = static_cast<IProvideClassInfo2*>(this);
    else if (IsEqualIID(iid, IID_ISupportErrorInfo))
      *out = static_cast<ISupportErrorInfo*>(this);
    else
      *out = queryMore(iid);
    if (!*out) return E_NOINTERFACE;
    AddRef();
    return S_OK;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return InterlockedIncrement(&refs_); }
  ULONG STDMETHODCALLTYPE Release() override {
    ULONG n = InterlockedDecrement(&refs_);
    if (n == 0) delete this;
    return n;
  }

  HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT* count) override {
    if (!count) return E_POINTER;
    *count = typeInfo_ ? 1 : 0;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT index, LCID, ITypeInfo** info) override {
    if (!info) return E_POINTER;
    *info = nullptr;
    if (index != 0) return DISP_E_BADINDEX;
    if (!typeInfo_) return E_FAIL;
    typeInfo_->AddRef();
    *info = typeInfo_;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID, LPOLESTR* names, UINT count, LCID,
                                          DISPID* ids) override {
    return typeInfo_ ? typeInfo_->GetIDsOfNames(names, count, ids) : E_FAIL;
  }
  HRESULT STDMETHODCALLTYPE Invoke(DISPID id, REFIID, LCID, WORD flags, DISPPARAMS* params,
                                   VARIANT* result, EXCEPINFO* excep, UINT* argErr) override {
    if (!typeInfo_) return E_FAIL;
    return typeInfo_->Invoke(static_cast<Itf*>(this), id, flags, params, result, excep, argErr);
  }

  HRESULT STDMETHODCALLTYPE GetClassInfo(ITypeInfo** info) override {
    if (!info) return E_POINTER;
    *info = typeInfo(clsid_);
    return *info ? S_OK : E_FAIL;
  }
  HRESULT STDMETHODCALLTYPE GetGUID(DWORD kind, GUID* guid) override {
    if (!guid) return E_POINTER;
    *guid = GUID_NULL;
    if (kind != GUIDKIND_DEFAULT_SOURCE_DISP_IID) return E_INVALIDARG;
    *guid = defaultSource();
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE InterfaceSupportsErrorInfo(REFIID iid) override {
    return IsEqualIID(iid, iid_) ? S_OK : S_FALSE;
  }

 protected:
  DualObject(const IID& iid, const CLSID& clsid)
      : iid_(iid), clsid_(clsid), typeInfo_(typeInfo(iid)) {
    objectCreated();
    apartmentObjectCreated();
  }
  virtual ~DualObject() {
    if (typeInfo_) typeInfo_->Release();
    apartmentObjectDestroyed();
    objectDestroyed();
  }
  // Holds the object for the length of a call into the component: a host may let go of its
  // last reference while the component is still at work below the call (in its ExitProgram
  // handler, say); the object goes when the call has returned.
  class Hold {
   public:
    explicit Hold(DualObject* object) : object_(object) { object_->AddRef(); }
    ~Hold() { object_->Release(); }
    Hold(const Hold&) = delete;
    Hold& operator=(const Hold&) = delete;

   private:
    DualObject* object_;
  };
  // Another interface of the object (not AddRef'd), or nullptr.
  virtual void* queryMore(REFIID) { return nullptr; }
  // The class's default event interface; GUID_NULL when it has none.
  virtual GUID defaultSource() { return GUID_NULL; }

 private:
  LONG refs_ = 1;
  const IID& iid_;
  const CLSID& clsid_;
  ITypeInfo* typeInfo_;
};

}  // namespace dossync::com
