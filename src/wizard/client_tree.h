// clsPopulateClientTree: fills a tree with the host address book (categories nested to any
// depth, the companies in each category with their associate companies beneath them and,
// when asked, the contacts of each company), reading the host database through the
// apartment's host data access object.
//
// Node keys: root "Main" ("Address Book"), "Category:<CategoryID>", "Company:<CompanyID>",
// "Contact:<ContactID>". Images: 7 root and categories, 1 companies, 3 default contacts,
// 8 other contacts (indices into imageListControl, which the host fills).
//
// Decisions where the address book leaves room:
//  - The two "shown clients only" modes add no root and no categories: every shown company is
//    a top-level node, whatever its category and whether it is an associate of another.
//    The shown-companies statement decides which clients are shown; there is no further test
//    on the client record. A contact is added under its company when that company is in the
//    tree and left out otherwise (also when it has no company).
//  - In the full address book a company whose CompanyNum names another company of the book
//    (an associate) is placed by addAssociateCompanies beneath that company, not also in the
//    category walk; an associate whose CompanyNum names no company is placed by its category
//    like any other. Associates that only lead round in a circle are not shown.
//  - incProgressBar is raised after every category, company and contact node, with the number
//    of such nodes added so far (the root is not counted).
//  - The indentation is 19 pixels.
//  - Reading the host's rows calls the platform's message pump once per row, like every long
//    walk of the component, so the window stays alive while large books are counted.
// A node the tree refuses (a parent that is not in the tree, a key already there) is an error
// of the procedure adding it: it is reported and that procedure ends, keeping what it added.
// Thread use: the apartment's one thread.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "wizard/tree_view.h"

namespace dossync::wizard {

class clsPopulateClientTree {
 public:
  std::shared_ptr<TreeView> treeViewControl;
  std::shared_ptr<ImageList> imageListControl;
  std::string currentlySelectedNodeName;
  bool showContacts = false;
  bool expandAllCompanies = false;
  void setShowOnlyDossieraCompanies(bool v);
  bool showOnlyDossieraCompanies() const { return showOnlyDossieraCompanies_; }
  bool showOnlyDossieraCompaniesAndContacts = false;
  bool showOnlyCategories = false;
  int32_t hostCategory = 0;

  int32_t getRecordCount();
  void populateAddressBookTree();
  std::string getSelectedNodeType();
  std::string getSelectedNodeID();
  int32_t getSelectedCategoryID();

  // The event incProgressBar(count).
  std::function<void(int32_t)> incProgressBar;

  static constexpr int32_t kIndentation = 19;

 private:
  struct CategoryRow {
    std::string id, name, parent;
  };
  struct CompanyRow {
    std::string id, name, category, parent;
  };
  struct ContactRow {
    std::string id, name, company, category;
    bool isDefault = false;
  };

  bool dossieraOnly() const {
    return showOnlyDossieraCompanies_ || showOnlyDossieraCompaniesAndContacts;
  }
  bool contactsWanted() const {
    return !showOnlyCategories && (showContacts || showOnlyDossieraCompaniesAndContacts);
  }
  void readCompanies(const std::string& sql);
  void addSubCategories(const std::string& categoryID);
  void addAssociateCompanies(const std::string& companyID);
  void addCompany(const CompanyRow& row, const std::string& parentKey);
  void advance();

  bool showOnlyDossieraCompanies_ = false;
  // The rows of the recordsets getRecordCount opened, as the fill walks them.
  std::vector<CategoryRow> categories_;
  std::vector<CompanyRow> companies_;
  std::vector<ContactRow> contacts_;
  std::unordered_map<std::string, std::vector<size_t>> subCategories_;  // by parent ID
  std::unordered_map<std::string, std::vector<size_t>> associates_;     // by parent company ID
  int32_t added_ = 0;
};

}  // namespace dossync::wizard
