#include "com_server/sync_object.h"

#include <olectl.h>

#include <algorithm>

#include "com_server/boundary.h"
#include "com_server/host_services.h"
#include "com_server/module.h"
#include "com_server/run_reports.h"
#include "com_server/selection_object.h"

namespace dossync::com {

// The one connection point: sinks of __clsOutlookSynchronization (IDispatch). Holds a reference
// to nothing: the container owns it and outlives every use a client can make of it through
// the container's reference it keeps.
class SyncObject::EventPoint final : public IConnectionPoint {
 public:
  explicit EventPoint(IConnectionPointContainer* container) : container_(container) {}

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override {
    if (!out) return E_POINTER;
    if (IsEqualIID(iid, IID_IUnknown) || IsEqualIID(iid, IID_IConnectionPoint)) {
      *out = static_cast<IConnectionPoint*>(this);
      AddRef();
      return S_OK;
    }
    *out = nullptr;
    return E_NOINTERFACE;
  }
  // The point lives as long as its container: its references are the container's.
  ULONG STDMETHODCALLTYPE AddRef() override { return container_->AddRef(); }
  ULONG STDMETHODCALLTYPE Release() override { return container_->Release(); }

  HRESULT STDMETHODCALLTYPE GetConnectionInterface(IID* iid) override {
    if (!iid) return E_POINTER;
    *iid = DIID___clsOutlookSynchronization;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetConnectionPointContainer(IConnectionPointContainer** c) override {
    if (!c) return E_POINTER;
    *c = container_;
    container_->AddRef();
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE Advise(IUnknown* sink, DWORD* cookie) override try {
    if (!sink || !cookie) return E_POINTER;
    IDispatch* d = nullptr;
    if (FAILED(
            sink->QueryInterface(DIID___clsOutlookSynchronization, reinterpret_cast<void**>(&d))) &&
        FAILED(sink->QueryInterface(IID_IDispatch, reinterpret_cast<void**>(&d))))
      return CONNECT_E_CANNOTCONNECT;
    auto held = win32::ComPtr<IDispatch>::adopt(d);
    sinks_.push_back({nextCookie_, held});
    *cookie = nextCookie_++;
    return S_OK;
  } catch (...) {
    return E_OUTOFMEMORY;
  }
  HRESULT STDMETHODCALLTYPE Unadvise(DWORD cookie) override {
    auto it = std::find_if(sinks_.begin(), sinks_.end(),
                           [&](const Sink& s) { return s.cookie == cookie; });
    if (it == sinks_.end()) return CONNECT_E_NOCONNECTION;
    sinks_.erase(it);
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE EnumConnections(IEnumConnections**) override { return E_NOTIMPL; }

  // Raises ExitProgram (DISPID 1, no arguments) on every sink; a sink that fails is skipped.
  void fire() {
    std::vector<win32::ComPtr<IDispatch>> targets;
    for (const Sink& s : sinks_) targets.push_back(s.sink);
    for (auto& t : targets) {
      DISPPARAMS none{nullptr, nullptr, 0, 0};
      t->Invoke(1, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_METHOD, &none, nullptr, nullptr,
                nullptr);
    }
  }

 private:
  struct Sink {
    DWORD cookie;
    win32::ComPtr<IDispatch> sink;
  };
  IConnectionPointContainer* container_;
  std::vector<Sink> sinks_;
  DWORD nextCookie_ = 1;
};

SyncObject::SyncObject()
    : DualObject(IID__clsOutlookSynchronization, CLSID_clsOutlookSynchronization) {
  events_ = new EventPoint(this);
  guard([&] {
    useWindowsUi();
    component_ = std::make_unique<clsOutlookSynchronization>();
    registerComponentObject(component_.get(), static_cast<_clsOutlookSynchronization*>(this));
    component_->subscribeExitProgram([this] { fireExitProgram(); });
    component_->setRunObserver(reportingObserver(*component_));
  });
}

SyncObject::~SyncObject() {
  guard([&] {
    unregisterComponentObject(component_.get());
    component_.reset();
  });
  delete events_;
}

void* SyncObject::queryMore(REFIID iid) {
  return IsEqualIID(iid, IID_IConnectionPointContainer)
             ? static_cast<IConnectionPointContainer*>(this)
             : nullptr;
}

// ---- Properties.

HRESULT SyncObject::get_companyCollection(IDispatch** value) {
  Hold hold(this);
  if (!value) return E_POINTER;
  *value = nullptr;
  guard([&] {
    auto selection = component_->companyCollection();
    // Our object follows the component's selection; a host's object stays what the host set.
    if (!hostCollection_ && (!collection_ || selectionOf(collection_.get()) != selection))
      collection_ = selection ? win32::ComPtr<IDispatch>::adopt(newSelectionObject(selection))
                              : win32::ComPtr<IDispatch>();
    if (collection_) {
      collection_->AddRef();
      *value = collection_.get();
    }
  });
  return S_OK;
}

HRESULT SyncObject::putref_companyCollection(IDispatch* value) {
  Hold hold(this);
  guard([&] {
    collection_ = win32::ComPtr<IDispatch>(value);
    auto ours = value ? selectionOf(value) : nullptr;
    hostCollection_ = value && !ours;
    component_->setCompanyCollection(hostCollection_ ? std::make_shared<SelectionCollection>()
                                                     : ours);
  });
  return S_OK;
}

HRESULT SyncObject::putref_errorClass(IDispatch* value) {
  Hold hold(this);
  guard([&] { component_->setErrorClass(errorServiceFor(value)); });
  return S_OK;
}

HRESULT SyncObject::putref_MsgboxClass(IDispatch* value) {
  Hold hold(this);
  guard([&] { component_->setMsgboxClass(messageBoxFor(value)); });
  return S_OK;
}

HRESULT SyncObject::putref_MDIForm(IDispatch* value) {
  Hold hold(this);
  guard([&] { component_->setMDIForm(hostObject(value)); });
  return S_OK;
}

#define DOSSYNC_TEXT_PROPERTY(Name, getter, setter)              \
  HRESULT SyncObject::put_##Name(BSTR value) {                   \
    Hold hold(this);                                             \
    guard([&] { component_->setter(win32::narrow(value)); });    \
    return S_OK;                                                 \
  }                                                              \
  HRESULT SyncObject::get_##Name(BSTR* value) {                  \
    Hold hold(this);                                             \
    return outText(value, [&] { return component_->getter(); }); \
  }
#define DOSSYNC_BOOL_PROPERTY(Name, getter, setter)              \
  HRESULT SyncObject::put_##Name(VARIANT_BOOL value) {           \
    Hold hold(this);                                             \
    guard([&] { component_->setter(value != VARIANT_FALSE); });  \
    return S_OK;                                                 \
  }                                                              \
  HRESULT SyncObject::get_##Name(VARIANT_BOOL* value) {          \
    Hold hold(this);                                             \
    return outBool(value, [&] { return component_->getter(); }); \
  }
#define DOSSYNC_LONG_PROPERTY(Name, Type, getter, setter)             \
  HRESULT SyncObject::put_##Name(Type value) {                        \
    Hold hold(this);                                                  \
    guard([&] { component_->setter(static_cast<int32_t>(value)); });  \
    return S_OK;                                                      \
  }                                                                   \
  HRESULT SyncObject::get_##Name(Type* value) {                       \
    if (!value) return E_POINTER;                                     \
    Hold hold(this);                                                  \
    *value = static_cast<Type>(0);                                    \
    guard([&] { *value = static_cast<Type>(component_->getter()); }); \
    return S_OK;                                                      \
  }

DOSSYNC_TEXT_PROPERTY(MainDatabaseLocation, MainDatabaseLocation, setMainDatabaseLocation)
DOSSYNC_TEXT_PROPERTY(SyncDatabaseLocation, SyncDatabaseLocation, setSyncDatabaseLocation)
DOSSYNC_TEXT_PROPERTY(TempFolder, TempFolder, setTempFolder)
DOSSYNC_LONG_PROPERTY(SyncDirectionType, ::outlookSyncTypeEnum, SyncDirectionType,
                      setSyncDirectionType)
DOSSYNC_LONG_PROPERTY(SyncInformationType, ::syncInformationTypeEnum, SyncInformationType,
                      setSyncInformationType)
DOSSYNC_BOOL_PROPERTY(showProgress, showProgress, setShowProgress)
DOSSYNC_TEXT_PROPERTY(AppName, AppName, setAppName)
DOSSYNC_TEXT_PROPERTY(OutlookCategory, OutlookCategory, setOutlookCategory)
DOSSYNC_TEXT_PROPERTY(Profile, Profile, setProfile)
DOSSYNC_TEXT_PROPERTY(Password, Password, setPassword)
DOSSYNC_BOOL_PROPERTY(DisplayLoginDialog, DisplayLoginDialog, setDisplayLoginDialog)
DOSSYNC_BOOL_PROPERTY(OpenNewSession, OpenNewSession, setOpenNewSession)
DOSSYNC_BOOL_PROPERTY(RefreshData, RefreshData, setRefreshData)
DOSSYNC_BOOL_PROPERTY(closeOutlookWhenFinished, closeOutlookWhenFinished,
                      setCloseOutlookWhenFinished)
DOSSYNC_LONG_PROPERTY(companyList, ::companyListType, companyList, setCompanyList)
DOSSYNC_TEXT_PROPERTY(DataFileUniqueID, DataFileUniqueID, setDataFileUniqueID)
DOSSYNC_LONG_PROPERTY(SchemeID, LONG, SchemeID, setSchemeID)

#undef DOSSYNC_TEXT_PROPERTY
#undef DOSSYNC_BOOL_PROPERTY
#undef DOSSYNC_LONG_PROPERTY

HRESULT SyncObject::get_FailedToInitializeFlag(VARIANT_BOOL* value) {
  Hold hold(this);
  return outBool(value, [&] { return component_->FailedToInitializeFlag(); });
}

// ---- Methods.

HRESULT SyncObject::openMainDatabase(BSTR fileName, VARIANT_BOOL* result) {
  Hold hold(this);
  return outBool(result, [&] { return component_->openMainDatabase(win32::narrow(fileName)); });
}

HRESULT SyncObject::resetOutlookSchemeToDefault() {
  Hold hold(this);
  guard([&] { component_->resetOutlookSchemeToDefault(); });
  return S_OK;
}

HRESULT SyncObject::openSynchForm() {
  Hold hold(this);
  guard([&] { component_->openSynchForm(); });
  return S_OK;
}

HRESULT SyncObject::Synchronize(VARIANT_BOOL* result) {
  Hold hold(this);
  return outBool(result, [&] {
    takeHostSelection();
    return component_->Synchronize();
  });
}

HRESULT SyncObject::StartOutlook(VARIANT_BOOL* result) {
  Hold hold(this);
  return outBool(result, [&] { return component_->StartOutlook(); });
}

HRESULT SyncObject::StopOutlook(VARIANT_BOOL* result) {
  Hold hold(this);
  return outBool(result, [&] { return component_->StopOutlook(); });
}

void SyncObject::takeHostSelection() {
  if (!hostCollection_ || !collection_) return;
  auto selection = std::make_shared<SelectionCollection>();
  // Each item stands for whatever the run walks: a company or contact number, or an Outlook
  // entry id.
  for (const std::string& item : readHostCollection(collection_.get()))
    selection->add(item, item, item);
  component_->setCompanyCollection(selection);
}

// The call that raised it holds the object (Hold): a sink that releases the host's last
// reference leaves the object alive until that call has returned.
void SyncObject::fireExitProgram() {
  events_->fire();
}

// ---- IConnectionPointContainer.

HRESULT SyncObject::EnumConnectionPoints(IEnumConnectionPoints** e) {
  if (e) *e = nullptr;
  return E_NOTIMPL;
}

HRESULT SyncObject::FindConnectionPoint(REFIID iid, IConnectionPoint** point) {
  if (!point) return E_POINTER;
  *point = nullptr;
  if (!IsEqualIID(iid, DIID___clsOutlookSynchronization)) return CONNECT_E_NOCONNECTION;
  *point = events_;
  events_->AddRef();
  return S_OK;
}

}  // namespace dossync::com
