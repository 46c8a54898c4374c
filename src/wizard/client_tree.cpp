#include "wizard/client_tree.h"

#include <unordered_set>

#include "base/value.h"
#include "core/apartment.h"
#include "core/recordset.h"

namespace dossync::wizard {
namespace {

const char* const kFillLocation = "Contactory.exe-clsPopulateClientTree-populateAddressBookTree";

const char* const kCategoriesSql =
    "SELECT Categories.* FROM Categories ORDER BY Categories.CategoryName;";
const char* const kCompaniesSql =
    "SELECT Companies.* FROM Companies ORDER BY Companies.CompanyName;";
const char* const kShownCompaniesCountSql =
    "SELECT ClientData.ShowThisClient, Companies.CompanyID, Companies.CategoryNum, "
    "Companies.CompanyNum, Companies.CompanyName FROM Companies INNER JOIN ClientData ON "
    "Companies.CompanyID = ClientData.CompanyIDNum WHERE ClientData.ShowThisClient=True;";
const char* const kShownCompaniesFillSql =
    "SELECT ClientData.*, AccountingServices.*, ClientOptions.*, Companies.*, CorpTaxInfo.*, "
    "LawInfo.*, OtherInfo.*, WSIB_EHTInfo.* FROM ((((((ClientData INNER JOIN AccountingServices "
    "ON ClientData.ClientDataID = AccountingServices.AccountingServicesID) INNER JOIN "
    "ClientOptions ON ClientData.ClientDataID = ClientOptions.ClientOptionsID) INNER JOIN "
    "Companies ON ClientData.CompanyIDNum = Companies.CompanyID) INNER JOIN CorpTaxInfo ON "
    "ClientData.ClientDataID = CorpTaxInfo.CorpTaxInfoID) INNER JOIN LawInfo ON "
    "ClientData.ClientDataID = LawInfo.LawInfoID) INNER JOIN OtherInfo ON "
    "ClientData.ClientDataID = OtherInfo.OtherInfoID) INNER JOIN WSIB_EHTInfo ON "
    "ClientData.ClientDataID = WSIB_EHTInfo.WSIB_EHTInfoID WHERE ClientData.ShowThisClient = "
    "True ORDER BY Companies.CompanyName;";
const char* const kContactsSql = "SELECT Contacts.* FROM Contacts ORDER BY Contacts.DisplayName;";

hostdb::IDataAccess& hostDb() {
  auto& db = apartment().hostDb;
  if (!db) throw RuntimeError(kObjectVariableNotSet, "The companies database is not open");
  return *db;
}

bool isSet(const std::string& flag) {
  auto b = value::parseBoolean(flag);
  return b && *b;
}

// The identifier after the prefix of a key ("Category:12" -> "12").
std::string idOf(const std::string& key) {
  size_t colon = key.find(':');
  return colon == std::string::npos ? "" : key.substr(colon + 1);
}

}  // namespace

void clsPopulateClientTree::setShowOnlyDossieraCompanies(bool v) {
  showOnlyDossieraCompanies_ = v;
  if (v) {
    showContacts = false;
    expandAllCompanies = false;
  }
}

void clsPopulateClientTree::readCompanies(const std::string& sql) {
  companies_.clear();
  associates_.clear();
  hostdb::Recordset rs(hostDb(), sql);
  for (; !rs.eof(); rs.next()) {
    companies_.push_back({rs.read("CompanyID"), rs.read("CompanyName"), rs.read("CategoryNum"),
                          rs.read("CompanyNum")});
    apartment().doEvents();
  }
}

int32_t clsPopulateClientTree::getRecordCount() {
  ErrorFrame f(kFillLocation);
  int32_t count = 0;
  f.step([&] {
    categories_.clear();
    companies_.clear();
    contacts_.clear();
    bool wantCategories = showOnlyCategories || !dossieraOnly();
    bool wantCompanies = !showOnlyCategories;
    bool wantContacts = !showOnlyCategories && !showOnlyDossieraCompanies_ &&
                        (showOnlyDossieraCompaniesAndContacts || showContacts);
    if (wantCategories) {
      hostdb::Recordset rs(hostDb(), kCategoriesSql);
      for (; !rs.eof(); rs.next())
        categories_.push_back(
            {rs.read("CategoryID"), rs.read("CategoryName"), rs.read("CategoryNum")});
    }
    if (wantCompanies) readCompanies(dossieraOnly() ? kShownCompaniesCountSql : kCompaniesSql);
    if (wantContacts) {
      hostdb::Recordset rs(hostDb(), kContactsSql);
      for (; !rs.eof(); rs.next()) {
        contacts_.push_back({rs.read("ContactID"), rs.read("DisplayName"), rs.read("CompanyNum"),
                             rs.read("CategoryNum"), isSet(rs.read("DefaultContact"))});
        apartment().doEvents();
      }
    }
    count = static_cast<int32_t>(categories_.size() + companies_.size() + contacts_.size());
  });
  return count;
}

void clsPopulateClientTree::advance() {
  ++added_;
  if (incProgressBar) incProgressBar(added_);
}

void clsPopulateClientTree::populateAddressBookTree() {
  ErrorFrame f(kFillLocation);
  int32_t total = 0;
  f.step([&] { total = getRecordCount(); });
  if (total == 0 || f.leaving()) return;
  TreeView* tree = nullptr;
  f.step([&] {
    if (!treeViewControl) throw RuntimeError(kObjectVariableNotSet, "No tree view to fill");
    tree = treeViewControl.get();
    tree->clear();
    tree->setImageList(imageListControl);
    tree->setIndentation(kIndentation);
    added_ = 0;
  });
  if (!tree) return;
  f.step([&] {
    if (currentlySelectedNodeName.empty() && hostCategory >= 1)
      currentlySelectedNodeName = "Category:" + std::to_string(hostCategory);
  });

  if (!dossieraOnly()) {
    f.step([&] {
      TreeNode& root = tree->add("", tvwChild, "Main", "Address Book", 7, 7);
      tree->setBold(root.index, true);
      tree->setExpanded(root.index, true);
      subCategories_.clear();
      for (size_t i = 0; i < categories_.size(); ++i) {
        if (!value::isBlank(categories_[i].parent))
          subCategories_[categories_[i].parent].push_back(i);
      }
    });
    for (size_t i = 0; i < categories_.size() && !f.leaving(); ++i) {
      const CategoryRow& c = categories_[i];
      if (!value::isBlank(c.parent)) continue;
      f.step([&] {
        TreeNode& n = tree->add("Main", tvwChild, "Category:" + c.id, c.name, 7, 7);
        if (n.key == currentlySelectedNodeName) tree->select(n.index);
        tree->setBold(n.index, true);
        tree->setExpanded(n.index, true);
        advance();
      });
      f.step([&] { addSubCategories(c.id); });
    }
  }

  if (!showOnlyCategories) {
    if (dossieraOnly()) f.step([&] { readCompanies(kShownCompaniesFillSql); });
    std::unordered_set<std::string> ids;
    f.step([&] {
      associates_.clear();
      for (const CompanyRow& c : companies_) ids.insert(c.id);
      if (dossieraOnly()) return;
      for (size_t i = 0; i < companies_.size(); ++i) {
        const CompanyRow& c = companies_[i];
        if (!value::isBlank(c.parent) && ids.count(c.parent)) associates_[c.parent].push_back(i);
      }
    });
    for (size_t i = 0; i < companies_.size() && !f.leaving(); ++i) {
      const CompanyRow& c = companies_[i];
      if (dossieraOnly()) {
        f.step([&] { addCompany(c, ""); });
        continue;
      }
      if (!value::isBlank(c.parent) && ids.count(c.parent)) continue;  // placed by its parent
      f.step(
          [&] { addCompany(c, value::isBlank(c.category) ? "Main" : "Category:" + c.category); });
      f.step([&] { addAssociateCompanies(c.id); });
    }
  }

  if (contactsWanted()) {
    for (size_t i = 0; i < contacts_.size() && !f.leaving(); ++i) {
      const ContactRow& c = contacts_[i];
      f.step([&] {
        std::string parent;
        if (!value::isBlank(c.company)) {
          parent = "Company:" + c.company;
        } else if (!dossieraOnly()) {
          parent = value::isBlank(c.category) ? "Main" : "Category:" + c.category;
        }
        if (dossieraOnly() && (parent.empty() || !tree->find(parent))) return;
        int32_t image = c.isDefault ? 3 : 8;
        TreeNode& n = tree->add(parent, tvwChild, "Contact:" + c.id, c.name, image, image);
        if (n.key == currentlySelectedNodeName) tree->select(n.index);
        advance();
      });
    }
  }
}

void clsPopulateClientTree::addCompany(const CompanyRow& row, const std::string& parentKey) {
  TreeView& tree = *treeViewControl;
  TreeNode& n = tree.add(parentKey, tvwChild, "Company:" + row.id, row.name, 1, 1);
  if (n.key == currentlySelectedNodeName) {
    tree.select(n.index);
    tree.setExpanded(n.index, true);
  } else if (expandAllCompanies) {
    tree.setExpanded(n.index, true);
  }
  advance();
}

void clsPopulateClientTree::addSubCategories(const std::string& categoryID) {
  ErrorFrame f("kvoutlookdx4.dll-clsPopulateClientTree-addSubCategories");
  auto it = subCategories_.find(categoryID);
  if (it == subCategories_.end()) return;
  TreeView& tree = *treeViewControl;
  for (size_t i : it->second) {
    if (f.leaving()) break;
    const CategoryRow& c = categories_[i];
    f.step([&] {
      TreeNode& n = tree.add("Category:" + c.parent, tvwChild, "Category:" + c.id, c.name, 7, 7);
      if (n.key == currentlySelectedNodeName) tree.select(n.index);
      tree.setBold(n.index, true);
      tree.setExpanded(n.index, true);
      advance();
    });
    f.step([&] { addSubCategories(c.id); });
  }
}

void clsPopulateClientTree::addAssociateCompanies(const std::string& companyID) {
  ErrorFrame f("kvoutlookdx4.dll-clsPopulateClientTree-addAssociateCompanies");
  auto it = associates_.find(companyID);
  if (it == associates_.end()) return;
  for (size_t i : it->second) {
    if (f.leaving()) break;
    const CompanyRow& c = companies_[i];
    f.step([&] { addCompany(c, "Company:" + c.parent); });
    f.step([&] { addAssociateCompanies(c.id); });
  }
}

std::string clsPopulateClientTree::getSelectedNodeType() {
  ErrorFrame f("kvoutlookdx4.dll-frmContacts-getSelectedNodeType");
  std::string type;
  f.step([&] {
    TreeView& tree = *treeViewControl;
    if (!tree.selectedIndex()) return;
    const std::string& key = tree.node(tree.selectedIndex()).key;
    if (key == "Main")
      type = "AddressBook";
    else if (key.find("Category") != std::string::npos)
      type = "Category";
    else if (key.find("Company") != std::string::npos)
      type = "Company";
    else if (key.find("Contact") != std::string::npos)
      type = "Contact";
  });
  return type;
}

std::string clsPopulateClientTree::getSelectedNodeID() {
  ErrorFrame f("kvoutlookdx4.dll-frmContacts-getSelectedNodeID");
  std::string id;
  f.step([&] {
    TreeView& tree = *treeViewControl;
    if (tree.selectedIndex()) id = idOf(tree.node(tree.selectedIndex()).key);
  });
  return id;
}

int32_t clsPopulateClientTree::getSelectedCategoryID() {
  ErrorFrame f("kvoutlookdx4.dll-frmContacts-getSelectedCategoryID");
  int32_t category = 0;
  std::string type, id;
  f.step([&] {
    type = getSelectedNodeType();
    id = getSelectedNodeID();
  });
  f.step([&] {
    auto lookup = [&](const char* sql, const char* keyField) {
      hostdb::Recordset rs(hostDb(), sql);
      if (rs.find(keyField, id)) {
        std::string v = rs.read("CategoryNum");
        category = value::isBlank(v) ? 0 : value::toLong(v);
      }
    };
    if (type == "Category")
      category = value::toLong(id);
    else if (type == "Company")
      lookup(kCompaniesSql, "CompanyID");
    else if (type == "Contact")
      lookup(kContactsSql, "ContactID");
  });
  return category;
}

}  // namespace dossync::wizard
