// The COM face of clsOutlookSynchronization: the dual interface _clsOutlookSynchronization
// (IDispatch through the type library), the event ExitProgram through a connection point of
// __clsOutlookSynchronization, IProvideClassInfo2 and ISupportErrorInfo.
//
// Each member converts Automation types to the component's and calls it; nothing fails towards
// the host: members answer S_OK (E_POINTER only for a missing out pointer), and what goes wrong
// inside is the component's to report through the host's error service.
//
// The host's objects (errorClass, MsgboxClass, MDIForm) are kept as late-bound references
// (host_services.h). companyCollection is the component's own collection object
// (selection_object.h); a host may set its own instead, whose items (Count, Item(1..Count))
// are read when Synchronize starts.
//
// Ownership: COM reference counting; the component lives as long as this object. Each member
// holds the object for the length of its call (Hold), so that a host may release its last
// reference in its ExitProgram handler while the component is still at work.
// Thread use: created and called in the host's single-threaded apartment.
#pragma once

#include <windows.h>
#include <ocidl.h>

#include <memory>
#include <vector>

#include "com_server/dual_object.h"
#include "core/synchronization.h"
#include "kvoutlookdx_h.h"
#include "platform/win32/automation.h"

namespace dossync::com {

class SyncObject final : public DualObject<_clsOutlookSynchronization>,
                         public IConnectionPointContainer {
 public:
  SyncObject();
  ~SyncObject() override;

  // IUnknown of the container face: the object's own.
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override {
    return DualObject::QueryInterface(iid, out);
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return DualObject::AddRef(); }
  ULONG STDMETHODCALLTYPE Release() override { return DualObject::Release(); }
  // _clsOutlookSynchronization, in interface order.
  HRESULT STDMETHODCALLTYPE get_companyCollection(IDispatch** value) override;
  HRESULT STDMETHODCALLTYPE putref_companyCollection(IDispatch* value) override;
  HRESULT STDMETHODCALLTYPE putref_errorClass(IDispatch* value) override;
  HRESULT STDMETHODCALLTYPE putref_MsgboxClass(IDispatch* value) override;
  HRESULT STDMETHODCALLTYPE putref_MDIForm(IDispatch* value) override;
  HRESULT STDMETHODCALLTYPE put_MainDatabaseLocation(BSTR value) override;
  HRESULT STDMETHODCALLTYPE get_MainDatabaseLocation(BSTR* value) override;
  HRESULT STDMETHODCALLTYPE put_SyncDatabaseLocation(BSTR value) override;
  HRESULT STDMETHODCALLTYPE get_SyncDatabaseLocation(BSTR* value) override;
  HRESULT STDMETHODCALLTYPE put_TempFolder(BSTR value) override;
  HRESULT STDMETHODCALLTYPE get_TempFolder(BSTR* value) override;
  HRESULT STDMETHODCALLTYPE get_FailedToInitializeFlag(VARIANT_BOOL* value) override;
  HRESULT STDMETHODCALLTYPE put_SyncDirectionType(::outlookSyncTypeEnum value) override;
  HRESULT STDMETHODCALLTYPE get_SyncDirectionType(::outlookSyncTypeEnum* value) override;
  HRESULT STDMETHODCALLTYPE put_SyncInformationType(::syncInformationTypeEnum value) override;
  HRESULT STDMETHODCALLTYPE get_SyncInformationType(::syncInformationTypeEnum* value) override;
  HRESULT STDMETHODCALLTYPE get_showProgress(VARIANT_BOOL* value) override;
  HRESULT STDMETHODCALLTYPE put_showProgress(VARIANT_BOOL value) override;
  HRESULT STDMETHODCALLTYPE put_AppName(BSTR value) override;
  HRESULT STDMETHODCALLTYPE get_AppName(BSTR* value) override;
  HRESULT STDMETHODCALLTYPE get_OutlookCategory(BSTR* value) override;
  HRESULT STDMETHODCALLTYPE put_OutlookCategory(BSTR value) override;
  HRESULT STDMETHODCALLTYPE get_Profile(BSTR* value) override;
  HRESULT STDMETHODCALLTYPE put_Profile(BSTR value) override;
  HRESULT STDMETHODCALLTYPE get_Password(BSTR* value) override;
  HRESULT STDMETHODCALLTYPE put_Password(BSTR value) override;
  HRESULT STDMETHODCALLTYPE get_DisplayLoginDialog(VARIANT_BOOL* value) override;
  HRESULT STDMETHODCALLTYPE put_DisplayLoginDialog(VARIANT_BOOL value) override;
  HRESULT STDMETHODCALLTYPE get_OpenNewSession(VARIANT_BOOL* value) override;
  HRESULT STDMETHODCALLTYPE put_OpenNewSession(VARIANT_BOOL value) override;
  HRESULT STDMETHODCALLTYPE get_RefreshData(VARIANT_BOOL* value) override;
  HRESULT STDMETHODCALLTYPE put_RefreshData(VARIANT_BOOL value) override;
  HRESULT STDMETHODCALLTYPE get_closeOutlookWhenFinished(VARIANT_BOOL* value) override;
  HRESULT STDMETHODCALLTYPE put_closeOutlookWhenFinished(VARIANT_BOOL value) override;
  HRESULT STDMETHODCALLTYPE put_companyList(::companyListType value) override;
  HRESULT STDMETHODCALLTYPE get_companyList(::companyListType* value) override;
  HRESULT STDMETHODCALLTYPE get_DataFileUniqueID(BSTR* value) override;
  HRESULT STDMETHODCALLTYPE put_DataFileUniqueID(BSTR value) override;
  HRESULT STDMETHODCALLTYPE get_SchemeID(LONG* value) override;
  HRESULT STDMETHODCALLTYPE put_SchemeID(LONG value) override;
  HRESULT STDMETHODCALLTYPE openMainDatabase(BSTR fileName, VARIANT_BOOL* result) override;
  HRESULT STDMETHODCALLTYPE resetOutlookSchemeToDefault() override;
  HRESULT STDMETHODCALLTYPE openSynchForm() override;
  HRESULT STDMETHODCALLTYPE Synchronize(VARIANT_BOOL* result) override;
  HRESULT STDMETHODCALLTYPE StartOutlook(VARIANT_BOOL* result) override;
  HRESULT STDMETHODCALLTYPE StopOutlook(VARIANT_BOOL* result) override;
  // IConnectionPointContainer
  HRESULT STDMETHODCALLTYPE EnumConnectionPoints(IEnumConnectionPoints** e) override;
  HRESULT STDMETHODCALLTYPE FindConnectionPoint(REFIID iid, IConnectionPoint** point) override;

 private:
  void* queryMore(REFIID iid) override;
  GUID defaultSource() override { return DIID___clsOutlookSynchronization; }
  class EventPoint;
  void fireExitProgram();
  // The host's own collection, when it set one: its items become the component's selection.
  void takeHostSelection();

  std::unique_ptr<clsOutlookSynchronization> component_;
  win32::ComPtr<IDispatch> collection_;  // what get_companyCollection answers
  bool hostCollection_ = false;          // collection_ is the host's, not ours
  EventPoint* events_ = nullptr;         // owned (one reference)
};

}  // namespace dossync::com
