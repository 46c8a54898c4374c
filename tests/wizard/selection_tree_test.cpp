// The selection tree: check marks spreading through subtrees, which nodes take a mark for
// each direction and information type, and the marks turned into companyCollection and back.
#include "wizard_fixture.h"

namespace dossync {
namespace {

class SelectionTreeTest : public testing::WizardTest {
 protected:
  // On step 1 with the tree replaced by: Main > Category:1 > Company:5 > Contact:7, plus
  // Contact:8 under Main and Company:6 under Category:1.
  void smallTree(int32_t direction, int32_t info) {
    start();
    ASSERT_TRUE(d->click("cmdNav", 3));
    c().setSyncDirectionType(direction);
    c().setSyncInformationType(info);
    wizard::TreeView& t = form->tree();
    t.clear();
    t.add("", wizard::tvwChild, "Main", "Root");
    t.add("Main", wizard::tvwChild, "Category:1", "Cat");
    t.add("Category:1", wizard::tvwChild, "Company:5", "Five");
    t.add("Company:5", wizard::tvwChild, "Contact:7", "Seven");
    t.add("Main", wizard::tvwChild, "Contact:8", "Eight");
    t.add("Category:1", wizard::tvwChild, "Company:6", "Six");
  }
};

TEST_F(SelectionTreeTest, AMarkSpreadsThroughTheWholeSubtreeAtAnyDepth) {
  start();
  ASSERT_TRUE(d->click("cmdNav", 3));
  wizard::TreeView& t = form->tree();
  t.clear();
  t.add("", wizard::tvwChild, "Main", "Root");
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
  smallTree(2, 1);
  wizard::TreeView& t = form->tree();
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
  smallTree(2, 1);
  wizard::TreeView& t = form->tree();
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
