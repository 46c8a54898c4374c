// C++ clients of kvoutlookdx.dll under Wine: one bound early through the type library's
// header, one sinking ExitProgram; what keeps the DLL loaded (DllCanUnloadNow); and dossync's
// Outlook by automation over the Outlook stand-in. Usage: com_clients.exe HOST_DB (a demo
// practice, Windows path). Prints "OK com clients" when every check held; exits 1 otherwise.
#include <windows.h>
#include <ocidl.h>

#include <cstdio>
#include <string>
#include <utility>

#include "backends/outlook_com/outlook_automation.h"
#include "kvoutlookdx_h.h"
#include "platform/win32/automation.h"
#include "test_client.h"

using dossync::win32::ComPtr;
using dossync::win32::Dispatch;
using dossync::win32::Variant;

namespace {

const wchar_t* const kComponentDll =
    sizeof(void*) == 8 ? L"kvoutlookdx64.dll" : L"kvoutlookdx32.dll";

// A new instance of the class by that interface, or null.
template <class T = _clsOutlookSynchronization>
ComPtr<T> create(REFCLSID clsid = CLSID_clsOutlookSynchronization,
                 REFIID iid = IID__clsOutlookSynchronization) {
  ComPtr<T> object;
  CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, iid,
                   reinterpret_cast<void**>(object.put()));
  return object;
}

ComPtr<IConnectionPoint> exitEvents(_clsOutlookSynchronization* c) {
  ComPtr<IConnectionPointContainer> container;
  c->QueryInterface(IID_IConnectionPointContainer, reinterpret_cast<void**>(container.put()));
  ComPtr<IConnectionPoint> point;
  if (container) container->FindConnectionPoint(DIID___clsOutlookSynchronization, point.put());
  return point;
}

// A run without a host database: an error inside the run, which the error service answers.
void failARun(_clsOutlookSynchronization* c) {
  c->put_showProgress(VARIANT_FALSE);
  ComPtr<IDispatch> collection;
  c->get_companyCollection(collection.put());
  Dispatch(collection.get(), "companyCollection").call("Add", {Variant(int32_t{1})});
  VARIANT_BOOL done = VARIANT_TRUE;
  c->Synchronize(&done);
}

// A sink of __clsOutlookSynchronization: counts ExitProgram (DISPID 1). Given the host's last
// reference to the component, the handler lets go of it, as a host releasing it there does.
class ExitSink final : public dossync::win32::DispatchServer {
 public:
  explicit ExitSink(IUnknown* held = nullptr) : held_(held) { addMember(L"ExitProgram", 1); }
  int exits = 0;

 protected:
  HRESULT invokeMember(DISPID id, WORD, DISPPARAMS*, VARIANT*) override {
    if (id != 1) return S_OK;
    ++exits;
    if (held_) std::exchange(held_, nullptr)->Release();
    return S_OK;
  }

 private:
  IUnknown* held_;
};

void earlyBound(const std::wstring& hostDb) {
  auto c = create();
  if (!c) return check(false, "early: CoCreateInstance");
  LONG scheme = 0;
  c->get_SchemeID(&scheme);
  check(scheme == -1, "early: SchemeID default");
  c->put_SchemeID(12);
  c->get_SchemeID(&scheme);
  check(scheme == 12, "early: SchemeID round trip");
  outlookSyncTypeEnum direction{};
  c->put_SyncDirectionType(syncFromOutlookToDossiera);
  c->get_SyncDirectionType(&direction);
  check(direction == syncFromOutlookToDossiera, "early: SyncDirectionType");
  VARIANT_BOOL opened = VARIANT_FALSE;
  dossync::win32::Bstr path(dossync::win32::narrow(hostDb.c_str()));
  c->openMainDatabase(path, &opened);
  check(opened == VARIANT_TRUE, "early: openMainDatabase on the demo practice");

  ComPtr<IProvideClassInfo2> info;
  c->QueryInterface(IID_IProvideClassInfo2, reinterpret_cast<void**>(info.put()));
  GUID source{};
  check(info && SUCCEEDED(info->GetGUID(GUIDKIND_DEFAULT_SOURCE_DISP_IID, &source)) &&
            IsEqualGUID(source, DIID___clsOutlookSynchronization),
        "early: IProvideClassInfo2 names the event interface");
  ComPtr<ISupportErrorInfo> errorInfo;
  c->QueryInterface(IID_ISupportErrorInfo, reinterpret_cast<void**>(errorInfo.put()));
  check(errorInfo && errorInfo->InterfaceSupportsErrorInfo(IID__clsOutlookSynchronization) == S_OK,
        "early: ISupportErrorInfo");

  auto m = create<_clsOutlookSendMail>(CLSID_clsOutlookSendMail, IID__clsOutlookSendMail);
  if (!m) return check(false, "early: clsOutlookSendMail");
  VARIANT_BOOL sent = VARIANT_TRUE;
  m->SendMail(&sent);
  check(sent == VARIANT_FALSE, "early: SendMail without a mail");
}

void events() {
  auto c = create();
  if (!c) return check(false, "events: CoCreateInstance");
  auto point = exitEvents(c.get());
  if (!point) return check(false, "events: connection point");

  auto* sink = new ExitSink();
  auto* errors = new TestErrorService(3);  // end the program
  DWORD cookie = 0;
  check(SUCCEEDED(point->Advise(sink, &cookie)), "events: Advise");
  c->putref_errorClass(errors);
  failARun(c.get());
  const int exits = sink->exits;
  check(errors->errors >= 1 && exits == errors->errors,
        "events: ExitProgram raised for each error (errors " + std::to_string(errors->errors) +
            ", exits " + std::to_string(exits) + ")");
  point->Unadvise(cookie);
  failARun(c.get());
  check(sink->exits == exits, "events: no event after Unadvise");
  sink->Release();
  errors->Release();
}

// What the host holds keeps the DLL loaded, and only that: the collection after the component;
// nothing once the host let go of everything, even from inside ExitProgram.
void lifetime() {
  using CanUnload = HRESULT(WINAPI*)();
  auto canUnload = reinterpret_cast<CanUnload>(
      reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(kComponentDll), "DllCanUnloadNow")));
  if (!canUnload) return check(false, "lifetime: DllCanUnloadNow");
  ComPtr<IDispatch> collection;
  {
    auto c = create();
    if (!c) return check(false, "lifetime: CoCreateInstance");
    c->get_companyCollection(collection.put());
  }
  check(collection && canUnload() == S_FALSE, "lifetime: the collection keeps the DLL");
  collection = {};
  check(canUnload() == S_OK, "lifetime: nothing held, the DLL may unload");

  // The host's one reference, which its handler lets go of.
  _clsOutlookSynchronization* c = nullptr;
  CoCreateInstance(CLSID_clsOutlookSynchronization, nullptr, CLSCTX_INPROC_SERVER,
                   IID__clsOutlookSynchronization, reinterpret_cast<void**>(&c));
  if (!c) return check(false, "lifetime: CoCreateInstance");
  auto point = exitEvents(c);
  auto* sink = new ExitSink(c);
  DWORD cookie = 0;
  point->Advise(sink, &cookie);
  point = {};
  sink->Release();
  auto* errors = new TestErrorService(3);
  c->putref_errorClass(errors);
  errors->Release();
  failARun(c);  // the host lets go inside; the call still returns
  check(canUnload() == S_OK, "lifetime: released in ExitProgram, the component is gone");
}

// A contact made and deleted through the object model over "Outlook.Application".
void deleteByAutomation() {
  CLSID clsid{};
  ComPtr<IDispatch> object;
  if (SUCCEEDED(CLSIDFromProgID(L"Outlook.Application", &clsid)))
    CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, IID_IDispatch,
                     reinterpret_cast<void**>(object.put()));
  if (!object) return check(false, "automation: Outlook.Application");
  try {
    auto app = dossync::outlook_com::wrapApplication(object.get());
    auto ns = app->GetNamespace("MAPI");
    ns->Logon({}, {}, false, false);
    auto folder = ns->GetDefaultFolder(dossync::outlook::olFolderContacts);
    int32_t before = folder->Items()->Count();
    auto item = std::dynamic_pointer_cast<dossync::outlook::ContactItem>(
        app->CreateItem(dossync::outlook::olContactItem));
    if (!item) return check(false, "automation: CreateItem of a contact");
    item->setFileAs("Deleted, Soon");
    item->Save();
    check(folder->Items()->Count() == before + 1, "automation: the contact saved");
    item->Delete();
    check(folder->Items()->Count() == before, "automation: Delete removes the contact");
  } catch (const std::exception& e) {
    check(false, std::string("automation: ") + e.what());
  }
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
  if (argc < 2) {
    std::printf("usage: com_clients.exe HOST_DB\n");
    return 64;
  }
  CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
  earlyBound(argv[1]);
  events();
  lifetime();
  deleteByAutomation();
  CoUninitialize();
  std::printf(failures == 0 ? "OK com clients\n" : "FAILED com clients\n");
  return failures == 0 ? 0 : 1;
}
