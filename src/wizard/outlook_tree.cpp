#include "wizard/outlook_tree.h"

#include <unordered_set>

#include "base/platform.h"
#include "core/apartment.h"

namespace dossync::wizard {

clsOutlookContactTree::clsOutlookContactTree() {
  ErrorFrame f("kvoutlookdx.dll-clsOutlookContactTree-Class_Initialize");
  f.step([&] {
    showProgress = true;
    showOnlyCategories = false;
  });
}

std::string clsOutlookContactTree::nodeText(const outlook::ContactItem& item) {
  for (auto p : {outlook::ContactProperty::FileAs, outlook::ContactProperty::FullName,
                 outlook::ContactProperty::CompanyName, outlook::ContactProperty::Email1Address}) {
    std::string t = item.get(p);
    if (!t.empty()) return t;
  }
  return "";
}

std::shared_ptr<outlook::Items> clsOutlookContactTree::contactItems() {
  if (!OutlookNameSpace) throw RuntimeError(kObjectVariableNotSet, "Outlook is not open");
  auto folder = OutlookNameSpace->GetDefaultFolder(outlook::olFolderContacts);
  if (!folder) throw RuntimeError(kObjectVariableNotSet, "Outlook has no contacts folder");
  return folder->Items();
}

int32_t clsOutlookContactTree::getRecordCount() {
  ErrorFrame f("Contactory.exe-clsOutlookContactTree-getRecordCount");
  int32_t count = 0;
  categories_.clear();
  std::shared_ptr<outlook::Items> items;
  f.step([&] { items = contactItems(); });
  if (!items) return count;
  int32_t n = 0;
  f.step([&] { n = items->Count(); });
  std::unordered_set<std::string> seen;
  for (int32_t i = 1; i <= n && !f.leaving(); ++i) {
    f.step([&] {
      auto item = items->Item(i);
      if (!item || item->Class() != outlook::olContact) return;
      ++count;
      auto contact = std::dynamic_pointer_cast<outlook::ContactItem>(item);
      std::string category = contact ? contact->Categories() : "";
      if (!category.empty() && seen.insert(category).second) categories_.push_back(category);
    });
  }
  return count;
}

void clsOutlookContactTree::populateOutlookTree() {
  ErrorFrame f("Contactory.exe-clsOutlookContactTree-populateOutlookTree");
  if (showProgress) {
    f.step([&] {
      dialog_ = platform::create<IProgressDialog>(kProgressDialogClass);
      dialog_->setStartHandler([this] { outlookDialog_StartProgress(); });
      dialog_->setMessage("Getting Outlook information, please wait ...");
      dialog_->setStyle(1);
      dialog_->setOwner(nullptr);
      dialog_->setNumber(101);
      dialog_->show();
    });
    f.step([&] { dialog_.reset(); });
  } else {
    f.step([&] { getRecordCount(); });
    f.step([&] { fill(); });
  }
}

void clsOutlookContactTree::outlookDialog_StartProgress() {
  ErrorFrame f("Dossiera.exe-frmMain-outlookDialog_StartProgress");
  f.step([&] {
    if (!dialog_) return;
    dialog_->setMessage("Getting Outlook contacts, please wait ...");
    dialog_->setMinimum(0);
    dialog_->setShowBar(true);
    dialog_->setValue(0);
    dialog_->setAllowCancel(false);
  });
  int32_t total = 0;
  f.step([&] { total = getRecordCount(); });
  f.step([&] {
    if (dialog_) dialog_->setMaximum(total + static_cast<int32_t>(categories_.size()));
  });
  f.step([&] { fill(); });
  f.step([&] {
    if (dialog_) dialog_->close();
  });
}

void clsOutlookContactTree::advance() {
  if (!showProgress) return;
  ++count_;
  if (incProgressBar) incProgressBar(count_);
  if (dialog_) dialog_->setValue(count_);
}

// Runs inside populateOutlookTree's frame: an error ends the fill there.
void clsOutlookContactTree::fill() {
  if (!treeViewControl) throw RuntimeError(kObjectVariableNotSet, "No tree view to fill");
  TreeView& tree = *treeViewControl;
  tree.clear();
  tree.setImageList(imageListControl);
  tree.setIndentation(19);
  count_ = 0;
  TreeNode& root = tree.add("", tvwChild, "Main", "Outlook Contacts", 7, 7);
  tree.setBold(root.index, true);
  tree.setExpanded(root.index, true);
  tree.select(root.index);
  for (const std::string& category : categories_) {
    tree.add("Main", tvwChild, "Category:" + category, category, 7, 7);
    advance();
  }
  if (showOnlyCategories) return;
  auto items = contactItems();
  for (int32_t i = 1, n = items->Count(); i <= n; ++i) {
    auto item = items->Item(i);
    if (!item || item->Class() != outlook::olContact) continue;
    auto contact = std::dynamic_pointer_cast<outlook::ContactItem>(item);
    if (!contact) continue;
    std::string category = contact->Categories();
    if (!category.empty()) {
      tree.add("Category:" + category, tvwChild, "Contact:" + contact->EntryID(),
               nodeText(*contact), 1, 1);
    } else {
      tree.add("Main", tvwChild, "Contact:" + contact->EntryID(), nodeText(*contact), 1, 2);
    }
    advance();
  }
}

}  // namespace dossync::wizard
