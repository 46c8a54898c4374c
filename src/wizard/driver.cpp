#include "wizard/driver.h"

#include <sstream>

#include "base/platform.h"

namespace dossync::wizard {

void HeadlessView::showModal(const ObjectPtr& owner) {
  ++shown;
  ownerWindow = owner;
  if (session) session();
}

bool WizardDriver::canUse(const std::string& name, int32_t index) {
  return form_.reachable(form_.control(name, index));
}

bool WizardDriver::click(const std::string& name, int32_t index) {
  Control& c = form_.control(name, index);
  if (!form_.reachable(c)) return false;
  form_.userClick(c);
  return true;
}

bool WizardDriver::type(const std::string& name, const std::string& text) {
  Control& c = form_.control(name);
  if (!form_.reachable(c) || c.kind != ControlKind::TextBox) return false;
  form_.userType(c, text);
  return true;
}

bool WizardDriver::pick(const std::string& entryText) {
  Control& c = form_.control("cboSavedScheme");
  if (!form_.reachable(c)) return false;
  for (size_t i = 0; i < c.items.size(); ++i) {
    if (c.items[i].text == entryText) {
      form_.userPick(static_cast<int32_t>(i));
      return true;
    }
  }
  return false;
}

bool WizardDriver::tick(const std::string& key, bool checked) {
  Control& c = form_.control("tvwContacts");
  TreeNode* n = form_.tree().find(key);
  if (!n || !form_.reachable(c)) return false;
  form_.userCheck(n->index, checked);
  return true;
}

std::vector<std::string> WizardDriver::comboEntries() {
  std::vector<std::string> out;
  for (const ComboItem& i : form_.control("cboSavedScheme").items) out.push_back(i.text);
  return out;
}

bool WizardDriver::checked(const std::string& key) {
  TreeNode* n = form_.tree().find(key);
  return n && n->checked;
}

std::vector<std::string> WizardDriver::checkedKeys() {
  std::vector<std::string> out;
  TreeView& t = form_.tree();
  for (int32_t i = 1; i <= t.count(); ++i)
    if (t.node(i).checked) out.push_back(t.node(i).key);
  return out;
}

std::string WizardDriver::treeText() {
  std::ostringstream out;
  TreeView& t = form_.tree();
  std::function<void(int32_t, int)> walk = [&](int32_t i, int depth) {
    const TreeNode& n = t.node(i);
    out << std::string(static_cast<size_t>(depth) * 2, ' ') << (n.checked ? "[x] " : "[ ] ")
        << n.key << " " << n.text << "\n";
    for (int32_t c : n.children) walk(c, depth + 1);
  };
  for (int32_t i : t.topLevel()) walk(i, 0);
  return out.str();
}

void registerHeadlessWizard(std::function<void(WizardDriver&)> session) {
  platform::registerClass(kWizardFormClass, [session]() -> ObjectPtr {
    auto form = std::make_shared<HeadlessWizard>();
    HeadlessWizard* raw = form.get();
    if (session)
      raw->view.session = [raw, session] {
        WizardDriver d(*raw);
        session(d);
      };
    return form;
  });
}

}  // namespace dossync::wizard
