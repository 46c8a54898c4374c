// clsOutlookContactTree: fills a tree with the contacts of the default contacts folder of an
// open Outlook namespace, grouped by their Categories text. It never opens or closes Outlook.
//
// Node keys: root "Main" ("Outlook Contacts", image 7, bold, expanded, selected);
// "Category:<Categories text>" under "Main" (image 7); "Contact:<EntryID>" under its category,
// or under "Main" with images 1 and 2 when the item has no category. Only items of class 40
// (contacts) become nodes; the whole Categories text is one group, so an item filed under
// "A, B" forms its own group.
//
// Decisions where the Outlook tree leaves room:
//  - The node text is the item's FileAs, or when that is empty its FullName, then its
//    CompanyName, then its Email1Address.
//  - showProgress (on by default) runs the fill under the host's progress dialog; off, the
//    fill runs directly. incProgressBar is raised, and the dialog stepped, only when it is on.
//  - showOnlyCategories (off by default) stops the fill after the category nodes.
//  - The indentation is 19 pixels.
// An error ends the fill with the nodes added so far.
// Thread use: the apartment's one thread.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "interfaces/object_model.h"
#include "interfaces/progress.h"
#include "wizard/tree_view.h"

namespace dossync::wizard {

class clsOutlookContactTree {
 public:
  clsOutlookContactTree();

  std::shared_ptr<outlook::NameSpace> OutlookNameSpace;
  std::shared_ptr<TreeView> treeViewControl;
  std::shared_ptr<ImageList> imageListControl;
  bool showProgress = true;
  bool showOnlyCategories = false;

  int32_t getRecordCount();
  void populateOutlookTree();
  void outlookDialog_StartProgress();

  // The event incProgressBar(count).
  std::function<void(int32_t)> incProgressBar;

  // The category texts getRecordCount found, in the order found.
  const std::vector<std::string>& categories() const { return categories_; }

  static std::string nodeText(const outlook::ContactItem& item);

 private:
  std::shared_ptr<outlook::Items> contactItems();
  void fill();
  void advance();

  std::vector<std::string> categories_;
  std::shared_ptr<IProgressDialog> dialog_;
  int32_t count_ = 0;
};

}  // namespace dossync::wizard
