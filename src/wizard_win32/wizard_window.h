// The Win32 view of the wizard form: a top-level dialog window (class "dossyncWizard") that
// renders every control of a frmWizard as a common control at its design position, scaled
// for the window's DPI, and forwards what the user does to the form. It has no behaviour of
// its own: after each forwarded action, and whenever the form asks for a repaint, it copies the
// controls' state (caption, enabled, visible, position, text, value, range) into the child
// windows. The tree view mirrors the form's tree through its observer interface.
//
// Child windows: frames are group boxes (a step frame, which covers the page, shows only its
// caption, as a flat group), labels static texts (word-wrapped), command buttons push buttons
// (Next the default one), option buttons radio buttons whose checked state is the form's, text
// boxes edit controls (the password one masked), the scheme list a drop-down list, the tree a
// tree view with check boxes and drawn icons, pictures owner-drawn statics. Group boxes are
// not containers in Win32: every child is a child of the top-level window, placed at its
// containers' offsets and hidden while a container is hidden or off-screen.
// Each child carries the window property "dossync.name", a global atom of the control's full
// name ("cmdNav(3)"), for tests that find controls from outside.
// Focus moving between controls goes to the form (userFocus), so that a text box writes when
// the focus leaves it; edits, clicks, the combo box's choice and the tree's selection by the
// user go to the form as the Qt view forwards them.
//
// Keyboard: the dialog manager's tab order (the form's order), mnemonics from "&" in button
// captions, Enter clicks Next while it is enabled (or the focused button). Enter and Escape go
// to the form's KeyDown first; then Escape clicks Cancel while Cancel can be clicked, as it
// does in any Windows dialog, and the close box acts through the form (which unloads).
// A click on a node's check box, or Space on the selected node, checks it through the form;
// the check boxes are then set again from the form's tree, which spreads a check to the
// node's children.
// Visual styles need comctl32 version 6: the host process's manifest, or the manifest the
// module carries as resource 2 (RT_MANIFEST), which is made active while the controls are
// created; without either the classic controls are drawn.
//
// showModal disables the owner window (resolved from the form's owner object by the function
// given), runs a modal message loop until the form is unloaded, then enables the owner again.
// When a session is set instead (scripted runs), it shows the window without a modal loop,
// runs the session and returns. refresh() copies the model and paints at most every 30 ms,
// running the pending non-input messages (the user's input waits for the procedure).
// Thread use: the thread that created the view (the apartment's); the window belongs to it.
#pragma once

#include <windows.h>

#include <commctrl.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "wizard/wizard_form.h"

namespace dossync::win32ui {

using OwnerResolver = std::function<HWND(const ObjectPtr&)>;

// The window class, style and extended style of a control's child window; `previous` is the
// control made before it (an option button after one in the same frame continues its group).
struct ControlStyle {
  const wchar_t* windowClass;
  DWORD style;
  DWORD exStyle;
};
ControlStyle controlStyle(const wizard::Control& c, const wizard::Control* previous);

class WizardWindow : public wizard::IWizardView, public wizard::ITreeObserver {
 public:
  WizardWindow(wizard::frmWizard& form, OwnerResolver ownerWindowOf = {});
  ~WizardWindow() override;
  WizardWindow(const WizardWindow&) = delete;
  WizardWindow& operator=(const WizardWindow&) = delete;

  // IWizardView
  void showModal(const ObjectPtr& ownerWindow) override;
  void unload() override;
  void refresh() override;

  // ITreeObserver
  void treeCleared() override;
  void nodeAdded(const wizard::TreeNode& node) override;
  void nodeChanged(const wizard::TreeNode& node) override;
  void selectionChanged(int32_t index) override;

  // Copies the state of every control into its child window.
  void syncFromModel();
  HWND hwnd() const { return hwnd_; }
  // The child window of a control; RuntimeError as frmWizard::control for unknown names.
  HWND child(const std::string& name, int32_t index = -1) const;
  HWND treeWindow() const { return tree_; }
  HTREEITEM item(int32_t nodeIndex) const;
  UINT dpi() const { return dpi_; }
  wizard::frmWizard& form() { return form_; }

  std::function<void()> session;

 private:
  struct Child {
    wizard::Control* control = nullptr;
    HWND hwnd = nullptr;
    ATOM atom = 0;
    RECT placed{};  // last position given, in client pixels
    HFONT font = nullptr;
  };

  static LRESULT CALLBACK windowProc(HWND hwnd, UINT msg, WPARAM wp, LPARAM lp);
  LRESULT handle(UINT msg, WPARAM wp, LPARAM lp);
  void build();
  void destroyWindow();
  void forward(const std::function<void()>& action);
  void onCommand(WORD id, WORD code, HWND from);
  LRESULT onNotify(NMHDR* hdr);
  void onDrawItem(const DRAWITEMSTRUCT* di);
  void onDpiChanged(UINT dpi, const RECT* suggested);
  void postToggle(HTREEITEM item);
  void toggleFromUser(int32_t nodeIndex, bool checked);
  void syncChecks();
  void applyNode(HTREEITEM item, const wizard::TreeNode& node);
  void expand(HTREEITEM item, bool expanded);
  void buildImageList();
  int imageIndex(int32_t image) const;
  void place(Child& child);
  bool shown(const wizard::Control& c) const;
  bool enabledChain(const wizard::Control& c) const;
  POINT origin(const wizard::Control& c) const;
  int scale(int v) const;
  HFONT fontFor(const wizard::Control& c);
  void resetFonts();
  void clientSize(int& w, int& h) const;
  Child* childOf(HWND h);
  Child* childById(WORD id);

  wizard::frmWizard& form_;
  OwnerResolver ownerWindowOf_;
  HWND hwnd_ = nullptr;
  HWND tree_ = nullptr;
  std::vector<Child> children_;  // in the form's order; control id = 100 + position
  std::map<const wizard::Control*, size_t> byControl_;
  std::vector<HTREEITEM> items_;  // by node index - 1
  HIMAGELIST images_ = nullptr;
  std::vector<std::string> imageKeys_;
  // Fonts by (bold, points); (false, 0) is the message font.
  std::map<std::pair<bool, int32_t>, HFONT> fonts_;
  std::map<int32_t, HBITMAP> pictures_;  // step picture by number, at the current size
  UINT dpi_ = 96;
  bool syncing_ = false;
  bool inModalLoop_ = false;
  bool endLoop_ = false;
  std::chrono::steady_clock::time_point lastPaint_;
};

// A frmWizard with its Win32 window: what the COM server registers as "frmWizard".
class Win32Wizard : public wizard::frmWizard {
 public:
  explicit Win32Wizard(OwnerResolver ownerWindowOf = {});
  ~Win32Wizard() override;
  WizardWindow& window() { return *window_; }

 private:
  std::unique_ptr<WizardWindow> window_;
};

// Registers Win32Wizard with the platform as "frmWizard"; ownerWindowOf turns the component's
// owner object (its MDIForm) into the window the wizard is modal over (nullptr: none).
void registerWin32Wizard(OwnerResolver ownerWindowOf);

}  // namespace dossync::win32ui
