// The child window a wizard control becomes (controlStyle), where it depends on the control:
// the default button, radio groups, the masked password, step frames and group boxes. Prints
// "OK control styles" when every row holds; exits 1 otherwise.
#include <cstdio>
#include <string>

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
  int failures = 0;
  auto check = [&](const char* what, bool holds) {
    if (holds) return;
    std::printf("FAIL %s\n", what);
    ++failures;
  };
  auto styleOf = [](const Control& c, const Control* previous = nullptr) {
    return dossync::win32ui::controlStyle(c, previous);
  };
  auto has = [](DWORD style, DWORD bits) { return (style & bits) == bits; };
  auto typeIs = [](DWORD style, DWORD type) { return (style & BS_TYPEMASK) == type; };

  Control next = control(ControlKind::CommandButton, "cmdNav", 3);
  Control back = control(ControlKind::CommandButton, "cmdNav", 2);
  check("Next is the default button", typeIs(styleOf(next).style, BS_DEFPUSHBUTTON));
  check("Back is a plain button", typeIs(styleOf(back).style, BS_PUSHBUTTON));
  check("buttons are tab stops", has(styleOf(back).style, WS_TABSTOP | WS_GROUP));

  // An option array in one frame is one radio group; the same array in another frame, or after
  // another control, starts a group of its own.
  Control first = control(ControlKind::OptionButton, "optInfoType", 1, "Frame3");
  Control second = control(ControlKind::OptionButton, "optInfoType", 2, "Frame3");
  Control elsewhere = control(ControlKind::OptionButton, "optInfoType", 3, "Frame6");
  Control label = control(ControlKind::Label, "Label6", -1, "Frame3");
  check("an option button is a radio button", typeIs(styleOf(first).style, BS_RADIOBUTTON));
  check("the first option starts a group", has(styleOf(first).style, WS_GROUP));
  check("the next option continues it", !has(styleOf(second, &first).style, WS_GROUP));
  check("another frame starts a group", has(styleOf(elsewhere, &second).style, WS_GROUP));
  check("an option after a label starts a group", has(styleOf(second, &label).style, WS_GROUP));

  Control password = control(ControlKind::TextBox, "txtPassword");
  password.masked = true;
  Control name = control(ControlKind::TextBox, "txtSaveName");
  check("the password is masked", has(styleOf(password).style, ES_PASSWORD));
  check("other text is shown", !has(styleOf(name).style, ES_PASSWORD));
  check("a text box is an edit with an edge", std::wstring(styleOf(name).windowClass) == WC_EDITW &&
                                                  styleOf(name).exStyle == WS_EX_CLIENTEDGE);

  // A step frame is a flat caption; a frame inside it a group box.
  Control step = control(ControlKind::Frame, "fraStep", 0);
  Control inner = control(ControlKind::Frame, "Frame3", -1, "fraStep", 3);
  check("a step frame is a static", std::wstring(styleOf(step).windowClass) == WC_STATICW);
  check("an inner frame is a group box", std::wstring(styleOf(inner).windowClass) == WC_BUTTONW &&
                                             typeIs(styleOf(inner).style, BS_GROUPBOX));

  if (failures) return 1;
  std::printf("OK control styles\n");
  return 0;
}
