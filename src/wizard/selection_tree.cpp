// The selection tree of step 1: filling it from the host address book or from Outlook, the
// spreading of a user's check mark through a subtree, and the translation between the marks
// and the owner's companyCollection.
//
// A key is recognised by containing its prefix anywhere, and its identifier is everything
// from the ninth character on, whichever prefix it has.
#include "core/apartment.h"
#include "core/synchronization.h"
#include "wizard/wizard_form.h"

namespace dossync::wizard {
namespace {

const std::string kLoc = "kvoutlookdx.dll-frmWizard-";

bool has(const std::string& key, const char* prefix) {
  return key.find(prefix) != std::string::npos;
}

// Which column of the selection a node of the tree stands for in this direction and information
// type: 1 a company, 2 a host contact, 3 an Outlook contact; 0 none (a category, a folder).
int selectionColumn(const std::string& key, int32_t direction, int32_t info) {
  if (direction == syncFromOutlookToDossiera) return has(key, "Contact:") ? 3 : 0;
  if (direction != syncFromDossieraToOutlook) return 0;
  bool companies = info == companyWithDefaultContact || info == companyOnly;
  bool contacts = info == contactOnlyShowContactName || info == contactOnlyShowCompanyName;
  if (companies && has(key, "Company:")) return 1;
  if (contacts && has(key, "Contact:")) return 2;
  return 0;
}

}  // namespace

std::string frmWizard::keyIdentifier(const std::string& key) {
  return key.size() > 8 ? key.substr(8) : std::string();
}

void frmWizard::populateCompanyNames() {
  ErrorFrame f(kLoc + "populateCompanyNames");
  f.step([&] {
    listLoaded_ = true;
    control("tvwContacts").visible = false;
    control("lblProgress").visible = true;
    control("ReportProgressBar").visible = true;
    refresh();
    refresh();
  });
  f.step([&] {
    populateAddressBookTree_ = std::make_unique<clsPopulateClientTree>();
    populateAddressBookTree_->incProgressBar = [this](int32_t count) {
      populateAddressBookTree_incProgressBar(count);
    };
  });
  f.step([&] {
    clsPopulateClientTree& t = *populateAddressBookTree_;
    int32_t list = owner().companyList();
    int32_t info = owner().SyncInformationType();
    bool companies = info == companyWithDefaultContact || info == companyOnly;
    bool contacts = info == contactOnlyShowContactName || info == contactOnlyShowCompanyName;
    if (list == Dossiera && companies) {
      t.setShowOnlyDossieraCompanies(true);
    } else if (list == Dossiera && contacts) {
      t.showOnlyDossieraCompaniesAndContacts = true;
      t.expandAllCompanies = true;
    } else if (list == AddressBook && companies) {
      t.showContacts = false;
    } else if (list == AddressBook && contacts) {
      t.showContacts = true;
      t.expandAllCompanies = true;
    }
  });
  f.step([&] {
    Control& bar = control("ReportProgressBar");
    bar.minimum = 0;
    bar.maximum = populateAddressBookTree_->getRecordCount();
    bar.progress = 0;
  });
  f.step([&] {
    populateAddressBookTree_->imageListControl = ImageList1_;
    populateAddressBookTree_->treeViewControl = tvwContacts_;
    populateAddressBookTree_->populateAddressBookTree();
  });
  f.step([&] {
    populateAddressBookTree_.reset();
    control("tvwContacts").visible = true;
    control("lblProgress").visible = false;
    control("ReportProgressBar").visible = false;
  });
}

void frmWizard::populateOutlookNames() {
  ErrorFrame f(kLoc + "populateOutlookNames");
  f.step([&] {
    listLoaded_ = true;
    populateOutlookTree_ = std::make_unique<clsOutlookContactTree>();
    populateOutlookTree_->incProgressBar = [this](int32_t count) {
      populateOutlookTree_incProgressBar(count);
    };
    populateOutlookTree_->imageListControl = ImageList1_;
    populateOutlookTree_->treeViewControl = tvwContacts_;
  });
  f.step([&] {
    apartment().setMousePointer(kPointerHourglass);
    owner().StartOutlook();
    populateOutlookTree_->OutlookNameSpace = owner().outlookNameSpace();
    apartment().setMousePointer(kPointerDefault);
    populateOutlookTree_->populateOutlookTree();
    owner().StopOutlook();
  });
  f.step([&] { populateOutlookTree_.reset(); });
}

void frmWizard::populateAddressBookTree_incProgressBar(int32_t count) {
  ErrorFrame f(kLoc + "populateAddressBookTree_incProgressBar");
  f.step([&] {
    Control& bar = control("ReportProgressBar");
    if (count <= bar.maximum) bar.progress = count;
    refresh();
  });
}

void frmWizard::populateOutlookTree_incProgressBar(int32_t count) {
  ErrorFrame f(kLoc + "populateOutlookTree_incProgressBar");
  f.step([&] {
    control("ReportProgressBar").progress = count;
    refresh();
  });
}

void frmWizard::tvwContacts_NodeCheck(int32_t nodeIndex) {
  ErrorFrame f(kLoc + "tvwContacts_NodeCheck");
  f.step([&] { checkAllChildNodes(nodeIndex, tvwContacts_->node(nodeIndex).checked); });
}

void frmWizard::checkAllChildNodes(int32_t nodeIndex, bool checked) {
  ErrorFrame f(kLoc + "checkAllChildNodes");
  f.step([&] {
    TreeView& tree = *tvwContacts_;
    if (tree.childCount(nodeIndex) == 0) return;
    int32_t child = tree.child(nodeIndex);
    int32_t last = tree.lastSibling(child);
    for (;;) {
      checkNode(child, checked);
      if (tree.childCount(child) > 0) checkAllChildNodes(child, checked);
      if (child == last) break;
      child = tree.next(child);
    }
  });
  f.step([&] { checkNode(nodeIndex, checked); });
}

void frmWizard::checkNode(int32_t nodeIndex, bool checked) {
  ErrorFrame f(kLoc + "checkNode");
  f.step([&] {
    TreeView& tree = *tvwContacts_;
    const std::string& key = tree.node(nodeIndex).key;
    int32_t direction = owner().SyncDirectionType();
    int32_t info = owner().SyncInformationType();
    bool selectable = false;
    if (direction == syncFromOutlookToDossiera) {
      selectable = has(key, "Contact:");
    } else if (direction == syncFromDossieraToOutlook) {
      if (info == companyWithDefaultContact || info == companyOnly)
        selectable = has(key, "Company:");
      else if (info == contactOnlyShowContactName || info == contactOnlyShowCompanyName)
        selectable = has(key, "Contact:");
      else
        selectable = true;
    }
    if (selectable) tree.setChecked(nodeIndex, checked);
  });
}

void frmWizard::getSelectedCompanies() {
  ErrorFrame f(kLoc + "getSelectedCompanies");
  f.step([&] { selection().clear(); });
  f.step([&] {
    SelectionCollection& s = selection();
    TreeView& tree = *tvwContacts_;
    int32_t direction = owner().SyncDirectionType();
    int32_t info = owner().SyncInformationType();
    for (int32_t i = 1; i <= tree.count(); ++i) {
      const TreeNode& n = tree.node(i);
      if (!n.checked) continue;
      int column = selectionColumn(n.key, direction, info);
      if (column == 0) continue;
      std::string id = keyIdentifier(n.key);
      s.add(column == 1 ? id : "", column == 2 ? id : "", column == 3 ? id : "");
    }
  });
}

void frmWizard::populateCheckedItems() {
  ErrorFrame f(kLoc + "populateCheckedItems");
  f.step([&] {
    SelectionCollection& s = selection();
    if (s.isEmpty()) return;
    TreeView& tree = *tvwContacts_;
    int32_t direction = owner().SyncDirectionType();
    int32_t info = owner().SyncInformationType();
    for (int32_t i = 1; i <= tree.count(); ++i) {
      const std::string& key = tree.node(i).key;
      if (int column = selectionColumn(key, direction, info))
        tree.setChecked(i, s.contains(keyIdentifier(key), column));
    }
  });
}

}  // namespace dossync::wizard
