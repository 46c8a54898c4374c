#include "hostdb/default_contacts.h"

#include <array>
#include <optional>

#include "core/apartment.h"
#include "core/value.h"
#include "format/rtf_summaries.h"
#include "hostdb/lookups.h"
#include "hostdb/host_database.h"
#include "hostdb/recordset.h"

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
  IDataAccess* db = openHostDatabase();
  if (!db) return result;
  std::optional<Recordset> rs;
  bool decided = false;
  f.step([&] {
    rs.emplace(*db, kContacts);
    if (rs->find("CompanyNum", companyID)) {
      while (!rs->eof()) {
        if (value::toBoolean(rs->read("DefaultContact"))) {
          decided = true;
          result = value::toLong(rs->read("ContactID"));
          break;
        }
        rs->findNext();
        apartment().doEvents();
      }
    } else {
      decided = true;
      setNoContactAsDefault(companyID);
    }
  });
  f.step([&] {
    if (decided || !setDefault || !rs) return;
    // The first contact found becomes the default; the answer stays -1.
    if (rs->find("CompanyNum", companyID))
      setContactAsDefault(value::toLong(rs->read("ContactID")));
  });
  return result;
}

void setContactAsDefault(int32_t contactID) {
  ErrorFrame f(std::string(kDbLoc) + "setContactAsDefault");
  IDataAccess* db = openHostDatabase();
  if (!db) return;
  std::optional<Recordset> rs;
  bool found = false;
  int32_t companyID = -1;
  f.step([&] {
    rs.emplace(*db, kContacts, kLockOptimistic);
    found = rs->find("ContactID", contactID);
  });
  if (!found) return;
  f.step([&] {
    rs->write("DefaultContact", "True");
    format::saveContactBusinessRTF(contactID);
  });
  bool validCompany = false;
  f.step([&] {
    std::string companyNum = rs->read("CompanyNum");
    companyID = value::isNumeric(companyNum) ? value::toLong(companyNum) : -1;
    validCompany = validCompanyID(companyID);
  });
  if (!validCompany) return;
  f.step([&] {
    rs->find("CompanyNum", companyID);
    while (!rs->eof()) {
      int32_t other = value::toLong(rs->read("ContactID"));
      if (other != contactID) {
        rs->write("DefaultContact", "False");
        format::saveContactBusinessRTF(other);
      }
      rs->findNext();
      apartment().doEvents();
    }
  });
  f.step([&] { updateDefaultContactInfo(companyID); });
  f.step([&] { format::saveCompanyContactRTF(companyID, contactID); });
  f.step([&] { changeDefaultContactChangeLookupFieldValue(contactID); });
}

void setNoContactAsDefault(int32_t companyID) {
  ErrorFrame f(std::string(kDbLoc) + "setNoContactAsDefault");
  if (!openHostDatabase()) return;
  f.step([&] { updateDefaultContactInfo(companyID); });
  f.step([&] { format::saveCompanyContactRTF(companyID, -1); });
}

void updateDefaultContactInfo(int32_t companyID) {
  ErrorFrame f(std::string(kDbLoc) + "updateDefaultContactInfo");
  f.step([&] {
    IDataAccess* db = openHostDatabase();
    if (!db) return;
    Recordset contacts(*db, kContacts);
    Recordset companies(*db, kCompanies, kLockOptimistic);
    int32_t defaultID = getDefaultContactIDFromCompanyID(companyID);
    if (validContactID(defaultID)) {
      if (contacts.find("ContactID", defaultID) && companies.find("CompanyID", companyID)) {
        companies.write("DefaultContactName", contacts.read("DisplayName"));
        companies.write("DefaultContactPhoneNumber", contacts.read("BusinessPhone_Main"));
        companies.write("DefaultContactFaxNumber", contacts.read("BusinessPhone_Fax"));
        companies.write("DefaultContactEmail", contacts.read("BusinessEmail"));
      }
    } else if (companies.find("CompanyID", companyID)) {
      for (const char* column : {"DefaultContactName", "DefaultContactPhoneNumber",
                                 "DefaultContactFaxNumber", "DefaultContactEmail"})
        companies.write(column, "");
    }
  });
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
  IDataAccess* db = openHostDatabase();
  if (!db) return;
  apartment().setMousePointer(kPointerHourglass);
  std::array<std::string, 5> lookup, values;
  f.step([&] {
    Recordset fields(*db, "SELECT CustomFields.* FROM CustomFields;");
    if (!fields.hasRow()) return;
    for (size_t i = 0; i < lookup.size(); ++i) {
      std::string n = std::to_string(i + 1);
      std::string info = fields.read("RemittanceCustomInfo" + n);
      if (!isContactLookupField(info)) continue;
      std::string type = fields.read("RemittanceCustomType" + n);
      if (!value::isBlank(type) && value::toInteger(type) == kContactLookupType) lookup[i] = info;
    }
  });
  bool anyLookup = false;
  for (const auto& name : lookup) anyLookup = anyLookup || !value::isBlank(name);
  if (anyLookup) {
    std::optional<Recordset> contact;
    f.step([&] {
      contact.emplace(*db, kContacts);
      if (!contact->find("ContactID", contactID)) return;
      for (size_t i = 0; i < lookup.size(); ++i)
        if (!value::isBlank(lookup[i])) values[i] = contact->read(lookup[i]);
      for (auto& text : values) text = value::formatAsMmmDYyyy(text);
    });
    f.step([&] {
      Recordset schedule(
          *db,
          "SELECT Schedule.*, Schedule.ClientNum FROM Schedule WHERE Schedule.ClientNum = " +
              std::to_string(getClientDataIDFromContactID(contactID)) + ";",
          kLockOptimistic);
      if (!schedule.hasRow()) return;
      while (!schedule.eof()) {
        for (size_t i = 0; i < lookup.size(); ++i)
          if (!value::isBlank(lookup[i]))
            schedule.write("Custom" + std::to_string(i + 1), values[i]);
        schedule.next();
      }
    });
  }
  apartment().setMousePointer(kPointerDefault);
}

}  // namespace dossync::hostdb
