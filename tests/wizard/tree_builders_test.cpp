// The two tree builders (the host address book in each of its modes, the Outlook contacts), and
// the wizard's selection tree: check marks spreading through subtrees, which nodes take a mark
// for each direction and information type, and the marks turned into companyCollection and back.
#include "wizard/client_tree.h"
#include "wizard/outlook_tree.h"
#include "wizard_fixture.h"

#include <filesystem>
#include <fstream>

namespace dossync {
namespace {

using wizard::TreeView;

std::string dump(TreeView& t) {
  std::string out;
  std::function<void(int32_t, int)> walk = [&](int32_t i, int depth) {
    const wizard::TreeNode& n = t.node(i);
    out += std::string(static_cast<size_t>(depth) * 2, ' ') + n.key + " " + n.text + " " +
           std::to_string(n.image) + (n.bold ? " b" : "") + (n.expanded ? " e" : "") +
           (t.selectedIndex() == i ? " s" : "") + "\n";
    for (int32_t c : n.children) walk(c, depth + 1);
  };
  for (int32_t i : t.topLevel()) walk(i, 0);
  return out;
}

class ClientTreeTest : public testing::HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    testing::fillAddressBook(host->hostPath);
    builder.treeViewControl = tree;
    builder.imageListControl = std::make_shared<wizard::ImageList>();
    builder.incProgressBar = [this](int32_t n) { progress.push_back(n); };
  }
  std::shared_ptr<TreeView> tree = std::make_shared<TreeView>();
  wizard::clsPopulateClientTree builder;
  std::vector<int32_t> progress;
};

// Nested categories, associates under their company, contacts with their images and places;
// or the categories alone.
TEST_F(ClientTreeTest, TheAddressBookWithItsContactsOrCategoriesOnly) {
  EXPECT_EQ(builder.getRecordCount(), 4 + 5);
  builder.showContacts = true;
  builder.expandAllCompanies = true;
  EXPECT_EQ(builder.getRecordCount(), 4 + 5 + 5);
  builder.populateAddressBookTree();
  EXPECT_EQ(progress, (std::vector<int32_t>{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14}));
  EXPECT_EQ(dump(*tree),
            "Main Address Book 7 b e\n"
            "  Category:1 Clients 7 b e\n"
            "    Category:2 Corporations 7 b e\n"
            "      Category:3 Holding 7 b e\n"
            "        Company:12 Beta Inc 1 e\n"
            "          Contact:22 Carl 3\n"
            "      Company:10 Acme Ltd 1 e\n"
            "        Company:11 Acme Sub 1 e\n"
            "        Contact:20 Ann 3\n"
            "        Contact:21 Bob 8\n"
            "  Category:4 Suppliers 7 b e\n"
            "    Company:14 Delta 1 e\n"
            "    Contact:23 Dora 8\n"
            "  Company:13 Gamma 1 e\n"
            "  Contact:24 Eve 8\n");

  // Categories only: no companies, and no contacts even when asked for.
  builder.showOnlyCategories = true;
  EXPECT_EQ(builder.getRecordCount(), 4);
  builder.populateAddressBookTree();
  EXPECT_EQ(tree->count(), 5);
  EXPECT_EQ(tree->find("Company:10"), nullptr);
}

TEST_F(ClientTreeTest, ShownClientsOnlyHaveNoRootAndNoCategories) {
  builder.showContacts = true;
  builder.expandAllCompanies = true;
  builder.setShowOnlyDossieraCompanies(true);  // switches contacts and expansion off
  // Counted by the short statement (Gamma has no detail rows but is shown), filled by the
  // long one, which needs every detail row.
  EXPECT_EQ(builder.getRecordCount(), 3);
  builder.populateAddressBookTree();
  EXPECT_EQ(dump(*tree), "Company:10 Acme Ltd 1\nCompany:12 Beta Inc 1\n");

  builder.setShowOnlyDossieraCompanies(false);
  builder.showOnlyDossieraCompaniesAndContacts = true;
  builder.expandAllCompanies = true;
  EXPECT_EQ(builder.getRecordCount(), 3 + 5);
  builder.populateAddressBookTree();
  EXPECT_EQ(dump(*tree),
            "Company:10 Acme Ltd 1 e\n  Contact:20 Ann 3\n  Contact:21 Bob 8\n"
            "Company:12 Beta Inc 1 e\n  Contact:22 Carl 3\n");
}

TEST_F(ClientTreeTest, SelectionByNodeNameOrHostCategory) {
  // The selected node as the builder tells it: "type id category".
  auto selected = [&] {
    return builder.getSelectedNodeType() + " " + builder.getSelectedNodeID() + " " +
           std::to_string(builder.getSelectedCategoryID());
  };
  builder.hostCategory = 3;
  builder.populateAddressBookTree();
  EXPECT_EQ(builder.currentlySelectedNodeName, "Category:3");
  EXPECT_EQ(selected(), "Category 3 3");

  builder.currentlySelectedNodeName = "Company:11";
  builder.populateAddressBookTree();
  EXPECT_EQ(selected(), "Company 11 3");
  // A selected company is expanded even without expandAllCompanies.
  EXPECT_TRUE(tree->find("Company:11")->expanded);
  EXPECT_FALSE(tree->find("Company:10")->expanded);

  builder.showContacts = true;
  builder.currentlySelectedNodeName = "Contact:23";
  builder.populateAddressBookTree();
  EXPECT_EQ(selected(), "Contact 23 4");
  tree->select(tree->find("Main")->index);
  EXPECT_EQ(builder.getSelectedNodeType(), "AddressBook");
}

TEST_F(ClientTreeTest, AnEmptyAddressBookLeavesTheTreeUntouched) {
  testing::execSql(host->hostPath, "DELETE FROM Categories; DELETE FROM Companies;");
  tree->add("", wizard::tvwChild, "Old", "kept");
  EXPECT_EQ(builder.getRecordCount(), 0);
  builder.populateAddressBookTree();
  EXPECT_EQ(dump(*tree), "Old kept 0\n");
}

TEST_F(ClientTreeTest, ARefusedNodeEndsTheFillWithWhatWasAdded) {
  // Alpha, after Acme in name order, names a category that does not exist.
  testing::execSql(
      host->hostPath,
      "INSERT INTO Companies (CompanyID, CompanyName, CategoryNum) VALUES (30, 'Alpha', 99);");
  builder.populateAddressBookTree();
  ASSERT_EQ(host->errors->errors.size(), 1u);
  EXPECT_EQ(host->errors->errors[0].number(), wizard::kTreeElementNotFound);
  EXPECT_EQ(tree->count(), 7) << dump(*tree);  // root, categories, Acme and its associate
  EXPECT_NE(tree->find("Company:11"), nullptr);
  EXPECT_EQ(tree->find("Company:12"), nullptr);
}

// ---- The Outlook contact tree, over cards written into the local store's folder.

class OutlookTreeTest : public testing::HostTest {  // the host's progress dialog is silent
 protected:
  void SetUp() override {
    HostTest::SetUp();
    // Three people filed under a category text each or none; one without a filing name; a group.
    auto folder = std::filesystem::path(host->outlookRoot) / "default" / "contacts";
    std::filesystem::create_directories(folder);
    for (const auto& [file, lines] : std::vector<std::pair<std::string, std::string>>{
             {"A", "X-DOSSYNC-FILEAS:Ann\nCATEGORIES:Friends\n"},
             {"B", "FN:Full B\nX-DOSSYNC-FILEAS:\n"},
             {"C", "X-DOSSYNC-FILEAS:Cid\nCATEGORIES:Friends,Work\n"},
             {"D", "X-DOSSYNC-FILEAS:Dee\nCATEGORIES:Friends\n"},
             {"LIST", "KIND:group\nFN:List\n"}})
      std::ofstream(folder / (file + ".vcf")) << "BEGIN:VCARD\nVERSION:4.0\nUID:" << file << "\n"
                                              << lines << "END:VCARD\n";
    c().StartOutlook();
    builder.OutlookNameSpace = c().outlookNameSpace();
    builder.treeViewControl = tree;
    builder.incProgressBar = [this](int32_t n) { progress.push_back(n); };
  }
  std::shared_ptr<TreeView> tree = std::make_shared<TreeView>();
  wizard::clsOutlookContactTree builder;
  std::vector<int32_t> progress;
};

TEST_F(OutlookTreeTest, ContactsGroupedByTheirWholeCategoryText) {
  EXPECT_EQ(builder.getRecordCount(), 4);  // the distribution list is not counted
  EXPECT_EQ(builder.categories(), (std::vector<std::string>{"Friends", "Friends, Work"}));
  builder.populateOutlookTree();
  EXPECT_EQ(dump(*tree),
            "Main Outlook Contacts 7 b e s\n"
            "  Category:Friends Friends 7\n"
            "    Contact:A Ann 1\n"
            "    Contact:D Dee 1\n"
            "  Category:Friends, Work Friends, Work 7\n"
            "    Contact:C Cid 1\n"
            "  Contact:B Full B 1\n");
  EXPECT_EQ(tree->find("Contact:B")->selectedImage, 2);
  EXPECT_EQ(tree->find("Contact:A")->selectedImage, 1);
  EXPECT_EQ(progress, (std::vector<int32_t>{1, 2, 3, 4, 5, 6}));
  EXPECT_TRUE(host->errors->errors.empty());
}

TEST_F(OutlookTreeTest, WithoutProgressOrOutlookTheFillStopsEarly) {
  builder.showProgress = false;
  builder.showOnlyCategories = true;
  builder.populateOutlookTree();
  EXPECT_EQ(tree->count(), 3);
  EXPECT_TRUE(progress.empty());

  // Without Outlook the tree holds only its root, and the failure is reported.
  builder.OutlookNameSpace = nullptr;
  builder.populateOutlookTree();
  EXPECT_EQ(dump(*tree), "Main Outlook Contacts 7 b e s\n");
  EXPECT_FALSE(host->errors->errors.empty());
}

// ---- The selection tree.

class SelectionTreeTest : public testing::WizardTest {
 protected:
  // On step 1 with the tree replaced by: Main > Category:1 > Company:5 > Contact:7, plus
  // Contact:8 under Main and Company:6 under Category:1; or by Main alone.
  wizard::TreeView& smallTree(int32_t direction = 2, int32_t info = 1, bool mainAlone = false) {
    start();
    EXPECT_TRUE(d->click("cmdNav", 3));
    c().setSyncDirectionType(direction);
    c().setSyncInformationType(info);
    wizard::TreeView& t = form->tree();
    t.clear();
    t.add("", wizard::tvwChild, "Main", "Root");
    using Node = std::pair<const char*, const char*>;  // parent, key
    for (auto [parent, key] : {Node{"Main", "Category:1"}, Node{"Category:1", "Company:5"},
                               Node{"Company:5", "Contact:7"}, Node{"Main", "Contact:8"},
                               Node{"Category:1", "Company:6"}})
      if (!mainAlone) t.add(parent, wizard::tvwChild, key, key);
    return t;
  }
};

TEST_F(SelectionTreeTest, AMarkSpreadsThroughTheWholeSubtreeAtAnyDepth) {
  wizard::TreeView& t = smallTree(2, 1, true);
  std::string parent = "Main";
  for (int i = 1; i <= 300; ++i) {  // categories nested 300 deep, a company at every level
    std::string key = "Category:" + std::to_string(i);
    t.add(parent, wizard::tvwChild, key, key);
    t.add(key, wizard::tvwChild, "Company:" + std::to_string(1000 + i), "c");
    parent = key;
  }
  ASSERT_TRUE(d->tick("Category:1"));
  EXPECT_EQ(d->checkedKeys().size(), 301u);  // every company, and the clicked category itself
  EXPECT_TRUE(d->checked("Category:1") && !d->checked("Category:2") && d->checked("Company:1300"));
  ASSERT_TRUE(d->tick("Category:150", false));
  EXPECT_TRUE(d->checked("Company:1149") && !d->checked("Company:1150") &&
              !d->checked("Company:1300"));
}

TEST_F(SelectionTreeTest, WhichNodesTakeTheMarkForEachSetting) {
  struct Case {
    int32_t direction, info;
    std::vector<std::string> checked;  // after ticking Main
  };
  const std::vector<Case> cases = {
      {2, 1, {"Main", "Company:5", "Company:6"}},
      {2, 2, {"Main", "Company:5", "Company:6"}},
      {2, 3, {"Main", "Contact:7", "Contact:8"}},
      {2, 4, {"Main", "Contact:7", "Contact:8"}},
      {2, 7, {"Main", "Category:1", "Company:5", "Contact:7", "Contact:8", "Company:6"}},
      {3, 1, {"Main", "Contact:7", "Contact:8"}},
      {1, 1, {"Main"}},
  };
  for (const Case& k : cases) {
    SCOPED_TRACE("direction " + std::to_string(k.direction) + " info " + std::to_string(k.info));
    smallTree(k.direction, k.info);
    ASSERT_TRUE(d->tick("Main"));  // the clicked node keeps the user's mark, whatever it is
    EXPECT_EQ(d->checkedKeys(), k.checked);
  }
}

TEST_F(SelectionTreeTest, MarksBecomeEntriesByDirectionAndInformationType) {
  wizard::TreeView& t = smallTree();
  for (int32_t i = 1; i <= t.count(); ++i) t.setChecked(i, true);
  form->getSelectedCompanies();
  EXPECT_EQ(members(1), (std::vector<std::string>{"5", "6"}));  // contacts are ignored here

  c().setSyncInformationType(4);
  form->getSelectedCompanies();
  EXPECT_EQ(members(2), (std::vector<std::string>{"7", "8"}));
  EXPECT_EQ(members(1), (std::vector<std::string>{"", ""}));

  c().setSyncDirectionType(3);
  // An Outlook category whose text holds the prefix passes the test; its identifier is read
  // from the ninth character like any other.
  t.add("Main", wizard::tvwChild, "Category:Contact: VIP", "odd").checked = true;
  form->getSelectedCompanies();
  EXPECT_EQ(members(3), (std::vector<std::string>{"7", "8", ":Contact: VIP"}));

  c().setSyncDirectionType(1);
  form->getSelectedCompanies();
  EXPECT_TRUE(selection().isEmpty());
}

TEST_F(SelectionTreeTest, TheSelectionMarksAFreshTreeWithoutSpreading) {
  wizard::TreeView& t = smallTree();
  t.setChecked(t.find("Company:6")->index, true);
  t.setChecked(t.find("Category:1")->index, true);
  form->populateCheckedItems();  // an empty selection leaves the marks alone
  EXPECT_EQ(d->checkedKeys(), (std::vector<std::string>{"Category:1", "Company:6"}));

  selection().add("5", "", "");
  selection().add("", "7", "");
  form->populateCheckedItems();
  // Companies marked exactly when their number is in member 1; other nodes untouched.
  EXPECT_EQ(d->checkedKeys(), (std::vector<std::string>{"Category:1", "Company:5"}));

  c().setSyncInformationType(3);
  form->populateCheckedItems();
  EXPECT_EQ(d->checkedKeys(), (std::vector<std::string>{"Category:1", "Company:5", "Contact:7"}));
}

TEST_F(SelectionTreeTest, FillingShowsProgressInPlaceOfTheTree) {
  start();
  // What each repaint shows: the bar's value, and whether the bar and its label stand in for
  // the tree.
  struct Spy : wizard::IWizardView {
    std::function<void()> onRefresh;
    void showModal(const ObjectPtr&) override {}
    void unload() override {}
    void refresh() override { onRefresh(); }
  } spy;
  std::vector<int32_t> values;
  bool treeHidden = true;
  wizard::Control& bar = form->control("ReportProgressBar");
  spy.onRefresh = [&] {
    values.push_back(bar.progress);
    treeHidden = treeHidden && !d->get("tvwContacts").visible && bar.visible &&
                 d->get("lblProgress").visible;
  };
  form->setView(&spy);
  ASSERT_TRUE(d->click("cmdNav", 3));
  EXPECT_TRUE(treeHidden);
  EXPECT_TRUE(d->get("tvwContacts").visible);
  EXPECT_FALSE(d->get("lblProgress").visible || bar.visible);
  // Two repaints before the fill, then one per category and company (4 + 5), in order.
  EXPECT_EQ(values, (std::vector<int32_t>{0, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9}));
  EXPECT_EQ(bar.maximum, 9);

  // A value past the maximum is not shown by the host tree's handler; the Outlook one does not
  // check. Each repaints.
  values.clear();
  form->populateAddressBookTree_incProgressBar(11);
  form->populateOutlookTree_incProgressBar(11);
  form->populateAddressBookTree_incProgressBar(7);
  EXPECT_EQ(values, (std::vector<int32_t>{9, 11, 7}));
  form->setView(&form->view);
}

}  // namespace
}  // namespace dossync
