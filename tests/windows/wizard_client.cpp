// The wizard of kvoutlookdx.dll under Wine, driven through its windows as a user would.
//   wizard_client.exe HOST_DB SYNC_DB SHOT_DIR
// From a timer in the wizard's own message loop: a tour of every step, photographed into
// SHOT_DIR as windows-*.png and left with Escape; then a second wizard that ticks a company,
// saves the scheme "Month-end clients" and finishes, synchronising into Outlook. Controls are
// found by their window property "dossync.name" (a global atom of the name). Prints
// "OK wizard drive" when every check held; exits 1 otherwise.
#include <windows.h>

#include <commctrl.h>
#include <wincodec.h>

#include <cstdio>
#include <functional>
#include <initializer_list>
#include <string>
#include <vector>

#include "platform/win32/automation.h"
#include "test_client.h"

using dossync::win32::Dispatch;
using dossync::win32::Variant;

namespace {

HWND findWizard() {
  return ::FindWindowW(L"dossyncWizard", nullptr);
}

struct Search {
  std::wstring name;
  HWND found = nullptr;
};

BOOL CALLBACK matchName(HWND h, LPARAM p) {
  auto* s = reinterpret_cast<Search*>(p);
  auto atom = static_cast<ATOM>(reinterpret_cast<UINT_PTR>(::GetPropW(h, L"dossync.name")));
  wchar_t text[256];
  if (!atom || std::wstring(text, ::GlobalGetAtomNameW(atom, text, 256)) != s->name) return TRUE;
  s->found = h;
  return FALSE;
}

HWND control(HWND wizard, const std::wstring& name) {
  Search search{name};
  ::EnumChildWindows(wizard, matchName, reinterpret_cast<LPARAM>(&search));
  return search.found;
}

bool usable(HWND h) {
  return h && ::IsWindowVisible(h) && ::IsWindowEnabled(h);
}

void click(HWND wizard, std::initializer_list<const wchar_t*> names) {
  for (const wchar_t* name : names) {
    HWND h = control(wizard, name);
    if (!usable(h)) return check(false, "cannot click " + dossync::win32::narrow(name));
    ::SendMessageW(h, BM_CLICK, 0, 0);
  }
}

void type(HWND wizard, const std::wstring& name, const std::wstring& text) {
  HWND h = control(wizard, name);
  if (!usable(h)) return check(false, "cannot type into " + dossync::win32::narrow(name));
  ::SetFocus(h);
  ::SendMessageW(h, EM_SETSEL, 0, -1);  // what was there is typed over
  for (wchar_t c : text) ::SendMessageW(h, WM_CHAR, c, 0);
}

bool isChecked(HWND tree, HTREEITEM item) {
  return ((TreeView_GetItemState(tree, item, TVIS_STATEIMAGEMASK) >> 12) & 0xF) == 2;
}

void press(HWND window, UINT key) {
  ::SendMessageW(window, WM_KEYDOWN, key, 0);
  if (key == VK_SPACE) ::SendMessageW(window, WM_CHAR, L' ', 0);
  ::SendMessageW(window, WM_KEYUP, key, 0);
}

// Runs what the window posted itself meanwhile (the wizard answers a check box later).
void settle() {
  MSG msg;
  while (::PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE)) {
    ::TranslateMessage(&msg);
    ::DispatchMessageW(&msg);
  }
}

// Ticks an item as a user does with the keyboard: Home, Down until it is selected, Space.
void tick(HWND tree, HTREEITEM item) {
  ::SetFocus(tree);
  press(tree, VK_HOME);
  for (int i = 0; i < 1000 && TreeView_GetSelection(tree) != item; ++i) press(tree, VK_DOWN);
  press(tree, VK_SPACE);
  settle();
}

// The first item with items beneath it at minDepth or deeper (a category, a company with
// contacts; minDepth 1 passes over Outlook's contacts folder, which holds everything), or the
// first item when none has any (a list of companies).
HTREEITEM firstGroup(HWND tree, int minDepth = 0) {
  std::function<HTREEITEM(HTREEITEM, int)> find = [&](HTREEITEM i, int depth) -> HTREEITEM {
    for (; i; i = TreeView_GetNextSibling(tree, i)) {
      HTREEITEM child = TreeView_GetChild(tree, i);
      if (child && depth >= minDepth) return i;
      if (HTREEITEM found = child ? find(child, depth + 1) : nullptr) return found;
    }
    return nullptr;
  };
  HTREEITEM group = find(TreeView_GetRoot(tree), 0);
  return group ? group : TreeView_GetRoot(tree);
}

// ---- Screenshots: the window's client area as a PNG, through WIC.

bool savePng(HWND window, const std::wstring& path) {
  RECT r{};
  ::GetClientRect(window, &r);
  HDC source = ::GetDC(window);
  HDC memory = ::CreateCompatibleDC(source);
  HBITMAP bitmap = ::CreateCompatibleBitmap(source, r.right, r.bottom);
  HGDIOBJ old = ::SelectObject(memory, bitmap);
  ::BitBlt(memory, 0, 0, r.right, r.bottom, source, 0, 0, SRCCOPY);
  ::SelectObject(memory, old);
  ::DeleteDC(memory);
  ::ReleaseDC(window, source);

  using dossync::win32::ComPtr;
  ComPtr<IWICImagingFactory> factory;
  ComPtr<IWICBitmap> picture;
  ComPtr<IWICStream> stream;
  ComPtr<IWICBitmapEncoder> encoder;
  ComPtr<IWICBitmapFrameEncode> frame;
  const bool ok =
      SUCCEEDED(::CoCreateInstance(CLSID_WICImagingFactory, nullptr, CLSCTX_INPROC_SERVER,
                                   IID_IWICImagingFactory,
                                   reinterpret_cast<void**>(factory.put()))) &&
      SUCCEEDED(
          factory->CreateBitmapFromHBITMAP(bitmap, nullptr, WICBitmapIgnoreAlpha, picture.put())) &&
      SUCCEEDED(factory->CreateStream(stream.put())) &&
      SUCCEEDED(stream->InitializeFromFilename(path.c_str(), GENERIC_WRITE)) &&
      SUCCEEDED(factory->CreateEncoder(GUID_ContainerFormatPng, nullptr, encoder.put())) &&
      SUCCEEDED(encoder->Initialize(stream.get(), WICBitmapEncoderNoCache)) &&
      SUCCEEDED(encoder->CreateNewFrame(frame.put(), nullptr)) &&
      SUCCEEDED(frame->Initialize(nullptr)) &&
      SUCCEEDED(frame->WriteSource(picture.get(), nullptr)) && SUCCEEDED(frame->Commit()) &&
      SUCCEEDED(encoder->Commit());
  ::DeleteObject(bitmap);
  check(ok, "screenshot " + dossync::win32::narrow(path));
  return ok;
}

// A progress dialog that keeps what it is told and runs the work once it is shown.
class ProgressDialog final : public dossync::win32::DispatchServer {
 public:
  ProgressDialog() {
    const wchar_t* properties[] = {L"Message",     L"Style",   L"Owner",  L"Minimum",
                                   L"Maximum",     L"ShowBar", L"Value",  L"SecondaryValue",
                                   L"AllowCancel", L"Number",  L"Status", L"StartHandler"};
    DISPID id = 1;
    for (const wchar_t* p : properties) addMember(p, id++);
    addMember(L"Show", kShow);
    addMember(L"Close", kClose);
  }
  static constexpr DISPID kValue = 7, kStartHandler = 12, kShow = 100, kClose = 101;
  std::vector<Variant> values = std::vector<Variant>(13);
  bool shown = false, closed = false;

 protected:
  HRESULT invokeMember(DISPID id, WORD flags, DISPPARAMS* params, VARIANT* result) override {
    if (id == kShow || id == kClose) {
      (id == kShow ? shown : closed) = true;
      auto handler = values[kStartHandler].toDispatch();
      if (id == kShow && handler) Dispatch(handler.get(), "StartHandler").call("StartProgress");
      return S_OK;
    }
    if (id <= 0 || id >= static_cast<DISPID>(values.size())) return DISP_E_MEMBERNOTFOUND;
    if (flags & (DISPATCH_PROPERTYPUT | DISPATCH_PROPERTYPUTREF))
      values[id] = assigned(params);
    else
      values[id].copyTo(result);
    return S_OK;
  }
};

class MessageBoxService final : public dossync::win32::DispatchServer {
 public:
  MessageBoxService() {
    addMember(L"ShowMessage", 1);
    addMember(L"CreateProgressDialog", 2);
  }
  ~MessageBoxService() override {
    for (auto* d : dialogs) d->Release();
  }
  std::vector<ProgressDialog*> dialogs;

 protected:
  HRESULT invokeMember(DISPID id, WORD, DISPPARAMS*, VARIANT* result) override {
    if (id == 1) {
      Variant(int32_t{1}).copyTo(result);
    } else if (id == 2) {
      auto* d = new ProgressDialog();
      dialogs.push_back(d);  // which holds its first reference
      Variant(static_cast<IDispatch*>(d)).copyTo(result);
    }
    return S_OK;
  }
};

// ---- Scripts: one step per timer tick, inside the wizard's message loop.

using Step = std::function<void(HWND)>;
std::vector<Step> steps;
size_t nextStep = 0;
bool busy = false;

void CALLBACK onTimer(HWND, UINT, UINT_PTR, DWORD) {
  if (busy || nextStep >= steps.size()) return;
  HWND wizard = findWizard();
  if (!wizard || !::IsWindowVisible(wizard)) return;
  busy = true;  // a step may run long work that pumps messages (and this timer) itself
  std::printf("step %zu\n", nextStep + 1);
  std::fflush(stdout);
  steps[nextStep++](wizard);
  busy = false;
}

std::wstring shotDir;
void shoot(HWND wizard, const wchar_t* name) {
  ::UpdateWindow(wizard);
  ::RedrawWindow(wizard, nullptr, nullptr, RDW_INVALIDATE | RDW_UPDATENOW | RDW_ALLCHILDREN);
  savePng(wizard, shotDir + L"\\windows-" + name + L".png");
}

void tickFirstGroup(HWND wizard, int minDepth = 0) {
  HWND tree = control(wizard, L"tvwContacts");
  HTREEITEM group = tree ? firstGroup(tree, minDepth) : nullptr;
  if (!group) return check(false, "the tree holds something to choose");
  tick(tree, group);
  check(isChecked(tree, group), "the ticked node shows its check mark");
  TreeView_Expand(tree, group, TVE_EXPAND);
  TreeView_EnsureVisible(tree, group);
}

void drive(const std::wstring& hostDb, const std::wstring& syncDb) {
  CLSID clsid{};
  ::CLSIDFromProgID(L"kvoutlookdx.clsOutlookSynchronization", &clsid);
  auto run = [&](bool finish) {
    dossync::win32::ComPtr<IDispatch> object;
    ::CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, IID_IDispatch,
                       reinterpret_cast<void**>(object.put()));
    if (!object) return check(false, "CoCreateInstance");
    Dispatch c(object.get(), "clsOutlookSynchronization");
    auto* errors = new TestErrorService();
    auto* messages = new MessageBoxService();
    c.putRef("errorClass", Variant(static_cast<IDispatch*>(errors)));
    c.putRef("MsgboxClass", Variant(static_cast<IDispatch*>(messages)));
    c.put("DataFileUniqueID", Variant(std::string("DEMO")));
    c.put("MainDatabaseLocation", Variant(dossync::win32::narrow(hostDb)));
    c.put("SyncDatabaseLocation", Variant(dossync::win32::narrow(syncDb)));
    check(!c.get("FailedToInitializeFlag").toBool(), "the demo practice opens");
    nextStep = 0;
    UINT_PTR timer = ::SetTimer(nullptr, 0, 150, onTimer);
    c.call("openSynchForm");
    ::KillTimer(nullptr, timer);
    check(nextStep == steps.size(), "every step ran (" + std::to_string(nextStep) + " of " +
                                        std::to_string(steps.size()) + ")");
    check(findWizard() == nullptr, "the wizard is gone after it closed");
    check(errors->log.empty(), "no error: " + errors->log);
    if (finish) {
      check(messages->dialogs.size() == 1 && messages->dialogs[0]->shown &&
                messages->dialogs[0]->closed,
            "Finish ran the synchronisation under the host's progress dialog");
      if (!messages->dialogs.empty())
        check(messages->dialogs[0]->values[ProgressDialog::kValue].toInt32() > 0,
              "the progress dialog advanced");
    }
    c.putRef("errorClass", Variant(static_cast<IDispatch*>(nullptr)));
    c.putRef("MsgboxClass", Variant(static_cast<IDispatch*>(nullptr)));
    errors->Release();
    messages->Release();
  };

  steps = {
      [](HWND w) {
        shoot(w, L"1-welcome");
        click(w, {L"cmdNav(3)"});
      },
      [](HWND w) {
        tickFirstGroup(w);
        shoot(w, L"2-select-from-dossiera");
        click(w, {L"cmdNav(3)"});
      },
      [](HWND w) {
        type(w, L"txtSaveName", L"Month-end clients");
        shoot(w, L"3-finish");
        click(w, {L"cmdNav(2)"});
      },
      [](HWND w) {
        click(w, {L"cmdNav(2)", L"cmdAdvancedOptions", L"optInfoType(3)"});
        type(w, L"txtContactsCategory", L"Business");
        shoot(w, L"4-advanced-options");
        click(w, {L"cmdNav(2)", L"cmdNav(3)"});
      },
      [](HWND w) {
        tickFirstGroup(w);
        shoot(w, L"2-select-contacts");
        click(w, {L"cmdNav(2)", L"optSynchDirection(3)", L"cmdNav(3)"});
      },
      [](HWND w) {
        tickFirstGroup(w, 1);
        shoot(w, L"2-select-from-outlook");
        wchar_t caption[256] = {};
        ::GetWindowTextW(w, caption, 256);
        check(std::wstring(caption).find(L"Outlook") != std::wstring::npos,
              "the wizard's caption names Outlook: " + dossync::win32::narrow(caption));
        // Escape, as a user presses it: the dialog's Cancel.
        ::PostMessageW(w, WM_KEYDOWN, VK_ESCAPE, 0);
        ::PostMessageW(w, WM_KEYUP, VK_ESCAPE, 0);
      },
  };
  run(false);

  steps = {
      [](HWND w) { click(w, {L"cmdNav(3)"}); },
      [](HWND w) {
        tickFirstGroup(w);
        click(w, {L"cmdNav(3)"});
      },
      [](HWND w) {
        type(w, L"txtSaveName", L"Month-end clients");
        click(w, {L"cmdSaveScheme"});
        settle();
        check(usable(control(w, L"cmdNav(4)")), "Finish is enabled on the last step");
        click(w, {L"cmdNav(4)"});
      },
  };
  run(true);
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
  if (argc != 4) {
    std::printf("usage: wizard_client.exe HOST_DB SYNC_DB SHOT_DIR\n");
    return 64;
  }
  ::CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
  shotDir = argv[3];
  ::CreateDirectoryW(shotDir.c_str(), nullptr);
  drive(argv[1], argv[2]);
  ::CoUninitialize();
  std::printf(failures == 0 ? "OK wizard drive\n" : "FAILED wizard drive\n");
  return failures == 0 ? 0 : 1;
}
