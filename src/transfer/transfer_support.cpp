#include "transfer/transfer_support.h"

#include "base/platform.h"
#include "base/value.h"
#include "core/apartment.h"
#include "interfaces/progress.h"

namespace dossync::transfer {

OpenedItem openOrCreateContact(clsOutlookSynchronization& c, const std::string& outlookEntryID) {
  OpenedItem opened;
  auto folder = c.contactsFolder();
  std::string storeID = folder->StoreID();
  if (!value::isBlank(outlookEntryID)) {
    opened.item = std::dynamic_pointer_cast<outlook::ContactItem>(
        c.outlookNameSpace()->GetItemFromID(outlookEntryID, storeID));
  }
  opened.existing = opened.item != nullptr;
  if (!opened.item) {
    if (!c.outlookApplication())
      throw RuntimeError(kObjectVariableNotSet, "Object variable not set: Outlook is not started");
    opened.item = std::dynamic_pointer_cast<outlook::ContactItem>(
        c.outlookApplication()->CreateItem(outlook::olContactItem));
    if (!opened.item)
      throw RuntimeError(kOutlookOperationFailed, "Outlook did not create a contact item");
  }
  return opened;
}

int32_t genderFromHost(const std::string& text) {
  std::string up = value::upper(text);
  if (up == "MALE") return outlook::olMale;
  if (up == "FEMALE") return outlook::olFemale;
  return outlook::olUnspecified;
}

value::Date dateFromHost(const std::string& text) {
  return value::toDate(value::formatAsMmmDYyyy(text));
}

void copyGenderAndDates(ErrorFrame& f, outlook::ContactItem& item, hostdb::Recordset& c) {
  f.step([&] { item.setGender(genderFromHost(c.read("Gender"))); });
  f.step([&] {
    std::string b = c.read("Birthday");
    if (!value::isBlank(b)) item.setBirthday(dateFromHost(b));
  });
  f.step([&] {
    std::string a = c.read("Anniversary");
    if (!value::isBlank(a)) item.setAnniversary(dateFromHost(a));
  });
}

std::string saveItem(clsOutlookSynchronization& c, OpenedItem& opened) {
  opened.item->Save();
  if (opened.existing) {
    ++c.counters().itemsUpdated;
  } else {
    ++c.counters().itemsCreated;
  }
  return opened.item->EntryID();
}

}  // namespace dossync::transfer

namespace dossync {

void clsOutlookSynchronization::showStatus(const std::string& name) {
  if (showProgress_ && progressDialog_) progressDialog_->setStatus("Synchronizing " + name);
}

}  // namespace dossync
