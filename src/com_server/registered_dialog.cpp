#include "com_server/registered_dialog.h"

#include <windows.h>
#include <ocidl.h>
#include <oleauto.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "com_server/host_services.h"
#include "com_server/module.h"
#include "platform/win32/automation.h"

namespace dossync::com {

namespace {

using win32::ComPtr;
using win32::Variant;

constexpr int kSettings = 10;
constexpr int kValueSetting = 6;  // the seventh: the bar's value
const char* const kLabel = "kvdlgbox3.outlookDialog";

[[noreturn]] void fail(const std::string& what) {
  throw RuntimeError(kCannotCreateObject, std::string(kLabel) + ": " + what, kLabel);
}

// Receives the dialog's events; the start notification runs the work.
class EventSink final : public win32::DispatchServer {
 public:
  EventSink(const IID& source, DISPID start, std::function<void()> work)
      : source_(source), start_(start), work_(std::move(work)) {}

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override {
    if (out && IsEqualIID(iid, source_)) {
      *out = static_cast<IDispatch*>(this);
      AddRef();
      return S_OK;
    }
    return DispatchServer::QueryInterface(iid, out);
  }

 protected:
  HRESULT invokeMember(DISPID id, WORD, DISPPARAMS*, VARIANT*) override {
    if (id == start_ && work_) {
      auto work = work_;  // the work may end the connection, and with it this object's hold
      work();
    }
    return S_OK;  // other events are not ours to answer
  }
  std::string label() const override { return kLabel; }

 private:
  IID source_;
  DISPID start_;
  std::function<void()> work_;
  ModuleReference module_;
};

class RegisteredProgressDialog final : public IProgressDialog {
 public:
  RegisteredProgressDialog(ComPtr<IDispatch> dialog, const CLSID& clsid)
      : object_(std::move(dialog)), dialog_(object_.get(), kLabel) {
    ComPtr<ITypeInfo> info;
    if (FAILED(object_->GetTypeInfo(0, LOCALE_USER_DEFAULT, info.put())) || !info)
      fail("the dialog has no type information");
    readSettings(info.get());
    findStartEvent(info.get(), clsid);
  }
  ~RegisteredProgressDialog() override { disconnect(); }

  void setMessage(const std::string& text) override { set(0, Variant(text)); }
  void setStyle(int32_t style) override { set(1, Variant(style)); }
  void setOwner(ObjectPtr owner) override { set(2, Variant(ownerDispatch(owner))); }
  void setMinimum(int32_t value) override { set(3, Variant(value)); }
  void setMaximum(int32_t value) override { set(4, Variant(value)); }
  void setShowBar(bool show) override { set(5, Variant(show)); }
  void setValue(int32_t value) override { set(kValueSetting, Variant(value)); }
  void setSecondaryValue(int32_t value) override { set(7, Variant(value)); }
  void setAllowCancel(bool allow) override { set(8, Variant(allow)); }
  void setNumber(int32_t number) override { set(9, Variant(number)); }

  void setStartHandler(std::function<void()> handler) override {
    disconnect();
    ComPtr<IConnectionPointContainer> container;
    if (FAILED(object_->QueryInterface(IID_IConnectionPointContainer,
                                       reinterpret_cast<void**>(container.put()))))
      fail("the dialog raises no events");
    HRESULT hr = container->FindConnectionPoint(source_, point_.put());
    if (FAILED(hr)) win32::throwHresult(hr, std::string(kLabel) + ": no start event");
    auto* sink = new EventSink(source_, startEvent_, std::move(handler));
    hr = point_->Advise(static_cast<IDispatch*>(sink), &cookie_);
    sink->Release();
    if (FAILED(hr)) {
      point_ = {};
      win32::throwHresult(hr, std::string(kLabel) + ": cannot receive its start event");
    }
  }
  void show() override { dialog_.call("Show"); }
  int32_t value() const override {
    return invoke(settings_[kValueSetting].id, DISPATCH_PROPERTYGET, nullptr).toInt32();
  }
  void setStatus(const std::string& text) override {
    if (dialog_.has("Status")) dialog_.put("Status", Variant(text));
  }
  void close() override {
    dialog_.call("Close");
    // The sink holds the work (and through it the component): let go of it.
    disconnect();
  }

 private:
  struct Setting {
    DISPID id;
    int kinds;  // INVOKE_PROPERTYPUT and/or INVOKE_PROPERTYPUTREF
  };

  // The properties that can be set, in the order the interface lists them.
  void readSettings(ITypeInfo* info) {
    TYPEATTR* attr = nullptr;
    if (FAILED(info->GetTypeAttr(&attr))) fail("unreadable type information");
    const WORD functions = attr->cFuncs;
    info->ReleaseTypeAttr(attr);
    for (WORD i = 0; i < functions; ++i) {
      FUNCDESC* f = nullptr;
      if (FAILED(info->GetFuncDesc(i, &f))) continue;
      const int kind = f->invkind & (INVOKE_PROPERTYPUT | INVOKE_PROPERTYPUTREF);
      const DISPID id = f->memid;
      info->ReleaseFuncDesc(f);
      if (!kind) continue;
      bool known = false;
      for (Setting& s : settings_) {
        if (s.id == id) {
          s.kinds |= kind;
          known = true;
        }
      }
      if (!known) settings_.push_back({id, kind});
    }
    if (settings_.size() < kSettings)
      fail("its interface has " + std::to_string(settings_.size()) + " settable properties, not " +
           std::to_string(kSettings));
  }

  // The default source interface of the dialog's class, and its start event in it.
  void findStartEvent(ITypeInfo* info, const CLSID& clsid) {
    ComPtr<ITypeLib> library;
    UINT index = 0;
    ComPtr<ITypeInfo> coclass;
    if (FAILED(info->GetContainingTypeLib(library.put(), &index)) ||
        FAILED(library->GetTypeInfoOfGuid(clsid, coclass.put())))
      fail("its class is not described in its type library");
    TYPEATTR* attr = nullptr;
    if (FAILED(coclass->GetTypeAttr(&attr))) fail("unreadable class description");
    const WORD implemented = attr->cImplTypes;
    coclass->ReleaseTypeAttr(attr);
    ComPtr<ITypeInfo> source;
    for (UINT i = 0; i < implemented && !source; ++i) {
      INT flags = 0;
      HREFTYPE ref = 0;
      if (SUCCEEDED(coclass->GetImplTypeFlags(i, &flags)) && (flags & IMPLTYPEFLAG_FSOURCE) &&
          (flags & IMPLTYPEFLAG_FDEFAULT) && SUCCEEDED(coclass->GetRefTypeOfImplType(i, &ref)))
        coclass->GetRefTypeInfo(ref, source.put());
    }
    if (!source) fail("its class raises no events");
    if (FAILED(source->GetTypeAttr(&attr))) fail("unreadable event description");
    source_ = attr->guid;
    const WORD events = attr->cFuncs;
    source->ReleaseTypeAttr(attr);
    std::wstring name = L"StartProgress";
    LPOLESTR names[] = {name.data()};
    MEMBERID id = MEMBERID_NIL;
    if (FAILED(source->GetIDsOfNames(names, 1, &id))) {
      FUNCDESC* f = nullptr;
      if (events == 0 || FAILED(source->GetFuncDesc(0, &f))) fail("its class raises no events");
      id = f->memid;
      source->ReleaseFuncDesc(f);
    }
    startEvent_ = id;
  }

  void set(int position, const Variant& value) {
    const Setting& s = settings_[position];
    const bool object = value.get()->vt == VT_DISPATCH;
    const WORD flags =
        (object && (s.kinds & INVOKE_PROPERTYPUTREF)) || !(s.kinds & INVOKE_PROPERTYPUT)
            ? DISPATCH_PROPERTYPUTREF
            : DISPATCH_PROPERTYPUT;
    invoke(s.id, flags, &value);
  }

  Variant invoke(DISPID id, WORD flags, const Variant* value) const {
    VARIANT arg = value ? *value->get() : VARIANT{};
    DISPID named = DISPID_PROPERTYPUT;
    DISPPARAMS params{value ? &arg : nullptr, value ? &named : nullptr, value ? 1u : 0u,
                      value ? 1u : 0u};
    Variant result;
    EXCEPINFO exception{};
    HRESULT hr = object_->Invoke(id, IID_NULL, LOCALE_USER_DEFAULT, flags, &params,
                                 value ? nullptr : result.out(), &exception, nullptr);
    if (hr == DISP_E_EXCEPTION) {
      if (exception.pfnDeferredFillIn) exception.pfnDeferredFillIn(&exception);
      std::string description = win32::narrow(exception.bstrDescription);
      ::SysFreeString(exception.bstrDescription);
      ::SysFreeString(exception.bstrSource);
      ::SysFreeString(exception.bstrHelpFile);
      throw RuntimeError(exception.wCode ? exception.wCode : static_cast<int32_t>(exception.scode),
                         description.empty() ? std::string(kLabel) + " failed" : description,
                         kLabel);
    }
    if (FAILED(hr)) win32::throwHresult(hr, std::string(kLabel) + " member " + std::to_string(id));
    return result;
  }

  void disconnect() noexcept {
    if (point_) point_->Unadvise(cookie_);
    point_ = {};
    cookie_ = 0;
  }

  ComPtr<IDispatch> object_;
  mutable win32::Dispatch dialog_;
  std::vector<Setting> settings_;
  IID source_ = IID_NULL;
  DISPID startEvent_ = DISPID_UNKNOWN;
  ComPtr<IConnectionPoint> point_;
  DWORD cookie_ = 0;
};

}  // namespace

std::shared_ptr<IProgressDialog> registeredProgressDialog(const wchar_t* progId) {
  CLSID clsid;
  if (FAILED(CLSIDFromProgID(progId, &clsid))) return nullptr;
  ComPtr<IDispatch> dialog;
  HRESULT hr = CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER | CLSCTX_LOCAL_SERVER,
                                IID_IDispatch, reinterpret_cast<void**>(dialog.put()));
  if (FAILED(hr)) win32::throwHresult(hr, std::string("Cannot create ") + kLabel);
  return std::make_shared<RegisteredProgressDialog>(std::move(dialog), clsid);
}

}  // namespace dossync::com
