#include "wizard/wizard_form.h"

#include <array>
#include <climits>

#include "core/apartment.h"
#include "core/synchronization.h"

namespace dossync::wizard {
namespace {

const std::string kLoc = "kvoutlookdx.dll-frmWizard-";

// The host's contacts, which the two contact options stand for when run both ways.
constexpr int32_t kContactsBothWays = 7;

const std::array<const char*, 4> kStepTitles = {
    "Outlook Wizard - Welcome to the synchronization wizard",
    "Outlook Wizard - Select the companies to synchronize",
    "Outlook Wizard - Finish",
    "Outlook Wizard - Advanced Options",
};

}  // namespace

frmWizard::frmWizard()
    : tvwContacts_(std::make_shared<TreeView>()), ImageList1_(std::make_shared<ImageList>()) {
  // Images of the tree by index: 1 company, 2 contact (selected), 3 default contact,
  // 7 category, 8 contact; 4 to 6 are not used by the wizard.
  ImageList1_->keys = {"company", "contact-open", "default-contact", "unused",
                       "unused",  "unused",       "category",        "contact"};
  buildControls();
  caption_ = "Outlook Synchronization Wizard";
}

frmWizard::~frmWizard() = default;

Control& frmWizard::add(ControlKind kind, const std::string& name, int32_t index,
                        const std::string& text, int32_t left, int32_t top, int32_t width,
                        int32_t height, const std::string& container, int32_t containerIndex) {
  auto c = std::make_unique<Control>();
  c->kind = kind;
  c->name = name;
  c->index = index;
  c->text = text;
  c->left = left;
  c->top = top;
  c->width = width;
  c->height = height;
  c->container = container;
  c->containerIndex = containerIndex;
  c->focusable = kind == ControlKind::CommandButton || kind == ControlKind::OptionButton ||
                 kind == ControlKind::CheckBox || kind == ControlKind::TextBox ||
                 kind == ControlKind::ComboBox || kind == ControlKind::TreeView;
  Control& ref = *c;
  byName_[{name, index}] = &ref;
  controls_.push_back(std::move(c));
  return ref;
}

// The design of the form, in pixels. Every step frame covers the area above the navigation
// panel; its picture sits at the left, its controls to the right of it.
void frmWizard::buildControls() {
  using K = ControlKind;
  const int32_t x = 168, w = 460;
  const std::array<const char*, 4> frameCaptions = {"Step 1", "Start", "Step 2", "Step 3"};
  const std::array<int32_t, 4> pictureOfStep = {1, 0, 2, 3};  // imgStep index shown on each step
  for (int32_t i = 0; i < 4; ++i) {
    add(K::Frame, "fraStep", i, frameCaptions[i], 0, 0, kFormWidth, 370);
    add(K::Image, "imgStep", pictureOfStep[i], "", 10, 24, 144, 284, "fraStep", i).picture = i + 1;
  }

  // Step 0: welcome, saved schemes, direction.
  Control& welcome = add(K::Label, "lblStep", 0, "Welcome to the MS Outlook Synchronization Wizard",
                         x, 22, w, 26, "fraStep", 0);
  welcome.bold = true;
  welcome.fontSize = 11;
  add(K::Label, "Label1", -1,
      "This wizard allows you to quickly synchronize your client's information with Microsoft "
      "Outllook",
      x, 54, w, 40, "fraStep", 0);
  add(K::Frame, "Frame1", -1, "Open a saved synchronization scheme", x, 100, w, 64, "fraStep", 0);
  add(K::ComboBox, "cboSavedScheme", -1, "", 12, 26, 336, 26, "Frame1");
  add(K::CommandButton, "cmdDeleteScheme", -1, "Delete", 358, 25, 90, 28, "Frame1");
  add(K::Frame, "Frame2", -1, "Synchronization options", x, 174, w, 84, "fraStep", 0);
  add(K::OptionButton, "optSynchDirection", 2,
      "Synchronize your information from Dossiera to Outlook", 14, 26, 434, 22, "Frame2")
      .value = true;
  add(K::OptionButton, "optSynchDirection", 3,
      "Synchronize your information from Outlook to Dossiera", 14, 52, 434, 22, "Frame2");
  add(K::CommandButton, "cmdAdvancedOptions", -1, "Advanced Options", x, 272, 150, 30, "fraStep",
      0);

  // Step 1: the selection tree, and the progress shown in its place while it fills.
  add(K::Label, "Label2", -1,
      "Select the clients you would like to include in the synchronization process:", x, 18, w, 40,
      "fraStep", 1);
  add(K::TreeView, "tvwContacts", -1, "", x, 60, w, 300, "fraStep", 1);
  add(K::Label, "lblProgress", -1, "Populating list, please wait ...", x, 170, w, 22, "fraStep", 1)
      .visible = false;
  add(K::ProgressBar, "ReportProgressBar", -1, "", x, 196, w, 24, "fraStep", 1).visible = false;

  // Step 2: saving the scheme.
  add(K::Label, "Label8", -1,
      "Dossiera allows you to save the synchronization settings for this session as well as the "
      "clients you have selected.",
      x, 22, w, 40, "fraStep", 2);
  add(K::Label, "Label9", -1,
      "This allows you quickly recall this scheme later with the same clients selected.", x, 70, w,
      40, "fraStep", 2);
  add(K::Frame, "Frame5", -1, "Save Synchronization Scheme", x, 118, w, 68, "fraStep", 2);
  add(K::TextBox, "txtSaveName", -1, "", 12, 28, 336, 26, "Frame5");
  add(K::CommandButton, "cmdSaveScheme", -1, "Save", 358, 27, 90, 28, "Frame5");
  // Shown only when the host can preview a run (setPreviewRun).
  add(K::CommandButton, "cmdPreview", -1, "Show what will change", x, 200, 200, 30, "fraStep", 2)
      .visible = false;

  // Step 3: advanced options.
  Control& options =
      add(K::Label, "Label3", -1, "Synchronization Options", x, 14, w, 24, "fraStep", 3);
  options.bold = true;
  options.fontSize = 12;
  add(K::Frame, "Frame3", -1, "Information Type", x, 40, w, 116, "fraStep", 3);
  const std::array<const char*, 4> infoTypes = {
      "Company Information (with Default Contact)", "Company Information Only",
      "Contact Information (with Contact Name Displayed)",
      "Contact Information (with Company Name Displayed)"};
  for (int32_t i = 1; i <= 4; ++i)
    add(K::OptionButton, "optInfoType", i, infoTypes[i - 1], 14, 22 + 22 * (i - 1), 434, 22,
        "Frame3")
        .value = i == 1;
  add(K::Frame, "Frame4", -1, "Outlook Settings", x, 160, w, 80, "fraStep", 3);
  add(K::Label, "Label4", -1, "Profile Name:", 14, 25, 130, 22, "Frame4");
  add(K::TextBox, "txtProfileName", -1, "", 150, 22, 298, 26, "Frame4");
  add(K::Label, "Label5", -1, "Password:", 14, 53, 130, 22, "Frame4");
  add(K::TextBox, "txtPassword", -1, "", 150, 50, 298, 26, "Frame4").masked = true;
  add(K::Frame, "Frame6", -1, "Contacts Category", x, 244, w, 92, "fraStep", 3);
  add(K::Label, "Label6", -1,
      "You can specify the Outlook contacts category you would like the imported clients to be "
      "allocated to.",
      14, 20, 434, 36, "Frame6");
  add(K::Label, "Label7", -1, "Contacts Category:", 14, 61, 130, 22, "Frame6");
  add(K::TextBox, "txtContactsCategory", -1, "", 150, 58, 298, 26, "Frame6");
  // A setting of this session only: saved schemes do not keep it.
  add(K::CheckBox, "chkPairCreated", -1, "Pair Outlook contacts with the companies made for them",
      x + 14, 342, w - 14, 22, "fraStep", 3);

  // The navigation panel along the bottom.
  add(K::PictureBox, "picNav", -1, "", 0, 370, kFormWidth, 60);
  add(K::Line, "Line1", 0, "", 0, 0, kFormWidth, 1, "picNav");
  add(K::Line, "Line1", 1, "", 0, 1, kFormWidth, 1, "picNav");
  const std::array<const char*, 4> nav = {"Cancel", "< &Back", "&Next >", "&Finish"};
  const std::array<int32_t, 4> navLeft = {244, 350, 440, 538};
  for (int32_t i = 1; i <= 4; ++i)
    add(K::CommandButton, "cmdNav", i, nav[i - 1], navLeft[i - 1], 16, 90, 30, "picNav");
}

void frmWizard::offerBothWays(BothWaysOffer offer) {
  if (bothWays_) return;
  bothWays_ = std::move(offer);
  using K = ControlKind;
  const int32_t x = 168, w = 460;
  // Step 0: the third direction below the two one-way ones.
  add(K::OptionButton, "optSynchDirection", 1,
      "Synchronize your information both ways, field by field", 14, 78, 434, 22, "Frame2");
  control("Frame2").height = 110;
  control("cmdAdvancedOptions").top = 298;
  // Step 1: both ways works on the whole practice; this stands where the tree would.
  add(K::Label, "lblBothWays", -1,
      "Both ways keeps every company of Dossiera with its default contact (or every contact, as "
      "the advanced options say) in step with the Outlook contacts: what changed on either side "
      "since the last run reaches the other, and records new on either side are made once on "
      "the other.\n\nThere is nothing to select here: click Next.",
      x, 60, w, 160, "fraStep", 1)
      .visible = false;
  // Step 3, packed closer to make room for the conflict rule, which takes the place of
  // chkPairCreated (only a run from Outlook uses that).
  control("Frame3").height = 106;
  for (int32_t i = 1; i <= 4; ++i) {
    control("optInfoType", i).top = 20 + 20 * (i - 1);
    control("optInfoType", i).height = 20;
  }
  control("Frame4").top = 150;
  control("Frame4").height = 78;
  control("Label4").top = 23;
  control("txtProfileName").top = 20;
  control("Label5").top = 51;
  control("txtPassword").top = 48;
  control("Frame6").top = 232;
  control("Frame6").height = 86;
  control("Label6").top = 18;
  control("Label6").height = 34;
  control("Label7").top = 57;
  control("txtContactsCategory").top = 54;
  add(K::Frame, "Frame7", -1, "When both sides changed a field", x, 322, w, 46, "fraStep", 3)
      .visible = false;
  add(K::OptionButton, "optConflict", 1, "Keep the Dossiera value", 14, 18, 200, 22, "Frame7")
      .value = true;
  add(K::OptionButton, "optConflict", 2, "Keep the Outlook value", 224, 18, 224, 22, "Frame7");
  if (view_) view_->controlsAdded();
}

bool frmWizard::bothWaysChosen() {
  return bothWays_ && owner().SyncDirectionType() == syncBothsWays;
}

int32_t frmWizard::infoTypeFor(int32_t option) {
  if ((option == contactOnlyShowContactName || option == contactOnlyShowCompanyName) &&
      bothWaysChosen())
    return kContactsBothWays;
  return option;
}

Control& frmWizard::control(const std::string& name, int32_t index) {
  auto it = byName_.find({name, index});
  if (it != byName_.end()) return *it->second;
  auto any = byName_.lower_bound({name, INT32_MIN});
  if (index >= 0 || (any != byName_.end() && any->first.first == name))
    throw RuntimeError(kControlArrayElementMissing,
                       "Control array element '" + std::to_string(index) + "' doesn't exist");
  throw RuntimeError(kObjectRequired, "The form has no control '" + name + "'");
}

bool frmWizard::reachable(const Control& c) const {
  const Control* p = &c;
  while (p) {
    if (!p->enabled || !p->visible || p->left <= kOffScreen) return false;
    if (p->container.empty()) break;
    auto it = byName_.find({p->container, p->containerIndex});
    p = it == byName_.end() ? nullptr : it->second;
  }
  return loaded_;
}

clsOutlookSynchronization& frmWizard::owner() {
  if (!owner_) throw RuntimeError(kObjectVariableNotSet, "The wizard has no owner");
  return *owner_;
}

SelectionCollection& frmWizard::selection() {
  auto c = owner().companyCollection();
  if (!c) throw RuntimeError(kObjectVariableNotSet, "The owner has no companyCollection");
  return *c;
}

void frmWizard::refresh() {
  if (view_) view_->refresh();
}

void frmWizard::showMessage(const std::string& text, int32_t style) {
  auto box = owner().messageBox();
  if (!box) throw RuntimeError(kObjectVariableNotSet, "No message box service");
  box->showMessage(text, style, owner().MDIForm(), 0, 0, 101);
}

void frmWizard::setOption(Control& option) {
  bool was = option.value;
  for (auto& c : controls_) {
    if (c->kind == ControlKind::OptionButton && c->container == option.container &&
        c->containerIndex == option.containerIndex)
      c->value = false;
  }
  option.value = true;
  if (was) return;
  if (option.name == "optSynchDirection")
    optSynchDirection_Click(static_cast<int16_t>(option.index));
  if (option.name == "optInfoType") optInfoType_Click(static_cast<int16_t>(option.index));
  if (option.name == "optConflict") optConflict_Click(static_cast<int16_t>(option.index));
}

void frmWizard::setComboIndex(int32_t listIndex) {
  Control& combo = control("cboSavedScheme");
  if (listIndex < -1 || listIndex >= static_cast<int32_t>(combo.items.size()))
    throw RuntimeError(kInvalidProcedureCall,
                       "Invalid property value: ListIndex " + std::to_string(listIndex));
  combo.listIndex = listIndex;
  combo.text = listIndex >= 0 ? combo.items[static_cast<size_t>(listIndex)].text : "";
  if (listIndex >= 0) cboSavedScheme_Click();
}

bool frmWizard::optionSelected(const std::string& name, int32_t index) {
  return control(name, index).value;
}

int32_t frmWizard::selectedOption(const std::string& name) {
  for (auto& c : controls_)
    if (c->name == name && c->kind == ControlKind::OptionButton && c->value) return c->index;
  return 0;
}

// ---- What the user does.

void frmWizard::userFocus(Control* c) {
  if (c == focused_ || (c && !c->focusable)) return;
  Control* old = focused_;
  focused_ = c;
  if (old) {
    if (old->name == "txtContactsCategory")
      txtContactsCategory_LostFocus();
    else if (old->name == "txtProfileName")
      txtProfileName_LostFocus();
    else if (old->name == "txtPassword")
      txtPassword_LostFocus();
    else if (old->name == "cmdSaveScheme")
      cmdSaveScheme_LostFocus();
  }
  if (c && c->name == "cmdSaveScheme") cmdSaveScheme_GotFocus();
}

void frmWizard::userClick(Control& c) {
  userFocus(&c);
  if (!loaded_) return;
  switch (c.kind) {
    case ControlKind::CommandButton:
      if (c.name == "cmdNav")
        cmdNav_Click(static_cast<int16_t>(c.index));
      else if (c.name == "cmdAdvancedOptions")
        cmdAdvancedOptions_Click();
      else if (c.name == "cmdDeleteScheme")
        cmdDeleteScheme_Click();
      else if (c.name == "cmdSaveScheme")
        cmdSaveScheme_Click();
      else if (c.name == "cmdPreview")
        cmdPreview_Click();
      break;
    case ControlKind::CheckBox:
      c.value = !c.value;
      if (c.name == "chkPairCreated") chkPairCreated_Click();
      break;
    case ControlKind::OptionButton: {
      bool was = c.value;
      setOption(c);
      // A click on the option already chosen still runs its handler.
      if (was && c.name == "optSynchDirection")
        optSynchDirection_Click(static_cast<int16_t>(c.index));
      if (was && c.name == "optInfoType") optInfoType_Click(static_cast<int16_t>(c.index));
      break;
    }
    default:
      break;
  }
}

void frmWizard::userType(Control& c, const std::string& text) {
  userFocus(&c);
  c.text = text;
}

void frmWizard::userPick(int32_t listIndex) {
  Control& combo = control("cboSavedScheme");
  userFocus(&combo);
  ErrorFrame f(kLoc + "cboSavedScheme_Click");
  f.step([&] { setComboIndex(listIndex); });
}

void frmWizard::userCheck(int32_t nodeIndex, bool checked) {
  userFocus(&control("tvwContacts"));
  tvwContacts_->setChecked(nodeIndex, checked);
  tvwContacts_NodeCheck(nodeIndex);
}

void frmWizard::userClose() {
  if (loaded_) unload();
}

void frmWizard::userKeyDown(int32_t keyCode, int32_t shift) {
  Form_KeyDown(keyCode, shift);
}

void frmWizard::unload() {
  Form_Unload();
  loaded_ = false;
  focused_ = nullptr;
  if (view_) view_->unload();
}

// ---- Entry, steps and navigation.

void frmWizard::startWizard(clsOutlookSynchronization& owner) {
  ErrorFrame f(kLoc + "startWizard");
  f.step([&] { apartment().setMousePointer(kPointerHourglass); });
  f.step([&] {
    listLoaded_ = false;
    owner_ = &owner;
    finishAllowed_ = false;
  });
  f.step([&] {
    for (int32_t i = 0; i <= 3; ++i) control("fraStep", i).left = kOffScreen;
  });
  f.step([&] {
    int16_t step = 0, direction = 0;
    SetStep(step, direction);
  });
  f.step([&] { apartment().setMousePointer(kPointerDefault); });
  f.step([&] {
    loaded_ = true;
    if (view_) view_->showModal(owner.MDIForm());
  });
}

void frmWizard::SetStep(int16_t& nStep, int16_t& nDirection) {
  ErrorFrame f(kLoc + "SetStep");
  f.step([&] { control("fraStep", currentStep_).enabled = false; });
  f.step([&] { control("fraStep", nStep).left = 0; });
  f.step([&] {
    if (nStep != currentStep_) control("fraStep", currentStep_).left = kOffScreen;
  });
  f.step([&] { control("fraStep", nStep).enabled = true; });
  f.step([&] { SetNavBtns(nStep); });
  f.step([&] { caption_ = kStepTitles.at(static_cast<size_t>(nStep)); });
  f.step([&] {
    if (nStep != 1 || nDirection != 2) return;
    if (bothWays_) {
      bool both = optionSelected("optSynchDirection", 1);
      control("lblBothWays").visible = both;
      control("tvwContacts").visible = !both;
    }
    if (optionSelected("optSynchDirection", 2)) {
      populateCompanyNames();
    } else if (optionSelected("optSynchDirection", 3)) {
      populateOutlookNames();
    }
    populateCheckedItems();
  });
}

void frmWizard::SetNavBtns(int16_t& nStep) {
  ErrorFrame f(kLoc + "SetNavBtns");
  f.step([&] {
    currentStep_ = nStep;
    switch (nStep) {
      case 0:
        finishAllowed_ = false;
        control("cmdNav", 2).enabled = false;
        control("cmdNav", 3).enabled = true;
        break;
      case 1:
        finishAllowed_ = false;
        control("cmdNav", 2).enabled = true;
        control("cmdNav", 3).enabled = true;
        break;
      case 2:
      case 3:
        finishAllowed_ = true;
        control("cmdNav", 2).enabled = true;
        control("cmdNav", 3).enabled = false;
        break;
      default:
        break;
    }
    control("cmdNav", 4).enabled = finishAllowed_;
  });
}

void frmWizard::cmdNav_Click(int16_t Index) {
  ErrorFrame f(kLoc + "cmdNav_Click");
  f.step([&] {
    switch (Index) {
      case 1:
        unload();
        break;
      case 2: {
        int16_t step = currentStep_ == 3 ? 0 : static_cast<int16_t>(currentStep_ - 1);
        int16_t direction = currentStep_ == 3 ? 2 : 1;
        SetStep(step, direction);
        break;
      }
      case 3: {
        if (currentStep_ == 1) getSelectedCompanies();
        int16_t target = 0;
        if (currentStep_ == 0 || currentStep_ == 1)
          target = static_cast<int16_t>(currentStep_ + 1);
        else if (currentStep_ == 3)
          target = 2;
        int16_t direction = 2;
        SetStep(target, direction);
        break;
      }
      case 4:
        if (bothWaysChosen() || selectionChosen()) {
          std::shared_ptr<void> held;
          if (holdRun && !(held = holdRun(owner()))) break;
          owner().Synchronize();
          if (afterRun) afterRun(owner());
          unload();
        }
        break;
      default:
        break;
    }
  });
}

bool frmWizard::selectionChosen() {
  if (!selection().isEmpty()) return true;
  showMessage(
      "You must select some companies or contacts to import into Microsoft Outlook "
      "before proceeding.  Go to the first step and select some clients to import.",
      3);
  return false;
}

void frmWizard::setPreviewRun(std::function<void(clsOutlookSynchronization&)> run) {
  previewRun_ = std::move(run);
  control("cmdPreview").visible = static_cast<bool>(previewRun_);
}

// The settings and the selection are the component's already (each control writes through, a
// text box when it loses the focus to this button), so the preview runs what Finish would.
void frmWizard::cmdPreview_Click() {
  ErrorFrame f(kLoc + "cmdPreview_Click");
  f.step([&] {
    if (previewRun_ && (bothWaysChosen() || selectionChosen())) previewRun_(owner());
  });
}

void frmWizard::chkPairCreated_Click() {
  ErrorFrame f(kLoc + "chkPairCreated_Click");
  f.step([&] { owner().setPairCreatedCompanies(control("chkPairCreated").value); });
}

void frmWizard::cmdAdvancedOptions_Click() {
  ErrorFrame f(kLoc + "cmdAdvancedOptions_Click");
  f.step([&] { populateOutlookSchemeSettings(); });
  f.step([&] { setupAdvancedOptions(); });
  f.step([&] {
    int16_t step = 3, direction = 0;
    SetStep(step, direction);
  });
}

void frmWizard::optSynchDirection_Click(int16_t Index) {
  ErrorFrame f(kLoc + "optSynchDirection_Click");
  f.step([&] {
    if (Index == 2)
      owner().setSyncDirectionType(syncFromDossieraToOutlook);
    else if (Index == 3)
      owner().setSyncDirectionType(syncFromOutlookToDossiera);
    else if (Index == 1 && bothWays_)
      owner().setSyncDirectionType(syncBothsWays);
  });
  if (!bothWays_) return;
  // The information type follows the direction: both ways has no "Company Information Only",
  // and its contact options run the host's contacts.
  f.step([&] {
    if (Index == 1 && optionSelected("optInfoType", companyOnly))
      setOption(control("optInfoType", companyWithDefaultContact));
    int32_t option = selectedOption("optInfoType");
    if (option >= 1 && (Index == 1 || owner().SyncInformationType() == kContactsBothWays))
      owner().setSyncInformationType(infoTypeFor(option));
  });
}

void frmWizard::optInfoType_Click(int16_t Index) {
  ErrorFrame f(kLoc + "optInfoType_Click");
  f.step([&] {
    if (Index >= 1 && Index <= 4) owner().setSyncInformationType(infoTypeFor(Index));
  });
}

void frmWizard::optConflict_Click(int16_t Index) {
  ErrorFrame f(kLoc + "optConflict_Click");
  f.step([&] {
    if (bothWays_ && bothWays_->setConflictRule) bothWays_->setConflictRule(Index == 2);
  });
}

void frmWizard::txtContactsCategory_LostFocus() {
  ErrorFrame f(kLoc + "txtContactsCategory_LostFocus");
  f.step([&] { owner().setOutlookCategory(control("txtContactsCategory").text); });
}

void frmWizard::txtProfileName_LostFocus() {
  ErrorFrame f(kLoc + "txtProfileName_LostFocus");
  f.step([&] { owner().setProfile(control("txtProfileName").text); });
}

void frmWizard::txtPassword_LostFocus() {
  ErrorFrame f(kLoc + "txtPassword_LostFocus");
  f.step([&] { owner().setPassword(control("txtPassword").text); });
}

void frmWizard::cmdSaveScheme_GotFocus() {
  ErrorFrame f(kLoc + "cmdSaveScheme_GotFocus");
  f.step([&] { schemeSaved_ = false; });
}

void frmWizard::cmdSaveScheme_LostFocus() {
  ErrorFrame f(kLoc + "cmdSaveScheme_LostFocus");
}

void frmWizard::Form_KeyDown(int32_t, int32_t) {
  ErrorFrame f(kLoc + "Form_KeyDown");
}

void frmWizard::Form_Unload() {
  ErrorFrame f(kLoc + "Form_Unload");
}

}  // namespace dossync::wizard
