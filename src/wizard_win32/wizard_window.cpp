#include "wizard_win32/wizard_window.h"

#include <algorithm>
#include <mutex>

#include "base/platform.h"
#include "wizard_win32/artwork.h"
#include "wizard_win32/win32_helpers.h"

#ifndef WM_DPICHANGED
#define WM_DPICHANGED 0x02E0
#endif

namespace dossync::win32ui {
namespace {

using wizard::Control;
using wizard::ControlKind;

constexpr auto kPaintInterval = std::chrono::milliseconds(30);
constexpr wchar_t kClassName[] = L"dossyncWizard";
constexpr wchar_t kNameProperty[] = L"dossync.name";
constexpr WORD kFirstId = 100;
// Posted after a click or Space on a node's check box: wParam the node, lParam the new state.
constexpr UINT kToggleMessage = WM_APP + 1;
constexpr int kDropDownHeight = 200;  // the open list of the combo box, at 96 DPI
// No WS_CLIPCHILDREN: group boxes do not paint their inside, the window does.
constexpr DWORD kWindowStyle = WS_POPUP | WS_CAPTION | WS_SYSMENU;
constexpr DWORD kWindowExStyle = WS_EX_DLGMODALFRAME | WS_EX_CONTROLPARENT;

// The windows of the class, on any thread.
std::mutex classMutex;
int classUsers = 0;

}  // namespace

// ---- Construction.

ControlStyle controlStyle(const Control& c, const Control* previous) {
  const wchar_t* cls = WC_STATICW;
  DWORD style = WS_CHILD | WS_CLIPSIBLINGS;
  DWORD ex = 0;
  switch (c.kind) {
    case ControlKind::Frame:
      if (c.container.empty()) {
        // A step frame covers the whole page: a flat group, its caption without a box.
        style |= SS_LEFT | SS_NOPREFIX | WS_GROUP;
      } else {
        cls = WC_BUTTONW;
        style |= BS_GROUPBOX | WS_GROUP;
      }
      break;
    case ControlKind::Label:
      style |= SS_NOPREFIX | (c.name == "lblProgress" ? SS_CENTER : SS_LEFT);
      break;
    case ControlKind::CommandButton:
      cls = WC_BUTTONW;
      style |= BS_NOTIFY | WS_TABSTOP | WS_GROUP |
               (c.name == "cmdNav" && c.index == 3 ? BS_DEFPUSHBUTTON : BS_PUSHBUTTON);
      break;
    case ControlKind::OptionButton: {
      cls = WC_BUTTONW;
      style |= BS_RADIOBUTTON | BS_NOTIFY | WS_TABSTOP;
      // An option array's buttons share a frame: the first of them starts the group.
      bool continues = previous && previous->kind == ControlKind::OptionButton &&
                       previous->container == c.container &&
                       previous->containerIndex == c.containerIndex;
      if (!continues) style |= WS_GROUP;
      break;
    }
    case ControlKind::CheckBox:
      cls = WC_BUTTONW;
      style |= BS_CHECKBOX | BS_NOTIFY | WS_TABSTOP | WS_GROUP;
      break;
    case ControlKind::TextBox:
      cls = WC_EDITW;
      style |= ES_AUTOHSCROLL | WS_TABSTOP | WS_GROUP | (c.masked ? ES_PASSWORD : 0);
      ex = WS_EX_CLIENTEDGE;
      break;
    case ControlKind::ComboBox:
      cls = WC_COMBOBOXW;
      style |= CBS_DROPDOWNLIST | WS_VSCROLL | WS_TABSTOP | WS_GROUP;
      break;
    case ControlKind::TreeView:
      cls = WC_TREEVIEWW;
      style |= TVS_HASLINES | TVS_HASBUTTONS | TVS_LINESATROOT | TVS_SHOWSELALWAYS | WS_TABSTOP |
               WS_GROUP;
      ex = WS_EX_CLIENTEDGE;
      break;
    case ControlKind::ProgressBar:
      cls = PROGRESS_CLASSW;
      break;
    case ControlKind::Image:
    case ControlKind::Line:
      style |= SS_OWNERDRAW;
      break;
    case ControlKind::PictureBox:
      style |= SS_LEFT | WS_GROUP;
      break;
  }
  return {cls, style, ex};
}

WizardWindow::WizardWindow(wizard::frmWizard& form, OwnerResolver ownerWindowOf)
    : form_(form), ownerWindowOf_(std::move(ownerWindowOf)) {
  build();
  form_.tree().setObserver(this);
  syncFromModel();
}

WizardWindow::~WizardWindow() {
  form_.tree().setObserver(nullptr);
  destroyWindow();
}

void WizardWindow::build() {
  HINSTANCE inst = moduleHandle();
  std::unique_lock classLock(classMutex);
  if (classUsers++ == 0) {
    WNDCLASSEXW wc{};
    wc.cbSize = sizeof(wc);
    wc.lpfnWndProc = &WizardWindow::windowProc;
    wc.cbWndExtra = DLGWINDOWEXTRA;
    wc.hInstance = inst;
    wc.hCursor = LoadCursorW(nullptr, reinterpret_cast<LPCWSTR>(IDC_ARROW));
    wc.hbrBackground = reinterpret_cast<HBRUSH>(static_cast<INT_PTR>(COLOR_BTNFACE + 1));
    wc.lpszClassName = kClassName;
    if (!RegisterClassExW(&wc) && GetLastError() != ERROR_CLASS_ALREADY_EXISTS) {
      --classUsers;
      throw RuntimeError(kCannotCreateObject, "Cannot register the wizard's window class");
    }
  }

  classLock.unlock();

  ActivationScope styles(inst);
  INITCOMMONCONTROLSEX icc{sizeof(icc), ICC_STANDARD_CLASSES | ICC_WIN95_CLASSES |
                                            ICC_TREEVIEW_CLASSES | ICC_PROGRESS_CLASS};
  InitCommonControlsEx(&icc);
  DpiAwarenessScope awareness;
  hwnd_ = CreateWindowExW(kWindowExStyle, kClassName, widen(form_.caption()).c_str(), kWindowStyle,
                          CW_USEDEFAULT, CW_USEDEFAULT, 100, 100, nullptr, nullptr, inst, this);
  if (!hwnd_) {
    std::lock_guard relock(classMutex);
    if (--classUsers == 0) UnregisterClassW(kClassName, inst);
    throw RuntimeError(kCannotCreateObject, "Cannot create the wizard's window");
  }
  dpi_ = windowDpi(hwnd_);
  int w = 0, h = 0;
  clientSize(w, h);
  SetWindowPos(hwnd_, nullptr, 0, 0, w, h, SWP_NOMOVE | SWP_NOZORDER | SWP_NOACTIVATE);

  const auto& controls = form_.controls();
  children_.reserve(controls.size());
  const Control* previous = nullptr;
  for (size_t i = 0; i < controls.size(); ++i) {
    Control& c = *controls[i];
    auto [cls, style, ex] = controlStyle(c, previous);
    HWND h =
        CreateWindowExW(ex, cls, L"", style, 0, 0, 0, 0, hwnd_,
                        reinterpret_cast<HMENU>(static_cast<INT_PTR>(kFirstId + i)), inst, nullptr);
    if (!h) {
      destroyWindow();
      throw RuntimeError(kCannotCreateObject, "Cannot create the wizard's control " + c.fullName());
    }
    Child child;
    child.control = &c;
    child.hwnd = h;
    child.atom = GlobalAddAtomW(widen(c.fullName()).c_str());
    SetPropW(h, kNameProperty, reinterpret_cast<HANDLE>(static_cast<UINT_PTR>(child.atom)));
    byControl_[&c] = children_.size();
    children_.push_back(child);
    if (c.kind == ControlKind::TreeView) {
      tree_ = h;
      // Check boxes are turned on after creation, which every version of the control honours.
      SetWindowLongPtrW(h, GWL_STYLE, GetWindowLongPtrW(h, GWL_STYLE) | TVS_CHECKBOXES);
    }
    previous = &c;
  }

  // Group boxes are not containers: their contents are siblings that must lie above them, the
  // inner frames above the outer ones. The tab order (the others' order) is the form's.
  std::vector<std::pair<int, HWND>> containers;
  for (const Child& child : children_) {
    const Control& c = *child.control;
    if (c.kind != ControlKind::Frame && c.kind != ControlKind::PictureBox) continue;
    int depth = 0;
    for (const Control* p = &c; !p->container.empty();
         p = &form_.control(p->container, p->containerIndex))
      ++depth;
    containers.push_back({depth, child.hwnd});
  }
  std::stable_sort(containers.begin(), containers.end(),
                   [](const auto& a, const auto& b) { return a.first > b.first; });
  for (const auto& [depth, h] : containers)
    SetWindowPos(h, HWND_BOTTOM, 0, 0, 0, 0, SWP_NOMOVE | SWP_NOSIZE | SWP_NOACTIVATE);

  for (Child& child : children_) {
    child.font = fontFor(*child.control);
    SendMessageW(child.hwnd, WM_SETFONT, reinterpret_cast<WPARAM>(child.font), FALSE);
  }
  buildImageList();
  SendMessageW(hwnd_, DM_SETDEFID, kFirstId + byControl_.at(&form_.control("cmdNav", 3)), 0);
}

void WizardWindow::destroyWindow() {
  for (Child& child : children_) {
    if (child.hwnd) RemovePropW(child.hwnd, kNameProperty);
    if (child.atom) GlobalDeleteAtom(child.atom);
  }
  children_.clear();
  byControl_.clear();
  items_.clear();
  if (hwnd_) {
    SetWindowLongPtrW(hwnd_, GWLP_USERDATA, 0);
    DestroyWindow(hwnd_);
    hwnd_ = nullptr;
    tree_ = nullptr;
    std::lock_guard lock(classMutex);
    if (--classUsers == 0) UnregisterClassW(kClassName, moduleHandle());
  }
  for (auto& [key, font] : fonts_) DeleteObject(font);
  fonts_.clear();
  for (auto& [number, bitmap] : pictures_) DeleteObject(bitmap);
  pictures_.clear();
  if (images_) ImageList_Destroy(images_);
  images_ = nullptr;
}

// ---- Geometry and fonts.

int WizardWindow::scale(int v) const {
  return MulDiv(v, static_cast<int>(dpi_), 96);
}

void WizardWindow::clientSize(int& w, int& h) const {
  RECT r{0, 0, scale(wizard::kFormWidth), scale(wizard::kFormHeight)};
  static auto adjust =
      systemProc<AdjustWindowRectExForDpiFn>(L"user32.dll", "AdjustWindowRectExForDpi");
  if (!adjust || !adjust(&r, kWindowStyle, FALSE, kWindowExStyle, dpi_))
    AdjustWindowRectEx(&r, kWindowStyle, FALSE, kWindowExStyle);
  w = r.right - r.left;
  h = r.bottom - r.top;
}

POINT WizardWindow::origin(const Control& c) const {
  POINT p{c.left, c.top};
  for (const Control* q = &c; !q->container.empty();) {
    q = &form_.control(q->container, q->containerIndex);
    p.x += q->left;
    p.y += q->top;
  }
  return p;
}

bool WizardWindow::shown(const Control& c) const {
  for (const Control* q = &c;;) {
    if (!q->visible || q->left <= wizard::kOffScreen) return false;
    if (q->container.empty()) return true;
    q = &form_.control(q->container, q->containerIndex);
  }
}

bool WizardWindow::enabledChain(const Control& c) const {
  for (const Control* q = &c;;) {
    if (!q->enabled) return false;
    if (q->container.empty()) return true;
    q = &form_.control(q->container, q->containerIndex);
  }
}

HFONT WizardWindow::fontFor(const Control& c) {
  std::pair<bool, int32_t> key{c.bold, c.fontSize};
  auto it = fonts_.find(key);
  if (it != fonts_.end()) return it->second;
  LOGFONTW lf = messageFont(dpi_);
  if (c.fontSize) lf.lfHeight = -MulDiv(c.fontSize, static_cast<int>(dpi_), 72);
  if (c.bold) lf.lfWeight = FW_BOLD;
  HFONT font = CreateFontIndirectW(&lf);
  fonts_[key] = font;
  return font;
}

void WizardWindow::resetFonts() {
  std::map<std::pair<bool, int32_t>, HFONT> old;
  old.swap(fonts_);
  for (Child& child : children_) {
    child.font = fontFor(*child.control);
    SendMessageW(child.hwnd, WM_SETFONT, reinterpret_cast<WPARAM>(child.font), TRUE);
  }
  for (auto& [key, font] : old) DeleteObject(font);
}

void WizardWindow::place(Child& child) {
  const Control& c = *child.control;
  bool visible = (GetWindowLongPtrW(child.hwnd, GWL_STYLE) & WS_VISIBLE) != 0;
  if (!shown(c)) {
    if (visible) ShowWindow(child.hwnd, SW_HIDE);
    return;
  }
  POINT p = origin(c);
  RECT r{scale(p.x), scale(p.y), 0, 0};
  r.right = r.left + scale(c.width);
  r.bottom = r.top + std::max(1, scale(c.height));
  if (c.kind == ControlKind::ComboBox) r.bottom += scale(kDropDownHeight);
  if (!EqualRect(&r, &child.placed)) {
    SetWindowPos(child.hwnd, nullptr, r.left, r.top, r.right - r.left, r.bottom - r.top,
                 SWP_NOZORDER | SWP_NOACTIVATE);
    if (c.kind == ControlKind::ComboBox) {
      // The selection field as tall as the design's box (less the control's borders).
      SendMessageW(child.hwnd, CB_SETITEMHEIGHT, static_cast<WPARAM>(-1),
                   std::max(scale(c.height) - scale(6), 1));
    }
    child.placed = r;
  }
  if (!visible) ShowWindow(child.hwnd, SW_SHOWNA);
}

// ---- Copying the model into the windows.

void WizardWindow::forward(const std::function<void()>& action) {
  action();
  syncFromModel();
}

void WizardWindow::syncFromModel() {
  if (!hwnd_) return;
  bool was = syncing_;
  syncing_ = true;
  setText(hwnd_, form_.caption());
  for (Child& child : children_) {
    Control& c = *child.control;
    HWND h = child.hwnd;
    place(child);
    bool enabled = enabledChain(c);
    if ((IsWindowEnabled(h) != FALSE) != enabled) EnableWindow(h, enabled);
    if (HFONT font = fontFor(c); font != child.font) {
      child.font = font;
      SendMessageW(h, WM_SETFONT, reinterpret_cast<WPARAM>(font), TRUE);
    }
    switch (c.kind) {
      case ControlKind::Frame:
      case ControlKind::Label:
      case ControlKind::CommandButton:
      case ControlKind::TextBox:
        setText(h, c.text);
        break;
      case ControlKind::OptionButton:
      case ControlKind::CheckBox: {
        setText(h, c.text);
        WPARAM state = c.value ? BST_CHECKED : BST_UNCHECKED;
        if (static_cast<WPARAM>(SendMessageW(h, BM_GETCHECK, 0, 0)) != state)
          SendMessageW(h, BM_SETCHECK, state, 0);
        break;
      }
      case ControlKind::ComboBox: {
        auto count = static_cast<size_t>(SendMessageW(h, CB_GETCOUNT, 0, 0));
        bool same = count == c.items.size();
        for (size_t i = 0; same && i < count; ++i) {
          auto len = SendMessageW(h, CB_GETLBTEXTLEN, i, 0);
          std::wstring text(static_cast<size_t>(std::max<LRESULT>(len, 0)) + 1, L'\0');
          SendMessageW(h, CB_GETLBTEXT, i, reinterpret_cast<LPARAM>(text.data()));
          text.resize(static_cast<size_t>(std::max<LRESULT>(len, 0)));
          same = text == widen(c.items[i].text);
        }
        if (!same) {
          SendMessageW(h, CB_RESETCONTENT, 0, 0);
          for (const auto& entry : c.items) {
            auto at = SendMessageW(h, CB_ADDSTRING, 0,
                                   reinterpret_cast<LPARAM>(widen(entry.text).c_str()));
            SendMessageW(h, CB_SETITEMDATA, static_cast<WPARAM>(at), entry.itemData);
          }
        }
        if (SendMessageW(h, CB_GETCURSEL, 0, 0) != c.listIndex)
          SendMessageW(h, CB_SETCURSEL, static_cast<WPARAM>(c.listIndex), 0);
        break;
      }
      case ControlKind::ProgressBar: {
        int32_t top = std::max(c.minimum, c.maximum);
        SendMessageW(h, PBM_SETRANGE32, static_cast<WPARAM>(c.minimum), top);
        SendMessageW(h, PBM_SETPOS, static_cast<WPARAM>(std::clamp(c.progress, c.minimum, top)), 0);
        break;
      }
      default:
        break;
    }
  }
  syncing_ = was;
  // The focused control went away (hidden or disabled): on to the next one, as a dialog does.
  HWND focus = GetFocus();
  if (!syncing_ && IsWindowVisible(hwnd_) && GetActiveWindow() == hwnd_ &&
      (!focus || focus == hwnd_ ||
       (IsChild(hwnd_, focus) && (!IsWindowVisible(focus) || !IsWindowEnabled(focus))))) {
    if (HWND next = GetNextDlgTabItem(hwnd_, focus && focus != hwnd_ ? focus : nullptr, FALSE);
        next && IsWindowVisible(next) && IsWindowEnabled(next))
      SendMessageW(hwnd_, WM_NEXTDLGCTL, reinterpret_cast<WPARAM>(next), TRUE);
  }
}

HWND WizardWindow::child(const std::string& name, int32_t index) const {
  return children_.at(byControl_.at(&form_.control(name, index))).hwnd;
}

WizardWindow::Child* WizardWindow::childOf(HWND h) {
  for (Child& child : children_)
    if (child.hwnd == h || IsChild(child.hwnd, h)) return &child;
  return nullptr;
}

WizardWindow::Child* WizardWindow::childById(WORD id) {
  if (id < kFirstId || static_cast<size_t>(id - kFirstId) >= children_.size()) return nullptr;
  return &children_[id - kFirstId];
}

// ---- The tree.

HTREEITEM WizardWindow::item(int32_t nodeIndex) const {
  if (nodeIndex < 1 || static_cast<size_t>(nodeIndex) > items_.size()) return nullptr;
  return items_[static_cast<size_t>(nodeIndex - 1)];
}

void WizardWindow::buildImageList() {
  const auto& list = form_.tree().imageList() ? form_.tree().imageList() : form_.imageList1();
  std::vector<std::string> keys = list ? list->keys : std::vector<std::string>{};
  int size = scale(16);
  if (images_ && keys == imageKeys_ &&
      ImageList_GetImageCount(images_) == static_cast<int>(keys.size()) + 1) {
    int cx = 0, cy = 0;
    ImageList_GetIconSize(images_, &cx, &cy);
    if (cx == size) return;
  }
  HIMAGELIST list32 =
      ImageList_Create(size, size, ILC_COLOR32 | ILC_MASK, static_cast<int>(keys.size()) + 1, 1);
  // One image per key, and a blank one last for nodes without an image.
  std::vector<std::string> all = keys;
  all.push_back("");
  for (const std::string& key : all) {
    IconBitmaps icon = nodeIcon(key, size);
    ImageList_Add(list32, icon.color, icon.mask);
    DeleteObject(icon.color);
    DeleteObject(icon.mask);
  }
  TreeView_SetImageList(tree_, list32, TVSIL_NORMAL);
  if (images_) ImageList_Destroy(images_);
  images_ = list32;
  imageKeys_ = keys;
}

int WizardWindow::imageIndex(int32_t image) const {
  if (image < 1 || static_cast<size_t>(image) > imageKeys_.size())
    return static_cast<int>(imageKeys_.size());
  return image - 1;
}

void WizardWindow::applyNode(HTREEITEM it, const wizard::TreeNode& n) {
  bool was = syncing_;
  syncing_ = true;
  TVITEMW tv{};
  tv.mask = TVIF_STATE | TVIF_HANDLE;
  tv.hItem = it;
  tv.stateMask = TVIS_STATEIMAGEMASK | TVIS_BOLD;
  tv.state = INDEXTOSTATEIMAGEMASK(n.checked ? 2 : 1) | (n.bold ? TVIS_BOLD : 0);
  TreeView_SetItem(tree_, &tv);
  bool expanded = (TreeView_GetItemState(tree_, it, TVIS_EXPANDED) & TVIS_EXPANDED) != 0;
  if (expanded != n.expanded) {
    if (TreeView_GetChild(tree_, it)) {
      expand(it, n.expanded);
    } else {
      // No children yet: the state is kept for when they come.
      tv.stateMask = TVIS_EXPANDED;
      tv.state = n.expanded ? TVIS_EXPANDED : 0;
      TreeView_SetItem(tree_, &tv);
    }
  }
  syncing_ = was;
}

void WizardWindow::expand(HTREEITEM it, bool expanded) {
  // Expanding scrolls the children into view; the form's changes leave the view where it is.
  HTREEITEM top = TreeView_GetFirstVisible(tree_);
  TreeView_Expand(tree_, it, expanded ? TVE_EXPAND : TVE_COLLAPSE);
  if (top && TreeView_GetFirstVisible(tree_) != top) TreeView_Select(tree_, top, TVGN_FIRSTVISIBLE);
}

void WizardWindow::treeCleared() {
  bool was = syncing_;
  syncing_ = true;
  TreeView_DeleteAllItems(tree_);
  items_.clear();
  syncing_ = was;
}

void WizardWindow::nodeAdded(const wizard::TreeNode& n) {
  bool was = syncing_;
  syncing_ = true;
  buildImageList();
  std::wstring text = widen(n.text);
  TVINSERTSTRUCTW ins{};
  ins.hParent = n.parent ? item(n.parent) : TVI_ROOT;
  ins.hInsertAfter = TVI_LAST;
  ins.item.mask = TVIF_TEXT | TVIF_PARAM | TVIF_IMAGE | TVIF_SELECTEDIMAGE | TVIF_STATE;
  ins.item.pszText = text.data();
  ins.item.lParam = n.index;
  ins.item.iImage = imageIndex(n.image);
  ins.item.iSelectedImage = imageIndex(n.selectedImage);
  ins.item.stateMask = TVIS_STATEIMAGEMASK;
  ins.item.state = INDEXTOSTATEIMAGEMASK(1);
  HTREEITEM it = TreeView_InsertItem(tree_, &ins);
  if (items_.size() < static_cast<size_t>(n.index)) items_.resize(static_cast<size_t>(n.index));
  items_[static_cast<size_t>(n.index - 1)] = it;
  applyNode(it, n);
  // A parent expanded before it had children opens now.
  if (n.parent) {
    const wizard::TreeNode& parent = form_.tree().node(n.parent);
    HTREEITEM p = item(n.parent);
    if (parent.expanded && p && !(TreeView_GetItemState(tree_, p, TVIS_EXPANDED) & TVIS_EXPANDED))
      expand(p, true);
  }
  syncing_ = was;
}

void WizardWindow::nodeChanged(const wizard::TreeNode& n) {
  if (HTREEITEM it = item(n.index)) applyNode(it, n);
}

void WizardWindow::selectionChanged(int32_t index) {
  bool was = syncing_;
  syncing_ = true;
  TreeView_Select(tree_, item(index), TVGN_CARET);
  syncing_ = was;
}

void WizardWindow::syncChecks() {
  bool was = syncing_;
  syncing_ = true;
  for (size_t i = 0; i < items_.size(); ++i) {
    if (!items_[i]) continue;
    bool checked = form_.tree().node(static_cast<int32_t>(i + 1)).checked;
    UINT state = TreeView_GetItemState(tree_, items_[i], TVIS_STATEIMAGEMASK);
    if (state != INDEXTOSTATEIMAGEMASK(checked ? 2 : 1)) {
      TVITEMW tv{};
      tv.mask = TVIF_STATE | TVIF_HANDLE;
      tv.hItem = items_[i];
      tv.stateMask = TVIS_STATEIMAGEMASK;
      tv.state = INDEXTOSTATEIMAGEMASK(checked ? 2 : 1);
      TreeView_SetItem(tree_, &tv);
    }
  }
  syncing_ = was;
}

void WizardWindow::toggleFromUser(int32_t nodeIndex, bool checked) {
  if (nodeIndex >= 1 && nodeIndex <= form_.tree().count() && form_.loaded())
    forward([&] { form_.userCheck(nodeIndex, checked); });
  // The control turned its own box already; the form may have decided otherwise, and it
  // spreads a check to the node's children and parents.
  syncChecks();
}

// ---- Messages.

LRESULT CALLBACK WizardWindow::windowProc(HWND hwnd, UINT msg, WPARAM wp, LPARAM lp) {
  WizardWindow* self = nullptr;
  if (msg == WM_NCCREATE) {
    self = static_cast<WizardWindow*>(reinterpret_cast<CREATESTRUCTW*>(lp)->lpCreateParams);
    SetWindowLongPtrW(hwnd, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(self));
    self->hwnd_ = hwnd;
  } else {
    self = reinterpret_cast<WizardWindow*>(GetWindowLongPtrW(hwnd, GWLP_USERDATA));
  }
  // Nothing may unwind through user32 (the i686 build's DWARF frames cannot pass it, and the
  // host would end): what a message's handling throws ends that message's handling alone.
  try {
    if (self && self->hwnd_ == hwnd) return self->handle(msg, wp, lp);
  } catch (...) {
    return 0;
  }
  return DefDlgProcW(hwnd, msg, wp, lp);
}

LRESULT WizardWindow::handle(UINT msg, WPARAM wp, LPARAM lp) {
  switch (msg) {
    case WM_COMMAND:
      onCommand(LOWORD(wp), HIWORD(wp), reinterpret_cast<HWND>(lp));
      return 0;
    case WM_NOTIFY:
      return onNotify(reinterpret_cast<NMHDR*>(lp));
    case WM_DRAWITEM:
      onDrawItem(reinterpret_cast<const DRAWITEMSTRUCT*>(lp));
      return TRUE;
    case WM_CLOSE:
      // The close box acts through the form; a window whose form is gone just goes.
      if (form_.loaded())
        forward([&] { form_.userClose(); });
      else
        unload();
      return 0;
    case WM_DPICHANGED:
      onDpiChanged(HIWORD(wp), reinterpret_cast<const RECT*>(lp));
      return 0;
    case kToggleMessage:
      toggleFromUser(static_cast<int32_t>(wp), lp != 0);
      return 0;
    default:
      break;
  }
  return DefDlgProcW(hwnd_, msg, wp, lp);
}

void WizardWindow::onCommand(WORD id, WORD code, HWND) {
  Child* child = childById(id);
  if (!child) {
    // Escape, from the dialog manager after the form's KeyDown had it: the Cancel button, as
    // a Windows dialog's Cancel button answers Escape (when it can be clicked). Enter (IDOK)
    // went to the form already.
    if (id == IDCANCEL && !syncing_) {
      Control& cancel = form_.control("cmdNav", 1);
      HWND button = WizardWindow::child("cmdNav", 1);
      if (cancel.enabled && IsWindowVisible(button) && IsWindowEnabled(button))
        forward([&] { form_.userClick(cancel); });
    }
    return;
  }
  Control& c = *child->control;
  bool focus = code == BN_SETFOCUS || code == EN_SETFOCUS || code == CBN_SETFOCUS;
  if (syncing_) return;
  if (focus && (c.kind == ControlKind::CommandButton || c.kind == ControlKind::OptionButton ||
                c.kind == ControlKind::CheckBox || c.kind == ControlKind::TextBox ||
                c.kind == ControlKind::ComboBox)) {
    forward([&] { form_.userFocus(&c); });
    return;
  }
  switch (c.kind) {
    case ControlKind::CommandButton:
    case ControlKind::OptionButton:
    case ControlKind::CheckBox:
      if (code == BN_CLICKED) forward([&] { form_.userClick(c); });
      break;
    case ControlKind::TextBox:
      if (code == EN_CHANGE) {
        std::string text = narrow(windowText(child->hwnd));
        if (text != c.text) forward([&] { form_.userType(c, text); });
      }
      break;
    case ControlKind::ComboBox:
      if (code == CBN_SELCHANGE) {
        auto index = static_cast<int32_t>(SendMessageW(child->hwnd, CB_GETCURSEL, 0, 0));
        forward([&] { form_.userPick(index); });
      }
      break;
    default:
      break;
  }
}

// The user's click on a node's check box, or Space on it: the form toggles the node once the
// tree view is done with the message (which would otherwise toggle the box itself afterwards).
void WizardWindow::postToggle(HTREEITEM item) {
  TVITEMW tv{};
  tv.mask = TVIF_PARAM | TVIF_HANDLE;
  tv.hItem = item;
  TreeView_GetItem(tree_, &tv);
  auto index = static_cast<int32_t>(tv.lParam);
  if (index >= 1 && index <= form_.tree().count())
    PostMessageW(hwnd_, kToggleMessage, static_cast<WPARAM>(index),
                 form_.tree().node(index).checked ? 0 : 1);
}

LRESULT WizardWindow::onNotify(NMHDR* hdr) {
  if (!tree_ || hdr->hwndFrom != tree_ || syncing_) return 0;
  switch (hdr->code) {
    case NM_SETFOCUS:
      forward([&] { form_.userFocus(&form_.control("tvwContacts")); });
      break;
    case NM_CLICK:
    case NM_DBLCLK: {  // the control turns the box on the second click of a double click too
      TVHITTESTINFO hit{};
      DWORD pos = GetMessagePos();
      hit.pt = {static_cast<short>(LOWORD(pos)), static_cast<short>(HIWORD(pos))};
      ScreenToClient(tree_, &hit.pt);
      HTREEITEM it = TreeView_HitTest(tree_, &hit);
      if (it && (hit.flags & TVHT_ONITEMSTATEICON)) postToggle(it);
      break;
    }
    case TVN_KEYDOWN: {
      auto* key = reinterpret_cast<NMTVKEYDOWN*>(hdr);
      if (key->wVKey != VK_SPACE) break;
      if (HTREEITEM it = TreeView_GetSelection(tree_)) postToggle(it);
      break;
    }
    case TVN_SELCHANGEDW: {
      auto* change = reinterpret_cast<NMTREEVIEWW*>(hdr);
      if (change->action != TVC_BYMOUSE && change->action != TVC_BYKEYBOARD) break;
      auto index = static_cast<int32_t>(change->itemNew.lParam);
      if (index >= 1 && index <= form_.tree().count()) forward([&] { form_.tree().select(index); });
      break;
    }
    default:
      break;
  }
  return 0;
}

void WizardWindow::onDrawItem(const DRAWITEMSTRUCT* di) {
  Child* child = childById(static_cast<WORD>(di->CtlID));
  if (!child) return;
  const Control& c = *child->control;
  RECT r = di->rcItem;
  if (c.kind == ControlKind::Line) {
    FillRect(di->hDC, &r, GetSysColorBrush(c.index == 0 ? COLOR_3DSHADOW : COLOR_3DHIGHLIGHT));
    return;
  }
  if (c.kind != ControlKind::Image) return;
  int w = r.right - r.left, h = r.bottom - r.top;
  HBITMAP& picture = pictures_[c.picture];
  BITMAP info{};
  if (picture &&
      (!GetObjectW(picture, sizeof(info), &info) || info.bmWidth != w || info.bmHeight != h)) {
    DeleteObject(picture);
    picture = nullptr;
  }
  if (!picture) picture = stepPicture(c.picture, w, h);
  HDC mem = CreateCompatibleDC(di->hDC);
  HGDIOBJ old = SelectObject(mem, picture);
  BitBlt(di->hDC, r.left, r.top, w, h, mem, 0, 0, SRCCOPY);
  SelectObject(mem, old);
  DeleteDC(mem);
}

void WizardWindow::onDpiChanged(UINT dpi, const RECT* suggested) {
  dpi_ = dpi ? dpi : windowDpi(hwnd_);
  resetFonts();
  for (auto& [number, bitmap] : pictures_) DeleteObject(bitmap);
  pictures_.clear();
  buildImageList();
  for (Child& child : children_) child.placed = {};
  int w = 0, h = 0;
  clientSize(w, h);
  SetWindowPos(hwnd_, nullptr, suggested ? suggested->left : 0, suggested ? suggested->top : 0, w,
               h, SWP_NOZORDER | SWP_NOACTIVATE | (suggested ? 0 : SWP_NOMOVE));
  syncFromModel();
  RedrawWindow(hwnd_, nullptr, nullptr, RDW_INVALIDATE | RDW_ERASE | RDW_ALLCHILDREN);
}

// ---- Showing.

void WizardWindow::showModal(const ObjectPtr& ownerWindow) {
  if (!hwnd_ || !form_.loaded()) return;
  HWND owner = ownerWindowOf_ ? ownerWindowOf_(ownerWindow) : nullptr;
  if (owner == hwnd_) owner = nullptr;
  SetWindowLongPtrW(hwnd_, GWLP_HWNDPARENT, reinterpret_cast<LONG_PTR>(owner));
  endLoop_ = false;
  syncFromModel();

  // Centred over the owner, or on the monitor's work area.
  RECT win{}, area{};
  GetWindowRect(hwnd_, &win);
  MONITORINFO mi{};
  mi.cbSize = sizeof(mi);
  GetMonitorInfoW(MonitorFromWindow(owner ? owner : hwnd_, MONITOR_DEFAULTTOPRIMARY), &mi);
  area = mi.rcWork;
  RECT over = area;
  if (owner && IsWindowVisible(owner) && !IsIconic(owner)) GetWindowRect(owner, &over);
  int w = win.right - win.left, h = win.bottom - win.top;
  int x = std::clamp<int>((over.left + over.right - w) / 2, area.left,
                          std::max(area.left, area.right - w));
  int y = std::clamp<int>((over.top + over.bottom - h) / 2, area.top,
                          std::max(area.top, area.bottom - h));
  SetWindowPos(hwnd_, nullptr, x, y, 0, 0, SWP_NOSIZE | SWP_NOZORDER | SWP_NOACTIVATE);

  if (session) {
    ShowWindow(hwnd_, SW_SHOW);
    UpdateWindow(hwnd_);
    MSG msg;
    while (PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE)) {
      if (msg.message == WM_QUIT) {
        PostQuitMessage(static_cast<int>(msg.wParam));
        break;
      }
      TranslateMessage(&msg);
      DispatchMessageW(&msg);
    }
    session();
    return;
  }

  bool disabledOwner = owner && IsWindowEnabled(owner);
  if (disabledOwner) EnableWindow(owner, FALSE);
  ShowWindow(hwnd_, SW_SHOW);
  if (HWND first = GetNextDlgTabItem(hwnd_, nullptr, FALSE))
    SendMessageW(hwnd_, WM_NEXTDLGCTL, reinterpret_cast<WPARAM>(first), TRUE);
  inModalLoop_ = true;
  bool quit = false;
  WPARAM quitCode = 0;
  MSG msg;
  while (!endLoop_) {
    BOOL got = GetMessageW(&msg, nullptr, 0, 0);
    if (got == 0) {
      quit = true;
      quitCode = msg.wParam;
      break;
    }
    if (got < 0) break;
    // Enter and Escape reach the form's KeyDown before the dialog manager acts on them.
    if (msg.message == WM_KEYDOWN && (msg.wParam == VK_RETURN || msg.wParam == VK_ESCAPE) &&
        (msg.hwnd == hwnd_ || IsChild(hwnd_, msg.hwnd))) {
      forward([&] { form_.userKeyDown(static_cast<int32_t>(msg.wParam), shiftState()); });
      if (endLoop_) break;
    }
    if (!IsDialogMessageW(hwnd_, &msg)) {
      TranslateMessage(&msg);
      DispatchMessageW(&msg);
    }
  }
  inModalLoop_ = false;
  // The owner first, so that it is activated when this window goes.
  if (disabledOwner) EnableWindow(owner, TRUE);
  ShowWindow(hwnd_, SW_HIDE);
  if (quit) PostQuitMessage(static_cast<int>(quitCode));
}

void WizardWindow::unload() {
  if (inModalLoop_) {
    endLoop_ = true;
    PostMessageW(hwnd_, WM_NULL, 0, 0);
  } else if (hwnd_) {
    ShowWindow(hwnd_, SW_HIDE);
  }
}

void WizardWindow::refresh() {
  auto now = std::chrono::steady_clock::now();
  if (now - lastPaint_ < kPaintInterval) return;
  lastPaint_ = now;
  syncFromModel();
  if (!hwnd_) return;
  RedrawWindow(hwnd_, nullptr, nullptr, RDW_UPDATENOW | RDW_ALLCHILDREN);
  // Paint and other non-input messages now; the user's input waits for the procedure.
  std::vector<MSG> later;
  MSG msg;
  for (int i = 0;
       i < 1000 && PeekMessageW(&msg, nullptr, 0, 0,
                                PM_REMOVE | PM_QS_PAINT | PM_QS_SENDMESSAGE | PM_QS_POSTMESSAGE);
       ++i) {
    if (msg.message == WM_QUIT) {
      PostQuitMessage(static_cast<int>(msg.wParam));
      break;
    }
    if (msg.hwnd == hwnd_ && msg.message == kToggleMessage) {
      later.push_back(msg);
      continue;
    }
    TranslateMessage(&msg);
    DispatchMessageW(&msg);
  }
  for (const MSG& m : later) PostMessageW(m.hwnd, m.message, m.wParam, m.lParam);
}

// ---- The form with its window.

Win32Wizard::Win32Wizard(OwnerResolver ownerWindowOf)
    : window_(std::make_unique<WizardWindow>(*this, std::move(ownerWindowOf))) {
  setView(window_.get());
}

Win32Wizard::~Win32Wizard() {
  setView(nullptr);
  window_.reset();
}

void registerWin32Wizard(OwnerResolver ownerWindowOf) {
  platform::registerClass(kWizardFormClass,
                          [ownerWindowOf] { return std::make_shared<Win32Wizard>(ownerWindowOf); });
}

}  // namespace dossync::win32ui
