// Shared pieces of the record transfers: opening the paired Outlook contact or a new one, and
// the value conversions between host columns and contact properties.
#pragma once

#include <memory>
#include <string>

#include "core/host_database.h"
#include "core/recordset.h"
#include "interfaces/data_access.h"
#include "interfaces/object_model.h"
#include "transfer/transfer.h"

namespace dossync::transfer {

// A host column and the contact property it is copied to, or from.
struct HostColumn {
  const char* column;
  outlook::ContactProperty property;
};

// A company's row as both directions copy it, in this order: its name first, then its business
// address, numbers, e-mail and web site.
inline constexpr HostColumn kCompanyColumns[] = {
    {"CompanyName", outlook::ContactProperty::CompanyName},
    {"Address", outlook::ContactProperty::BusinessAddressStreet},
    {"City", outlook::ContactProperty::BusinessAddressCity},
    {"Province", outlook::ContactProperty::BusinessAddressState},
    {"PostalCode", outlook::ContactProperty::BusinessAddressPostalCode},
    {"Country", outlook::ContactProperty::BusinessAddressCountry},
    {"OfficeNumber", outlook::ContactProperty::BusinessTelephoneNumber},
    {"FaxNumber", outlook::ContactProperty::BusinessFaxNumber},
    {"Email", outlook::ContactProperty::Email1Address},
    {"WebSite", outlook::ContactProperty::WebPage}};

// A contact's names and personal details as both directions copy them, in this order, up to
// Gender (the dates and the business columns follow).
inline constexpr HostColumn kContactPersonalColumns[] = {
    {"NamePrefix", outlook::ContactProperty::Title},
    {"FirstName", outlook::ContactProperty::FirstName},
    {"MiddleName", outlook::ContactProperty::MiddleName},
    {"LastName", outlook::ContactProperty::LastName},
    {"NameSuffix", outlook::ContactProperty::Suffix},
    {"DisplayName", outlook::ContactProperty::FullName},
    {"PersonalEmail", outlook::ContactProperty::Email3Address},
    {"HomePhone_Main", outlook::ContactProperty::HomeTelephoneNumber},
    {"HomePhone_Cell", outlook::ContactProperty::Home2TelephoneNumber},
    {"HomePhone_Fax", outlook::ContactProperty::HomeFaxNumber},
    {"HomeAddress", outlook::ContactProperty::HomeAddressStreet},
    {"HomeCity", outlook::ContactProperty::HomeAddressCity},
    {"HomeProvince", outlook::ContactProperty::HomeAddressState},
    {"HomePostalCode", outlook::ContactProperty::HomeAddressPostalCode},
    {"HomeCountry", outlook::ContactProperty::HomeAddressCountry},
    {"SpouseName", outlook::ContactProperty::Spouse},
    {"Children", outlook::ContactProperty::Children}};

struct OpenedItem {
  outlook::ContactItemPtr item;
  bool existing = false;  // the paired item was found; otherwise a new unsaved one
};

// The item with that entry id in the default contacts folder, else a new contact item. One
// step for the caller: a paired item that could not be looked up is not replaced by a new one.
OpenedItem openOrCreateContact(clsOutlookSynchronization& c, const std::string& outlookEntryID);

// Host "Gender" text -> Outlook gender: "MALE" 2, "FEMALE" 1, anything else 0 (any case).
int32_t genderFromHost(const std::string& text);
// A host date text through "mmm d, yyyy" to a date (RuntimeError 13 when it is no date).
value::Date dateFromHost(const std::string& text);

// Gender, Birthday and Anniversary of a host contact row, each a step of the caller's frame:
// a blank date leaves the item's as it was.
void copyGenderAndDates(ErrorFrame& f, outlook::ContactItem& item, hostdb::Recordset& contact);

// Saves the item, counts it as created or updated and answers its EntryID.
std::string saveItem(clsOutlookSynchronization& c, OpenedItem& opened);

}  // namespace dossync::transfer
