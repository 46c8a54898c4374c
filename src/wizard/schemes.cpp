// Saved synchronisation schemes: one OutlookScheme row with the wizard's settings and one
// OutlookSync row per chosen record, in the synchronisation database.
//
// Kept as the wizard has always behaved: the combo box is filled only after a Delete; a new
// scheme is saved without its DataFileID (so its settings do not load, its records do);
// replacing a scheme adds its OutlookSync rows beside the earlier ones; and loading a scheme
// whose direction is neither 2 nor 3 never leaves its reading loop once there is a row.
// Where the host offers "Both ways" (offerBothWays), a scheme saved with it keeps SyncType 1,
// no OutlookSync rows (a both-ways run selects nothing, and rows would keep the component's own
// wizard from ever loading it) and, in the host's scheme settings, its conflict rule; it opens
// again with "Both ways" chosen, even before its DataFileID is written.
#include "base/value.h"
#include "core/apartment.h"
#include "core/recordset.h"
#include "core/synchronization.h"
#include "wizard/wizard_form.h"

namespace dossync::wizard {
namespace {

const char* const kSchemesSql = "SELECT OutlookScheme.* From OutlookScheme;";
const char* const kPrompt = "Click here to open a saved scheme";
const char* const kNotFound = "The selected outlook scheme could not be found.  Please try again.";

hostdb::IDataAccess& syncDb() {
  auto& db = apartment().syncDb;
  if (!db) throw RuntimeError(kObjectVariableNotSet, "The synchronization database is not open");
  return *db;
}

std::string schemeRowsSql(int32_t schemeID) {
  return "SELECT OutlookSync.* FROM OutlookSync WHERE OutlookSync.SchemeNum = " +
         std::to_string(schemeID) + ";";
}

}  // namespace

void frmWizard::populateOutlookSchemesList() {
  ErrorFrame f("kvlabeldx3.dll-frmWizard-populateOutlookSchemesList");
  std::unique_ptr<hostdb::Recordset> rs;
  f.step([&] { rs = std::make_unique<hostdb::Recordset>(syncDb(), kSchemesSql); });
  Control* combo = nullptr;
  f.step([&] {
    combo = &control("cboSavedScheme");
    combo->items.clear();
    combo->listIndex = -1;
    combo->text.clear();
    combo->items.push_back({kPrompt, 0});
  });
  if (rs && combo) {
    while (f.test([&] { return !rs->eof(); })) {
      f.step([&] {
        combo->items.push_back({rs->read("SchemeName"), value::toLong(rs->read("SchemeID"))});
      });
      if (!f.step([&] { rs->next(); })) break;
    }
  }
  f.step([&] { setComboIndex(0); });
  f.step([&] {
    if (rs) rs->close();
  });
}

void frmWizard::cboSavedScheme_Click() {
  ErrorFrame f("kvoutlookdx.dll-frmWizard-cboSavedScheme_Click");
  int32_t schemeID = 0;
  bool go = false;
  f.step([&] {
    Control& combo = control("cboSavedScheme");
    if (combo.listIndex < 0) return;
    schemeID = combo.items.at(static_cast<size_t>(combo.listIndex)).itemData;
    go = schemeID >= 1;
  });
  if (!go) return;
  std::unique_ptr<hostdb::Recordset> scheme, rows;
  bool found = false;
  f.step([&] { owner().setSchemeID(schemeID); });
  f.step([&] {
    scheme = std::make_unique<hostdb::Recordset>(syncDb(), kSchemesSql);
    found = scheme->find("SchemeID", schemeID);
    if (!found) showMessage(kNotFound, 10);
  });
  if (!found) return;
  f.step([&] { control("txtSaveName").text = scheme->read("SchemeName"); });
  f.step([&] { populateOutlookScheme(schemeID); });
  f.step([&] { populateOutlookSchemeSettings(); });
  if (bothWays_) {
    f.step([&] {
      if (scheme->read("SyncType") == "1") {
        setOption(control("optSynchDirection", syncBothsWays));
        optSynchDirection_Click(syncBothsWays);
      }
    });
    f.step([&] { loadConflictRule(schemeID); });
  }
  f.step([&] { selection().clear(); });
  SelectionCollection* s = nullptr;
  int32_t direction = 0;
  f.step([&] {
    rows = std::make_unique<hostdb::Recordset>(syncDb(), schemeRowsSql(schemeID));
    s = &selection();
    direction = owner().SyncDirectionType();
  });
  // One entry per row; any other direction neither uses the row nor moves past it.
  while (rows && s && f.test([&] { return !rows->eof(); })) {
    if (direction == syncFromDossieraToOutlook) {
      f.step([&] {
        std::string company = rows->read("CompanyNum");
        std::string contact = rows->read("ContactNum");
        if (!value::isBlank(company))
          s->add(company, "", "");
        else if (!value::isBlank(contact))
          s->add("", contact, "");
      });
      if (!f.step([&] { rows->next(); })) break;
    } else if (direction == syncFromOutlookToDossiera) {
      f.step([&] { s->add("", "", rows->read("OutlookID")); });
      if (!f.step([&] { rows->next(); })) break;
    } else if (bothWays_ && direction == syncBothsWays) {
      if (!f.step([&] { rows->next(); })) break;  // both ways selects nothing
    }
  }
  f.step([&] {
    if (scheme) scheme->close();
    if (rows) rows->close();
  });
}

void frmWizard::populateOutlookScheme(int32_t schemeID) {
  ErrorFrame f("kvlabeldx3.dll-frmWizard-populateOutlookScheme");
  std::unique_ptr<hostdb::Recordset> rs;
  bool found = false;
  clsOutlookSynchronization* target = nullptr;
  f.step([&] {
    target = &owner();
    rs = std::make_unique<hostdb::Recordset>(
        syncDb(), "SELECT OutlookScheme.* From OutlookScheme WHERE DataFileID = '" +
                      target->DataFileUniqueID() + "';");
    found = rs->find("SchemeID", std::to_string(schemeID));
  });
  if (!found) return;
  std::string infoType, syncType;
  // Each setting is taken on its own.
  clsOutlookSynchronization& o = *target;
  f.step([&] { o.setCompanyList(rs->read("CompanyListType") == "1" ? Dossiera : AddressBook); });
  f.step([&] { o.setOutlookCategory(rs->read("ContactsCategory")); });
  f.step([&] { o.setProfile(rs->read("ProfileName")); });
  f.step([&] {
    std::string kept = rs->read("ProfilePassword");
    if (schemePasswords_ && kept.empty()) {
      // Nothing kept for the scheme: the password the wizard was given stays.
      if (auto p = schemePasswords_->lookup(o.SyncDatabaseLocation(), schemeID)) o.setPassword(*p);
      return;
    }
    o.setPassword(kept);
  });
  f.step([&] { syncType = rs->read("SyncType"); });
  f.step([&] { infoType = rs->read("InfoType"); });
  if (syncType == "1" || syncType == "2" || syncType == "3")
    o.setSyncDirectionType(value::toLong(syncType));
  if (infoType == "1" || infoType == "2" || infoType == "3" || infoType == "4")
    o.setSyncInformationType(value::toLong(infoType));
  f.step([&] {
    clsOutlookSynchronization& o = owner();
    control("txtContactsCategory").text = o.OutlookCategory();
    control("txtProfileName").text = o.Profile();
    control("txtPassword").text = o.Password();
  });
  f.step([&] { setOption(control("optInfoType", value::toLong(infoType))); });
  f.step([&] { setOption(control("optSynchDirection", value::toLong(syncType))); });
}

void frmWizard::populateOutlookSchemeSettings() {
  ErrorFrame f("kvlabeldx3.dll-frmWizard-populateOutlookSchemeSettings");
  f.step([&] {
    clsOutlookSynchronization& o = owner();
    control("txtContactsCategory").text = o.OutlookCategory();
    control("txtProfileName").text = o.Profile();
    control("txtPassword").text = o.Password();
  });
  f.step([&] {
    int32_t direction = owner().SyncDirectionType();
    if (direction == 2 || direction == 3 || (direction == 1 && bothWays_))
      setOption(control("optSynchDirection", direction));
  });
  f.step([&] {
    int32_t info = owner().SyncInformationType();
    if (info == 7 && bothWays_) info = contactOnlyShowContactName;
    if (info >= 1 && info <= 4) setOption(control("optInfoType", info));
  });
  f.step([&] { control("chkPairCreated").value = owner().pairCreatedCompanies(); });
}

void frmWizard::setupAdvancedOptions() {
  ErrorFrame f("kvlabeldx3.dll-frmWizard-setupAdvancedOptions");
  f.step([&] {
    bool toOutlook = owner().SyncDirectionType() == syncFromDossieraToOutlook;
    for (const char* name : {"Frame6", "Frame3", "txtContactsCategory", "Label6", "Label7"})
      control(name).enabled = toOutlook;
    for (int32_t i = 1; i <= 4; ++i) control("optInfoType", i).enabled = toOutlook;
    // Only a run from Outlook makes companies.
    control("chkPairCreated").enabled = !toOutlook;
  });
  if (!bothWays_) return;
  f.step([&] {
    bool both = owner().SyncDirectionType() == syncBothsWays;
    if (both) {
      for (const char* name : {"Frame6", "Frame3", "txtContactsCategory", "Label6", "Label7"})
        control(name).enabled = true;
      for (int32_t i = 1; i <= 4; ++i) control("optInfoType", i).enabled = i != companyOnly;
    }
    control("Frame7").visible = both;
    control("chkPairCreated").visible = !both;
  });
}

void frmWizard::loadConflictRule(int32_t schemeID) {
  std::optional<std::string> kept;
  if (schemeID >= 1 && bothWays_->schemeSettings)
    kept = bothWays_->schemeSettings->lookup(owner().SyncDatabaseLocation(), schemeID, "conflict");
  Control& choice = control("optConflict", kept == "outlook" ? 2 : 1);
  bool was = choice.value;
  setOption(choice);
  if (was) optConflict_Click(static_cast<int16_t>(choice.index));  // the host hears it all the same
}

void frmWizard::resetScheme() {
  ErrorFrame f("kvlabeldx3.dll-frmWizard-resetScheme");
  f.step([&] { control("txtSaveName").text.clear(); });
  f.step([&] { selection().clear(); });
  f.step([&] { populateOutlookSchemesList(); });
  f.step([&] {
    if (!control("cboSavedScheme").items.empty()) setComboIndex(0);
  });
  f.step([&] { owner().resetOutlookSchemeToDefault(); });
  f.step([&] { populateOutlookSchemeSettings(); });
  if (bothWays_) f.step([&] { loadConflictRule(0); });
}

void frmWizard::cmdDeleteScheme_Click() {
  ErrorFrame f("kvoutlookdx.dll-frmWizard-cmdDeleteScheme_Click");
  int32_t schemeID = 0;
  bool go = false;
  f.step([&] {
    Control& combo = control("cboSavedScheme");
    if (combo.listIndex < 0) {
      showMessage(
          "You must select an outlook scheme in the drop down list first.  Please try again.", 10);
      return;
    }
    schemeID = combo.items.at(static_cast<size_t>(combo.listIndex)).itemData;
    go = schemeID >= 1;
  });
  if (!go) return;
  std::unique_ptr<hostdb::Recordset> scheme;
  bool found = false;
  f.step([&] {
    scheme = std::make_unique<hostdb::Recordset>(syncDb(), kSchemesSql, hostdb::kLockOptimistic);
    found = scheme->find("SchemeID", schemeID);
    if (!found) showMessage(kNotFound, 10);
  });
  if (!found) return;
  f.step([&] { scheme->remove(); });
  if (schemePasswords_)
    f.step([&] { schemePasswords_->forget(owner().SyncDatabaseLocation(), schemeID); });
  if (bothWays_ && bothWays_->schemeSettings)
    f.step([&] { bothWays_->schemeSettings->forget(owner().SyncDatabaseLocation(), schemeID); });
  std::unique_ptr<hostdb::Recordset> rows;
  f.step([&] {
    rows = std::make_unique<hostdb::Recordset>(syncDb(), schemeRowsSql(schemeID),
                                               hostdb::kLockOptimistic);
  });
  if (rows) {
    while (f.test([&] { return !rows->eof(); })) {
      f.step([&] { rows->remove(); });
      if (!f.step([&] { rows->next(); })) break;
    }
    rows.reset();
  }
  f.step([&] { scheme->close(); });
  f.step([&] { resetScheme(); });
}

void frmWizard::cmdSaveScheme_Click() {
  ErrorFrame f("kvoutlookdx.dll-frmWizard-cmdSaveScheme_Click");
  std::string name;
  bool go = false;
  f.step([&] {
    name = control("txtSaveName").text;
    if (value::isBlank(name)) {
      showMessage("You must enter a name to save your outlook scheme.", 10);
      return;
    }
    go = true;
  });
  if (!go) return;
  std::unique_ptr<hostdb::Recordset> rs;
  int32_t schemeID = -1;
  bool found = false;
  f.step([&] {
    rs = std::make_unique<hostdb::Recordset>(syncDb(), kSchemesSql, hostdb::kLockOptimistic);
    found = rs->find("SchemeName", name);
  });
  if (f.leaving()) return;
  if (found) {
    bool replace = false;
    f.step([&] {
      auto box = owner().messageBox();
      if (!box) throw RuntimeError(kObjectVariableNotSet, "No message box service");
      replace = box->askYesNo("There is already an outlook synchronization scheme saved as '" +
                                  name + "'.  Are you sure you want to replace this scheme?",
                              10, owner().MDIForm(), 101);
    });
    if (!replace) {
      rs->close();
      return;
    }
    f.step([&] { schemeID = value::toLong(rs->read("SchemeID")); });
  }

  auto settings = [&](auto&& put) {
    clsOutlookSynchronization& o = owner();
    put("CompanyListType", o.companyList() == Dossiera ? "1" : "2");
    put("ContactsCategory", control("txtContactsCategory").text);
    put("ProfileName", control("txtProfileName").text);
    put("ProfilePassword", schemePasswords_ ? std::string() : control("txtPassword").text);
    put("InfoType", std::to_string(selectedOption("optInfoType")));
    put("SyncType", std::to_string(selectedOption("optSynchDirection")));
  };
  if (schemeID >= 1) {
    // Each field is written (and saved) on its own.
    auto write = [&](const std::string& field, const std::string& v) {
      f.step([&] { rs->write(field, v); });
    };
    write("SchemeName", name);
    write("DataFileID", owner().DataFileUniqueID());
    f.step([&] { settings(write); });
  } else {
    f.step([&] {
      rs->addNew();
      rs->set("SchemeName", name);
      settings([&](const std::string& field, const std::string& v) { rs->set(field, v); });
      schemeID = value::toLong(rs->read("SchemeID"));
      rs->save();
    });
  }
  if (schemePasswords_ && schemeID >= 1) {
    f.step([&] {
      const std::string& password = control("txtPassword").text;
      const std::string database = owner().SyncDatabaseLocation();
      if (password.empty()) {
        schemePasswords_->forget(database, schemeID);
      } else if (!schemePasswords_->store(database, schemeID, name, password)) {
        showMessage(
            "The scheme was saved without its password: there is no keyring (secret "
            "service) to keep it in. Give the password again when you run it.",
            64);
      }
    });
  }
  bool bothWays = false;
  if (bothWays_ && schemeID >= 1) {
    f.step([&] {
      bothWays = optionSelected("optSynchDirection", syncBothsWays);
      if (bothWays_->schemeSettings)
        bothWays_->schemeSettings->store(owner().SyncDatabaseLocation(), schemeID, "conflict",
                                         optionSelected("optConflict", 2) ? "outlook" : "host");
    });
  }
  if (bothWays) {
    // No rows: those of the scheme it replaces go.
    std::unique_ptr<hostdb::Recordset> old;
    f.step([&] {
      old = std::make_unique<hostdb::Recordset>(syncDb(), schemeRowsSql(schemeID),
                                                hostdb::kLockOptimistic);
    });
    while (old && f.test([&] { return !old->eof(); })) {
      f.step([&] { old->remove(); });
      if (!f.step([&] { old->next(); })) break;
    }
  }
  // One OutlookSync row per chosen record, each added on its own.
  std::unique_ptr<hostdb::Recordset> rows;
  if (!bothWays && !f.test([&] { return selection().isEmpty(); }, true)) {
    f.step([&] {
      rows = std::make_unique<hostdb::Recordset>(syncDb(), "SELECT OutlookSync.* From OutlookSync;",
                                                 hostdb::kLockOptimistic);
    });
  }
  if (rows) {
    SelectionCollection& s = selection();
    f.step([&] { s.moveFirst(); });
    while (f.test([&] { return !s.atEnd(); })) {
      f.step([&] {
        rows->addNew();
        rows->set("SchemeNum", std::to_string(schemeID));
        rows->set("CompanyNum", s.member(1));
        rows->set("ContactNum", s.member(2));
        rows->set("OutlookID", s.member(3));
        rows->save();
      });
      if (!f.step([&] { s.moveNext(); })) break;
    }
    rows.reset();
  }
  f.step([&] {
    if (rs) rs->close();
  });
  f.step([&] {
    schemeSaved_ = true;
    showMessage("The outlook scheme has been successfully saved.", 10);
  });
}

}  // namespace dossync::wizard
