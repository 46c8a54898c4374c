// The two tree builders: the host address book in each of its modes, and the Outlook contacts.
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
      std::ofstream(folder / (file + ".vcf"))
          << "BEGIN:VCARD\nVERSION:4.0\nUID:" << file << "\n" << lines << "END:VCARD\n";
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

}  // namespace
}  // namespace dossync
