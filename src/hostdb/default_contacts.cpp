#include "hostdb/default_contacts.h"

#include <array>
#include <functional>
#include <memory>
#include <optional>

#include "base/value.h"
#include "core/apartment.h"
#include "core/host_database.h"
#include "core/recordset.h"
#include "format/rtf_summaries.h"
#include "hostdb/lookups.h"

namespace dossync::hostdb {
namespace {

const std::string kScheduleLoc = "Dossiera.exe-modScheduleCustom-";

// The Contacts columns a schedule column may show, in the order they are tested.
constexpr std::array<const char*, 44> kLookupFields = {
    "DisplayName",
    "NamePrefix",
    "FirstName",
    "LastName",
    "NameSuffix",
    "SocialInsuranceNumber",
    "EmployeeType",
    "PercentageOwnership",
    "BusinessName",
    "BusinessJobTitle",
    "BusinessDepartment",
    "BusinessOffice",
    "BusinessPhone_Main",
    "BusinessPhone_Cell",
    "BusinessPhone_Pager",
    "BusinessPhone_Fax",
    "BusinessAddress",
    "BusinessCity",
    "BusinessProvince",
    "BusinessPostalCode",
    "BusinessCountry",
    "BusinessWebSite",
    "BusinessEmail",
    "PersonalEmail",
    "HomePhone_Main",
    "HomePhone_Cell",
    "HomePhone_Pager",
    "HomePhone_Fax",
    "HomeAddress",
    "HomeCity",
    "HomeProvince",
    "HomePostalCode",
    "HomeCountry",
    "PersonalWebSite",
    "SpouseName",
    "Children",
    "Gender",
    "Birthday",
    "Anniversary",
    "ContactCustom1",
    "ContactCustom2",
    "ContactCustom3",
    "ContactCustom4",
    "ContactCustom5",
};

// The schedule type of a custom column that shows a contact's value.
constexpr int16_t kContactLookupType = 3;

}  // namespace

int32_t checkForDefault(int32_t companyID, bool setDefault) {
  ErrorFrame f(std::string(kDbLoc) + "checkForDefault");
  int32_t result = -1;
  IDataAccess* db = openHostDatabase(f);
  if (!db) return result;
  std::unique_ptr<Recordset> rs;
  bool decided = false;
  bool found = false;
  f.step([&] { rs = std::make_unique<Recordset>(*db, kContacts); });
  if (!rs) return result;
  // A find that fails decides nothing: no contact is made the default then.
  if (!f.step([&] { found = rs->find("CompanyNum", companyID); })) return result;
  if (found) {
    // A contact whose mark cannot be read is passed over; a walk that cannot go on ends.
    while (f.test([&] { return !rs->eof(); })) {
      if (f.test([&] { return value::toBoolean(rs->read("DefaultContact")); })) {
        decided = true;
        f.step([&] { result = value::toLong(rs->read("ContactID")); });
        break;
      }
      if (!f.step([&] { rs->findNext(); })) break;
      f.step([&] { apartment().doEvents(); });
    }
  } else {
    decided = true;
    f.step([&] { setNoContactAsDefault(companyID); });
  }
  if (!decided && setDefault) {
    // The first contact found becomes the default; the answer stays -1.
    f.step([&] {
      if (rs->find("CompanyNum", companyID))
        setContactAsDefault(value::toLong(rs->read("ContactID")));
    });
  }
  return result;
}

void setContactAsDefault(int32_t contactID) {
  ErrorFrame f(std::string(kDbLoc) + "setContactAsDefault");
  IDataAccess* db = openHostDatabase(f);
  if (!db) return;
  std::unique_ptr<Recordset> rs;
  bool found = false;
  f.step([&] {
    rs = std::make_unique<Recordset>(*db, kContacts, kLockOptimistic);
    found = rs->find("ContactID", contactID);
  });
  if (!found) return;
  f.step([&] { rs->write("DefaultContact", "True"); });
  std::string summary;
  f.step([&] { summary = format::saveContactBusinessRTF(contactID); });
  int32_t companyID = -1;
  f.step([&] {
    std::string companyNum = rs->read("CompanyNum");
    companyID = value::isNumeric(companyNum) ? value::toLong(companyNum) : -1;
  });
  if (!f.test([&] { return validCompanyID(companyID); })) return;
  // Every other contact of the company stops being its default. When there is none, nothing
  // the contact's summary reads changes before the company takes it (updateDefaultContactInfo
  // writes only the company's default-contact columns), so it is not built a second time.
  bool othersChanged = false;
  if (f.step([&] { rs->find("CompanyNum", companyID); })) {
    while (f.test([&] { return !rs->eof(); })) {
      int32_t other = contactID;
      f.step([&] { other = value::toLong(rs->read("ContactID")); });
      if (other != contactID) {
        othersChanged = true;
        f.step([&] { rs->write("DefaultContact", "False"); });
        f.step([&] { format::saveContactBusinessRTF(other); });
      }
      if (!f.step([&] { rs->findNext(); })) break;
      f.step([&] { apartment().doEvents(); });
    }
  }
  f.step([&] { updateDefaultContactInfo(companyID); });
  f.step([&] {
    bool reuse = !othersChanged && !summary.empty();
    format::saveCompanyContactRTF(companyID, contactID, reuse ? &summary : nullptr);
  });
  f.step([&] { changeDefaultContactChangeLookupFieldValue(contactID); });
}

void setNoContactAsDefault(int32_t companyID) {
  ErrorFrame f(std::string(kDbLoc) + "setNoContactAsDefault");
  if (!openHostDatabase(f)) return;
  f.step([&] { updateDefaultContactInfo(companyID); });
  f.step([&] { format::saveCompanyContactRTF(companyID, -1); });
}

void updateDefaultContactInfo(int32_t companyID) {
  ErrorFrame f(std::string(kDbLoc) + "updateDefaultContactInfo");
  IDataAccess* db = openHostDatabase(f);
  if (!db) return;
  std::unique_ptr<Recordset> contacts, companies;
  f.step([&] { contacts = std::make_unique<Recordset>(*db, kContacts); });
  f.step([&] { companies = std::make_unique<Recordset>(*db, kCompanies, kLockOptimistic); });
  if (!contacts || !companies) return;
  int32_t defaultID = -1;
  f.step([&] { defaultID = getDefaultContactIDFromCompanyID(companyID); });
  // The four columns, each written (and saved) on its own.
  auto write = [&](const char* column, const std::function<std::string()>& text) {
    f.step([&] { companies->write(column, text()); });
  };
  if (f.test([&] { return validContactID(defaultID); })) {
    if (f.test([&] { return contacts->find("ContactID", defaultID); }) &&
        f.test([&] { return companies->find("CompanyID", companyID); })) {
      write("DefaultContactName", [&] { return contacts->read("DisplayName"); });
      write("DefaultContactPhoneNumber", [&] { return contacts->read("BusinessPhone_Main"); });
      write("DefaultContactFaxNumber", [&] { return contacts->read("BusinessPhone_Fax"); });
      write("DefaultContactEmail", [&] { return contacts->read("BusinessEmail"); });
    }
  } else if (f.test([&] { return companies->find("CompanyID", companyID); })) {
    for (const char* column : {"DefaultContactName", "DefaultContactPhoneNumber",
                               "DefaultContactFaxNumber", "DefaultContactEmail"})
      write(column, [] { return std::string(); });
  }
}

bool isContactLookupField(const std::string& fieldName) {
  ErrorFrame f(kScheduleLoc + "isContactLookupField");
  bool result = false;
  f.step([&] {
    for (const char* field : kLookupFields) {
      if (fieldName == value::upper(field)) {
        result = true;
        return;
      }
    }
  });
  return result;
}

void changeDefaultContactChangeLookupFieldValue(int32_t contactID) {
  ErrorFrame f(kScheduleLoc + "changeDefaultContactChangeLookupFieldValue");
  IDataAccess* db = openHostDatabase(f);
  if (!db) return;
  f.step([&] { apartment().setMousePointer(kPointerHourglass); });
  std::array<std::string, 5> lookup, values;
  std::unique_ptr<Recordset> fields;
  f.step([&] {
    fields = std::make_unique<Recordset>(*db, "SELECT CustomFields.* FROM CustomFields;");
  });
  if (fields && f.test([&] { return fields->hasRow(); })) {
    for (size_t i = 0; i < lookup.size(); ++i) {
      f.step([&] {
        std::string n = std::to_string(i + 1);
        std::string info = fields->read("RemittanceCustomInfo" + n);
        if (!isContactLookupField(info)) return;
        std::string type = fields->read("RemittanceCustomType" + n);
        if (!value::isBlank(type) && value::toInteger(type) == kContactLookupType) lookup[i] = info;
      });
    }
  }
  fields.reset();
  bool anyLookup = false;
  for (const auto& name : lookup) anyLookup = anyLookup || !value::isBlank(name);
  if (anyLookup) {
    std::unique_ptr<Recordset> contact;
    bool found = false;
    f.step([&] {
      contact = std::make_unique<Recordset>(*db, kContacts);
      found = contact->find("ContactID", contactID);
    });
    if (found) {
      for (size_t i = 0; i < lookup.size(); ++i)
        if (!value::isBlank(lookup[i])) f.step([&] { values[i] = contact->read(lookup[i]); });
      for (auto& text : values) f.step([&] { text = value::formatAsMmmDYyyy(text); });
    }
    std::unique_ptr<Recordset> schedule;
    f.step([&] {
      schedule = std::make_unique<Recordset>(
          *db,
          "SELECT Schedule.*, Schedule.ClientNum FROM Schedule WHERE Schedule.ClientNum = " +
              std::to_string(getClientDataIDFromContactID(contactID)) + ";",
          kLockOptimistic);
    });
    if (schedule && f.test([&] { return schedule->hasRow(); })) {
      while (f.test([&] { return !schedule->eof(); })) {
        for (size_t i = 0; i < lookup.size(); ++i)
          if (!value::isBlank(lookup[i]))
            f.step([&] { schedule->write("Custom" + std::to_string(i + 1), values[i]); });
        if (!f.step([&] { schedule->next(); })) break;
      }
    }
  }
  f.onExit([&] { apartment().setMousePointer(kPointerDefault); });
}

}  // namespace dossync::hostdb
