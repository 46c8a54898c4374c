// The child window a wizard control becomes (controlStyle), where it depends on the control:
// the default button, radio groups, the masked password, step frames and group boxes. Prints
// "OK control styles" when every row holds; exits 1 otherwise.
#include <cstdio>
#include <string>

#include "test_client.h"
#include "wizard_win32/wizard_window.h"

using dossync::wizard::Control;
using dossync::wizard::ControlKind;

namespace {

Control control(ControlKind kind, std::string name, int index = -1, std::string container = "",
                int containerIndex = -1) {
  Control c;
  c.kind = kind;
  c.name = std::move(name);
  c.index = index;
  c.container = std::move(container);
  c.containerIndex = containerIndex;
  return c;
}

}  // namespace

int wmain() {
  auto styleOf = [](const Control& c, const Control* previous = nullptr) {
    return dossync::win32ui::controlStyle(c, previous);
  };
  auto has = [](DWORD style, DWORD bits) { return (style & bits) == bits; };
  auto typeIs = [](DWORD style, DWORD type) { return (style & BS_TYPEMASK) == type; };

  Control next = control(ControlKind::CommandButton, "cmdNav", 3);
  Control back = control(ControlKind::CommandButton, "cmdNav", 2);
  check(typeIs(styleOf(next).style, BS_DEFPUSHBUTTON), "Next is the default button");
  check(typeIs(styleOf(back).style, BS_PUSHBUTTON), "Back is a plain button");
  check(has(styleOf(back).style, WS_TABSTOP | WS_GROUP), "buttons are tab stops");

  // An option array in one frame is one radio group; the same array in another frame, or after
  // another control, starts a group of its own.
  Control first = control(ControlKind::OptionButton, "optInfoType", 1, "Frame3");
  Control second = control(ControlKind::OptionButton, "optInfoType", 2, "Frame3");
  Control elsewhere = control(ControlKind::OptionButton, "optInfoType", 3, "Frame6");
  Control label = control(ControlKind::Label, "Label6", -1, "Frame3");
  check(typeIs(styleOf(first).style, BS_RADIOBUTTON), "an option button is a radio button");
  check(has(styleOf(first).style, WS_GROUP), "the first option starts a group");
  check(!has(styleOf(second, &first).style, WS_GROUP), "the next option continues it");
  check(has(styleOf(elsewhere, &second).style, WS_GROUP), "another frame starts a group");
  check(has(styleOf(second, &label).style, WS_GROUP), "an option after a label starts a group");

  Control password = control(ControlKind::TextBox, "txtPassword");
  password.masked = true;
  Control name = control(ControlKind::TextBox, "txtSaveName");
  check(has(styleOf(password).style, ES_PASSWORD), "the password is masked");
  check(!has(styleOf(name).style, ES_PASSWORD), "other text is shown");
  check(std::wstring(styleOf(name).windowClass) == WC_EDITW &&
            styleOf(name).exStyle == WS_EX_CLIENTEDGE,
        "a text box is an edit with an edge");

  // A step frame is a flat caption; a frame inside it a group box.
  Control step = control(ControlKind::Frame, "fraStep", 0);
  Control inner = control(ControlKind::Frame, "Frame3", -1, "fraStep", 3);
  check(std::wstring(styleOf(step).windowClass) == WC_STATICW, "a step frame is a static");
  check(std::wstring(styleOf(inner).windowClass) == WC_BUTTONW &&
            typeIs(styleOf(inner).style, BS_GROUPBOX),
        "an inner frame is a group box");

  std::printf(failures == 0 ? "OK control styles\n" : "FAILED control styles\n");
  return failures == 0 ? 0 : 1;
}
