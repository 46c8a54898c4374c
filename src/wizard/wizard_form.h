// frmWizard: the synchronisation wizard, independent of any toolkit. Four steps (frames
// fraStep(0..3), all at one place; the one not shown is moved to the left edge -10000), the
// navigation buttons cmdNav(1..4) = Cancel, Back, Next, Finish, the option controls that write
// straight through to the owning component, the saved schemes (schemes.cpp) and the selection
// tree with its check marks (selection_tree.cpp).
//
// The form owns every control as a model object (controls.h, tree_view.h). A view renders them
// and forwards the user's actions through the user* members below, which behave as the
// controls do: a click moves the focus to the control first (so a text box loses focus, and
// writes, before a button's click runs), choosing an option button clears the others of its
// frame, and setting an option button or the combo box from code raises its click handler as
// a user's choice would. The headless driver (driver.h) uses the same members.
//
// Step pictures are numbered 1 to 4 in the order of the steps (imgStep(1) on step 0,
// imgStep(0) on step 1, imgStep(2), imgStep(3)); the view draws them.
// Decisions: at start the options show "from Dossiera to Outlook" and "Company Information
// (with Default Contact)", the component's own defaults; the combo box starts empty; cmdOk and
// tmrAutoStart, which have no behaviour, are left out.
//
// Every procedure runs in an ErrorFrame located "kvoutlookdx.dll-frmWizard-<name>" (the
// scheme procedures keep the locations of schemes.cpp).
// Thread use: the apartment's one thread.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "interfaces/wizard_host.h"
#include "wizard/client_tree.h"
#include "wizard/controls.h"
#include "wizard/outlook_tree.h"
#include "wizard/tree_view.h"

namespace dossync {
class clsOutlookSynchronization;
class SelectionCollection;
}  // namespace dossync

namespace dossync::wizard {

// What the form needs of its window: show it modally over the owner window (returning when it
// is unloaded), take it down, and repaint it now while a long procedure runs.
class IWizardView {
 public:
  virtual ~IWizardView() = default;
  virtual void showModal(const ObjectPtr& ownerWindow) = 0;
  virtual void unload() = 0;
  virtual void refresh() = 0;
  // The form added controls after the view was made (offerBothWays): render them too.
  virtual void controlsAdded() {}
};

// Where a host keeps the password of a saved scheme outside the synchronisation database (the
// desktop's secret store). With one, the scheme's ProfilePassword column stays empty; without
// one (the Windows component) the column holds the password, as it always has.
class ISchemePasswords {
 public:
  virtual ~ISchemePasswords() = default;
  // Keeps the password of scheme `schemeID` of that synchronisation database; false when it
  // cannot be kept now (no secret store running).
  virtual bool store(const std::string& syncDatabase, int32_t schemeID,
                     const std::string& schemeName, const std::string& password) = 0;
  virtual std::optional<std::string> lookup(const std::string& syncDatabase, int32_t schemeID) = 0;
  virtual void forget(const std::string& syncDatabase, int32_t schemeID) = 0;
};

// Where a host keeps settings of its own for each saved scheme, outside the component's tables.
// The keys are the form's ("conflict").
class ISchemeSettings {
 public:
  virtual ~ISchemeSettings() = default;
  virtual void store(const std::string& syncDatabase, int32_t schemeID, const std::string& key,
                     const std::string& value) = 0;
  virtual std::optional<std::string> lookup(const std::string& syncDatabase, int32_t schemeID,
                                            const std::string& key) = 0;
  virtual void forget(const std::string& syncDatabase, int32_t schemeID) = 0;
};

// dossync's own direction "Both ways" (direction 1). The component's wizard offers only the two
// one-way directions, and stays so unless its host can run direction 1 (the Qt host gives the
// component dossync's two-way mode) and offers it.
struct BothWaysOffer {
  // Written through whenever the rule for a field changed on both sides changes (chosen,
  // loaded with a scheme, reset): true keeps the address book's value, false the practice's.
  std::function<void(bool keepAddressBook)> setConflictRule;
  // Where saved schemes keep their rule; without it the rule is not saved.
  std::shared_ptr<ISchemeSettings> schemeSettings;
};

inline constexpr int32_t kFormWidth = 640;
inline constexpr int32_t kFormHeight = 430;
inline constexpr int32_t kOffScreen = -10000;

class frmWizard : public IWizardForm {
 public:
  frmWizard();
  ~frmWizard() override;

  void setView(IWizardView* view) { view_ = view; }

  // ---- Hooks the host may supply (a view without them still works).
  // Runs the component as Finish would without changing anything, and shows what the run would
  // change. The last step shows its "Show what will change" button only when there is one.
  void setPreviewRun(std::function<void(clsOutlookSynchronization&)> run);
  // Called when Finish's run is over, before the form unloads (to sum the run up, say).
  std::function<void(clsOutlookSynchronization&)> afterRun;
  // Where saved schemes keep their passwords instead of the database (see ISchemePasswords).
  void setSchemePasswords(std::shared_ptr<ISchemePasswords> passwords) {
    schemePasswords_ = std::move(passwords);
  }
  // Called when Finish is clicked, before the run: answers what the host holds while the run
  // goes on (a lock, say), or nullptr to leave the form open without running, having told the
  // user why.
  std::function<std::shared_ptr<void>(clsOutlookSynchronization&)> holdRun;

  // Offers "Both ways" (optSynchDirection(1)): adds its option button, the conflict rule
  // among the advanced options (Frame7, optConflict(1) keep the practice's value, (2) keep the
  // address book's), a note in place of the selection tree (lblBothWays), and makes room for
  // them. Chosen, it runs the owner's direction 1, which needs no selection; the contact
  // information types then mean the host's contacts (information type 7) and "Company
  // Information Only" cannot be chosen. Its schemes keep SyncType 1 and no OutlookSync rows.
  void offerBothWays(BothWaysOffer offer);
  bool bothWaysOffered() const { return bothWays_.has_value(); }

  // ---- Entry.
  void startWizard(clsOutlookSynchronization& owner) override;

  // ---- The form and its controls.
  const std::string& caption() const { return caption_; }
  bool loaded() const { return loaded_; }
  // The control of that name and index; RuntimeError 340 for an array element that does not
  // exist, 424 for a name the form does not have.
  Control& control(const std::string& name, int32_t index = -1);
  const std::vector<std::unique_ptr<Control>>& controls() const { return controls_; }
  // The container chain up to the form is enabled, visible and on-screen.
  bool reachable(const Control& c) const;
  const Control* focused() const { return focused_; }
  TreeView& tree() { return *tvwContacts_; }
  const std::shared_ptr<TreeView>& tvwContacts() const { return tvwContacts_; }
  const std::shared_ptr<ImageList>& imageList1() const { return ImageList1_; }

  int16_t currentStep() const { return currentStep_; }
  bool finishAllowed() const { return finishAllowed_; }
  bool listLoaded() const { return listLoaded_; }
  bool schemeSaved() const { return schemeSaved_; }

  // ---- What the user does (the view and the driver call these).
  void userFocus(Control* c);
  void userClick(Control& c);
  void userType(Control& c, const std::string& text);
  void userPick(int32_t listIndex);                 // cboSavedScheme
  void userCheck(int32_t nodeIndex, bool checked);  // tvwContacts
  void userClose();                                 // the window's close box
  void userKeyDown(int32_t keyCode, int32_t shift);

  // ---- Steps and navigation.
  void SetStep(int16_t& nStep, int16_t& nDirection);
  void SetNavBtns(int16_t& nStep);
  void cmdNav_Click(int16_t Index);
  void cmdAdvancedOptions_Click();
  void cmdPreview_Click();
  void chkPairCreated_Click();
  void optSynchDirection_Click(int16_t Index);
  void optInfoType_Click(int16_t Index);
  void optConflict_Click(int16_t Index);
  void txtContactsCategory_LostFocus();
  void txtProfileName_LostFocus();
  void txtPassword_LostFocus();
  void cmdSaveScheme_GotFocus();
  void cmdSaveScheme_LostFocus();
  void Form_KeyDown(int32_t keyCode, int32_t shift);
  void Form_Unload();

  // ---- Saved schemes (schemes.cpp).
  void populateOutlookSchemesList();
  void cboSavedScheme_Click();
  void populateOutlookScheme(int32_t schemeID);
  void populateOutlookSchemeSettings();
  void setupAdvancedOptions();
  void resetScheme();
  void cmdDeleteScheme_Click();
  void cmdSaveScheme_Click();

  // ---- Selection tree (selection_tree.cpp).
  void populateCompanyNames();
  void populateOutlookNames();
  void populateAddressBookTree_incProgressBar(int32_t count);
  void populateOutlookTree_incProgressBar(int32_t count);
  void getSelectedCompanies();
  void populateCheckedItems();
  void tvwContacts_NodeCheck(int32_t nodeIndex);
  void checkAllChildNodes(int32_t nodeIndex, bool checked);
  void checkNode(int32_t nodeIndex, bool checked);

  // The identifier of a key: everything from its ninth character on.
  static std::string keyIdentifier(const std::string& key);

 private:
  Control& add(ControlKind kind, const std::string& name, int32_t index, const std::string& text,
               int32_t left, int32_t top, int32_t width, int32_t height,
               const std::string& container = "", int32_t containerIndex = -1);
  void buildControls();
  void unload();
  // Sets an option button as code does: the others of its frame are cleared and, when it was
  // not already selected, its click handler runs.
  void setOption(Control& option);
  void setComboIndex(int32_t listIndex);
  bool optionSelected(const std::string& name, int32_t index);
  // The index of the selected button of an option array, 0 when none is.
  int32_t selectedOption(const std::string& name);
  void showMessage(const std::string& text, int32_t style);
  // Whether something is selected; tells the user to select something when not.
  bool selectionChosen();
  void refresh();
  // "Both ways" is offered and the owner's direction is 1.
  bool bothWaysChosen();
  // The information type the owner runs for the chosen option and direction.
  int32_t infoTypeFor(int32_t option);
  // Applies the conflict rule kept for a scheme (the practice's value when none is).
  void loadConflictRule(int32_t schemeID);
  clsOutlookSynchronization& owner();
  SelectionCollection& selection();

  std::vector<std::unique_ptr<Control>> controls_;
  std::map<std::pair<std::string, int32_t>, Control*> byName_;
  std::shared_ptr<TreeView> tvwContacts_;
  std::shared_ptr<ImageList> ImageList1_;
  Control* focused_ = nullptr;
  IWizardView* view_ = nullptr;
  std::string caption_;
  bool loaded_ = true;

  clsOutlookSynchronization* owner_ = nullptr;
  int16_t currentStep_ = 0;
  bool finishAllowed_ = false;
  bool listLoaded_ = false;
  bool schemeSaved_ = false;
  std::unique_ptr<clsPopulateClientTree> populateAddressBookTree_;
  std::unique_ptr<clsOutlookContactTree> populateOutlookTree_;
  std::function<void(clsOutlookSynchronization&)> previewRun_;
  std::shared_ptr<ISchemePasswords> schemePasswords_;
  std::optional<BothWaysOffer> bothWays_;
};

}  // namespace dossync::wizard
