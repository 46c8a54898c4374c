#include "dialog.h"

#include <ocidl.h>
#include <olectl.h>

#include <atomic>

#include "platform/win32/automation.h"

namespace dossync::standin {

// {7A9A54EF-A4EC-444D-BF86-22A4D602E2A0}, as dialog_standin.idl names the class.
const CLSID kDialogClsid = {
    0x7a9a54ef, 0xa4ec, 0x444d, {0xbf, 0x86, 0x22, 0xa4, 0xd6, 0x02, 0xe2, 0xa0}};

namespace {

// _outlookDialog and __outlookDialog of dialog_standin.idl.
const IID kDialogIid = {
    0x1df74177, 0xf267, 0x4152, {0xb8, 0xf0, 0xc5, 0x37, 0x77, 0xa0, 0x35, 0x2f}};
const IID kEventsIid = {
    0x33525f63, 0xb5ef, 0x4cf3, {0x82, 0x8c, 0x99, 0x09, 0x30, 0x5e, 0xcd, 0x13}};

std::atomic<long> g_live{0};
std::string g_log;

const char* const kNames[] = {"Caption", "Kind",     "Parent", "Low",         "High",
                              "Bar",     "Position", "Second", "Cancellable", "Code"};

ITypeInfo* dialogTypeInfo() {
  ITypeLib* lib = nullptr;
  if (FAILED(::LoadTypeLibEx(modulePath().c_str(), REGKIND_NONE, &lib))) return nullptr;
  ITypeInfo* info = nullptr;
  lib->GetTypeInfoOfGuid(kDialogIid, &info);
  lib->Release();
  return info;
}

class DialogObject final : public win32::DispatchServer,
                           public IConnectionPointContainer,
                           public IConnectionPoint {
 public:
  explicit DialogObject(ITypeInfo* info) : info_(info) { ++g_live; }
  ~DialogObject() override {
    if (sink_) sink_->Release();
    info_->Release();
    --g_live;
  }

  // IUnknown, once for the three interfaces.
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override {
    if (out && IsEqualIID(iid, IID_IConnectionPointContainer)) {
      *out = static_cast<IConnectionPointContainer*>(this);
      AddRef();
      return S_OK;
    }
    return DispatchServer::QueryInterface(IsEqualIID(iid, kDialogIid) ? IID_IDispatch : iid, out);
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return DispatchServer::AddRef(); }
  ULONG STDMETHODCALLTYPE Release() override { return DispatchServer::Release(); }

  // IDispatch, by the type library's DISPIDs.
  HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT* count) override {
    *count = 1;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT, LCID, ITypeInfo** info) override {
    info_->AddRef();
    *info = info_;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID, LPOLESTR* names, UINT count, LCID,
                                          DISPID* ids) override {
    return info_->GetIDsOfNames(names, count, ids);
  }

  // IConnectionPointContainer: the one point is the object itself.
  HRESULT STDMETHODCALLTYPE EnumConnectionPoints(IEnumConnectionPoints**) override {
    return E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE FindConnectionPoint(REFIID iid, IConnectionPoint** point) override {
    *point = nullptr;
    if (!IsEqualIID(iid, kEventsIid)) return CONNECT_E_NOCONNECTION;
    *point = this;
    AddRef();
    return S_OK;
  }
  // IConnectionPoint: one sink at a time.
  HRESULT STDMETHODCALLTYPE GetConnectionInterface(IID* iid) override {
    *iid = kEventsIid;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetConnectionPointContainer(IConnectionPointContainer** c) override {
    *c = this;
    AddRef();
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE Advise(IUnknown* sink, DWORD* cookie) override {
    if (sink_) return CONNECT_E_ADVISELIMIT;
    if (FAILED(sink->QueryInterface(kEventsIid, reinterpret_cast<void**>(&sink_))))
      return CONNECT_E_CANNOTCONNECT;
    *cookie = 1;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE Unadvise(DWORD cookie) override {
    if (cookie != 1 || !sink_) return CONNECT_E_NOCONNECTION;
    sink_->Release();
    sink_ = nullptr;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE EnumConnections(IEnumConnections**) override { return E_NOTIMPL; }

 protected:
  HRESULT invokeMember(DISPID id, WORD flags, DISPPARAMS* params, VARIANT* result) override {
    const bool put = (flags & (DISPATCH_PROPERTYPUT | DISPATCH_PROPERTYPUTREF)) != 0;
    if (put && id >= 1 && id <= 10) {
      win32::Variant v = assigned(params);
      if (id == 7) position_ = v.toInt32();
      if (!shown_) {
        std::string text = id == 3 ? (v.toDispatch() ? "object" : "Nothing") : v.toString();
        g_log += std::string(kNames[id - 1]) + (flags & DISPATCH_PROPERTYPUTREF ? ":=" : "=") +
                 text + "|";
      }
    } else if (!put && id == 7) {
      win32::Variant(position_).copyTo(result);
    } else if (!put && id == 11) {
      shown_ = true;
      g_log += "Show|";
      if (sink_) {
        win32::ComPtr<IDispatch> sink(sink_);
        DISPPARAMS none{nullptr, nullptr, 0, 0};
        sink->Invoke(1, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_METHOD, &none, nullptr, nullptr,
                     nullptr);
      }
    } else if (!put && id == 12) {
      g_log += "Close at " + std::to_string(position_) + "|";
    } else {
      return DISP_E_MEMBERNOTFOUND;
    }
    return S_OK;
  }

 private:
  ITypeInfo* info_;
  IDispatch* sink_ = nullptr;
  int32_t position_ = 0;
  bool shown_ = false;
};

}  // namespace

IDispatch* newDialogObject() {
  ITypeInfo* info = dialogTypeInfo();
  if (!info) return nullptr;
  g_log.clear();
  return static_cast<IDispatch*>(new DialogObject(info));
}

std::string dialogLog() {
  return g_log;
}

long liveDialogs() {
  return g_live.load();
}

}  // namespace dossync::standin
