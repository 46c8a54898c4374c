// The headless wizard: a view without a screen, and a driver that acts as the user would and
// reads every control, for tests, benchmarks and hosts without a display.
//
// HeadlessView::showModal runs the session it was given (what the user does while the form
// is up) and returns; with no session it returns at once and the form stays loaded, so a test
// can go on driving it. WizardDriver refuses (answers false, changes nothing) what a user could
// not do: clicking or typing into a control that is hidden, disabled, inside a disabled frame
// or on a step that is not shown, or ticking a node that is not in the tree.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "wizard/wizard_form.h"

namespace dossync::wizard {

class HeadlessView : public IWizardView {
 public:
  void showModal(const ObjectPtr& ownerWindow) override;
  void unload() override { ++unloads; }
  void refresh() override { ++refreshes; }

  std::function<void()> session;
  ObjectPtr ownerWindow;
  int32_t shown = 0, unloads = 0, refreshes = 0;
};

class WizardDriver {
 public:
  explicit WizardDriver(frmWizard& form) : form_(form) {}
  frmWizard& form() { return form_; }

  // Acting.
  bool click(const std::string& name, int32_t index = -1);
  bool type(const std::string& name, const std::string& text);
  bool pick(const std::string& entryText);  // an entry of cboSavedScheme, by its text
  bool tick(const std::string& key, bool checked = true);
  void close() { form_.userClose(); }

  // Reading.
  std::string caption() const { return form_.caption(); }
  int32_t step() const { return form_.currentStep(); }
  Control& get(const std::string& name, int32_t index = -1) { return form_.control(name, index); }
  bool canUse(const std::string& name, int32_t index = -1);
  std::string text(const std::string& name, int32_t index = -1) { return get(name, index).text; }
  bool value(const std::string& name, int32_t index = -1) { return get(name, index).value; }
  std::vector<std::string> comboEntries();
  bool checked(const std::string& key);
  std::vector<std::string> checkedKeys();
  // The tree as indented lines: "[x] Company:3 Acme Ltd".
  std::string treeText();

 private:
  frmWizard& form_;
};

// A frmWizard with its own HeadlessView, as the platform hands it to openSynchForm.
class HeadlessWizard : public frmWizard {
 public:
  HeadlessWizard() { setView(&view); }
  HeadlessView view;
};

// Registers HeadlessWizard as "frmWizard"; session runs while each form is shown.
void registerHeadlessWizard(std::function<void(WizardDriver&)> session);

}  // namespace dossync::wizard
