#include "com_server/host_services.h"

#include <functional>
#include <map>
#include <utility>

#include "base/platform.h"
#include "com_server/module.h"
#include "com_server/registered_dialog.h"
#include "core/apartment.h"
#include "interfaces/progress.h"
#include "interfaces/wizard_host.h"
#include "platform/win32/automation.h"
#include "wizard_win32/wizard_window.h"

namespace dossync::com {

namespace {

using win32::Dispatch;
using win32::Variant;

class HostObject final : public Object {
 public:
  explicit HostObject(IDispatch* object) : dispatch_(object, "host object") {}
  IDispatch* get() const { return dispatch_.get(); }

 private:
  Dispatch dispatch_;
};

std::map<const Object*, IDispatch*>& componentObjects() {
  static std::map<const Object*, IDispatch*> objects;
  return objects;
}

Variant ownerVariant(const ObjectPtr& owner) {
  IDispatch* d = ownerDispatch(owner);
  return d ? Variant(d) : Variant(static_cast<IDispatch*>(nullptr));
}

class AutomationErrorService final : public IErrorService {
 public:
  explicit AutomationErrorService(IDispatch* service) : service_(service, "errorClass") {}
  void enterProcedure(const std::string& location) override {
    quietly([&] { service_.call("EnterProcedure", {Variant(location)}); });
  }
  void leaveProcedure() override {
    quietly([&] { service_.call("LeaveProcedure"); });
  }
  void recordError(const RuntimeError& error) override {
    quietly([&] {
      service_.call("RecordError", {Variant(error.number()), Variant(error.description()),
                                    Variant(error.source())});
    });
  }
  void reportError() override {
    quietly([&] { service_.call("ReportError"); });
  }
  int32_t chooseAction() override {
    int32_t action = kActionLeave;
    quietly([&] { action = service_.call("ChooseAction").toInt32(); });
    return action;
  }

 private:
  template <class Body>
  static void quietly(Body&& body) {
    try {
      body();
    } catch (...) {
    }
  }
  Dispatch service_;
};

class AutomationMessageBox final : public IMessageBox {
 public:
  explicit AutomationMessageBox(IDispatch* service) : service_(service, "MsgboxClass") {}
  int32_t showMessage(const std::string& text, int32_t style, const ObjectPtr& owner, int32_t,
                      int32_t, int32_t number) override {
    try {
      return service_
          .call("ShowMessage",
                {Variant(text), Variant(style), ownerVariant(owner), Variant(number)})
          .toInt32();
    } catch (...) {
      return 0;
    }
  }
  bool askYesNo(const std::string& text, int32_t style, const ObjectPtr& owner,
                int32_t number) override {
    constexpr int32_t kYes = 6;
    return showMessage(text, style, owner, 0, 0, number) == kYes;
  }
  Dispatch& dispatch() { return service_; }

 private:
  Dispatch service_;
};

// The object the progress dialog calls back once it is shown: StartProgress() runs the work.
class StartHandler final : public win32::DispatchServer {
 public:
  explicit StartHandler(std::function<void()> work) : work_(std::move(work)) {
    addMember(L"StartProgress", 1);
  }

 protected:
  HRESULT invokeMember(DISPID id, WORD, DISPPARAMS*, VARIANT*) override {
    if (id != 1) return DISP_E_MEMBERNOTFOUND;
    if (work_) work_();
    return S_OK;
  }

 private:
  std::function<void()> work_;
  ModuleReference module_;  // the dialog holds it, and may hold it past the run
};

class AutomationProgressDialog final : public IProgressDialog {
 public:
  explicit AutomationProgressDialog(IDispatch* dialog) : dialog_(dialog, "progress dialog") {}

  void setMessage(const std::string& text) override { dialog_.put("Message", Variant(text)); }
  void setStyle(int32_t style) override { dialog_.put("Style", Variant(style)); }
  void setOwner(ObjectPtr owner) override { dialog_.putRef("Owner", ownerVariant(owner)); }
  void setMinimum(int32_t value) override { dialog_.put("Minimum", Variant(value)); }
  void setMaximum(int32_t value) override { dialog_.put("Maximum", Variant(value)); }
  void setShowBar(bool show) override { dialog_.put("ShowBar", Variant(show)); }
  void setValue(int32_t value) override { dialog_.put("Value", Variant(value)); }
  void setSecondaryValue(int32_t value) override { dialog_.put("SecondaryValue", Variant(value)); }
  void setAllowCancel(bool allow) override { dialog_.put("AllowCancel", Variant(allow)); }
  void setNumber(int32_t number) override { dialog_.put("Number", Variant(number)); }
  void setStartHandler(std::function<void()> handler) override {
    auto* h = new StartHandler(std::move(handler));
    dialog_.putRef("StartHandler", Variant(static_cast<IDispatch*>(h)));
    h->Release();
  }
  void show() override { dialog_.call("Show"); }
  int32_t value() const override { return dialog_.get("Value").toInt32(); }
  void setStatus(const std::string& text) override { dialog_.put("Status", Variant(text)); }
  void close() override {
    dialog_.call("Close");
    // The handler holds the work (and through it the component): let go of it.
    if (dialog_.has("StartHandler"))
      dialog_.putRef("StartHandler", Variant(static_cast<IDispatch*>(nullptr)));
  }

 private:
  mutable Dispatch dialog_;
};

// The message pump and the mouse pointer of the host's thread.
class WindowsUi final : public IHostUi {
 public:
  void doEvents() override {
    MSG msg;
    while (PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE)) {
      TranslateMessage(&msg);
      DispatchMessageW(&msg);
    }
  }
  void setMousePointer(int32_t pointer) override {
    SetCursor(LoadCursorW(nullptr, pointer == kPointerHourglass ? IDC_WAIT : IDC_ARROW));
  }
};

}  // namespace

std::shared_ptr<IErrorService> errorServiceFor(IDispatch* service) {
  if (!service) return nullptr;
  return std::make_shared<AutomationErrorService>(service);
}

std::shared_ptr<IMessageBox> messageBoxFor(IDispatch* service) {
  if (!service) return nullptr;
  return std::make_shared<AutomationMessageBox>(service);
}

ObjectPtr hostObject(IDispatch* object) {
  if (!object) return nullptr;
  return std::make_shared<HostObject>(object);
}

void registerComponentObject(const Object* component, IDispatch* object) {
  if (component) componentObjects()[component] = object;
}

void unregisterComponentObject(const Object* component) {
  componentObjects().erase(component);
}

IDispatch* ownerDispatch(const ObjectPtr& owner) {
  if (!owner) return nullptr;
  if (auto* host = dynamic_cast<const HostObject*>(owner.get())) return host->get();
  auto it = componentObjects().find(owner.get());
  return it == componentObjects().end() ? nullptr : it->second;
}

std::vector<std::string> readHostCollection(IDispatch* collection) {
  Dispatch c(collection, "companyCollection");
  std::vector<std::string> items;
  const int32_t count = c.get("Count").toInt32();
  for (int32_t i = 1; i <= count; ++i) items.push_back(c.call("Item", {Variant(i)}).toString());
  return items;
}

namespace {

// The window of the host's form (MDIForm): its hWnd property, as every VB form has one.
HWND ownerWindow(const ObjectPtr& owner) {
  IDispatch* form = ownerDispatch(owner);
  if (!form) return nullptr;
  try {
    Dispatch d(form, "MDIForm");
    if (!d.has("hWnd")) return nullptr;
    HWND window = reinterpret_cast<HWND>(static_cast<intptr_t>(d.get("hWnd").toInt32()));
    return ::IsWindow(window) ? window : nullptr;
  } catch (const RuntimeError&) {
    return nullptr;
  }
}

// Without a dialog to show, the run still goes: show() does the work at once.
class NoProgressDialog final : public ProgressDialogBase {
 public:
  void show() override {
    if (auto start = start_) start();
  }
  void setStatus(const std::string&) override {}
  void close() override { start_ = nullptr; }
};

// The dialog the host's library registered; else the one its message box service makes; else
// none, and the error is recorded with the host's error service (not shown: the run goes on).
ObjectPtr newProgressDialog() {
  std::string why;
  try {
    if (auto dialog = registeredProgressDialog(L"kvdlgbox3.outlookDialog")) return dialog;
    why = "kvdlgbox3.outlookDialog is not registered";
  } catch (const RuntimeError& e) {
    why = e.description();
  }
  try {
    auto box = std::dynamic_pointer_cast<AutomationMessageBox>(apartment().msgBox);
    if (!box) throw RuntimeError(kObjectVariableNotSet, "no message box service (MsgboxClass)");
    auto d = box->dispatch().call("CreateProgressDialog").toDispatch();
    if (!d) throw RuntimeError(kObjectRequired, "MsgboxClass.CreateProgressDialog answered none");
    return std::make_shared<AutomationProgressDialog>(d.get());
  } catch (const RuntimeError& e) {
    why += "; " + e.description();
  }
  if (auto errors = apartment().errorService)
    errors->recordError(RuntimeError(kCannotCreateObject,
                                     "No progress dialog, synchronising without one: " + why,
                                     "kvoutlookdx.dll-clsOutlookSynchronization-Synchronize"));
  return std::make_shared<NoProgressDialog>();
}

}  // namespace

void registerHostClasses() {
  platform::registerClass(kProgressDialogClass, [] { return newProgressDialog(); });
  win32ui::registerWin32Wizard(ownerWindow);
}

void useWindowsUi() {
  apartment().hostUi = std::make_shared<WindowsUi>();
}

}  // namespace dossync::com
