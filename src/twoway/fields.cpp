#include "twoway/fields.h"

#include <string_view>

#include "base/value.h"
#include "transfer/transfer_support.h"

namespace dossync::twoway {
namespace {

using P = outlook::ContactProperty;

struct Row {
  const char* column;
  FieldKind kind;
  P property;
  const char* propertyName;
};

// Companies <-> the item's business half (information type 1).
constexpr Row kCompanyRows[] = {
    {"CompanyName", FieldKind::Text, P::CompanyName, "CompanyName"},
    {"Address", FieldKind::Text, P::BusinessAddressStreet, "BusinessAddressStreet"},
    {"City", FieldKind::Text, P::BusinessAddressCity, "BusinessAddressCity"},
    {"Province", FieldKind::Text, P::BusinessAddressState, "BusinessAddressState"},
    {"PostalCode", FieldKind::Text, P::BusinessAddressPostalCode, "BusinessAddressPostalCode"},
    {"Country", FieldKind::Text, P::BusinessAddressCountry, "BusinessAddressCountry"},
    {"OfficeNumber", FieldKind::Text, P::BusinessTelephoneNumber, "BusinessTelephoneNumber"},
    {"FaxNumber", FieldKind::Text, P::BusinessFaxNumber, "BusinessFaxNumber"},
    {"Email", FieldKind::Text, P::Email1Address, "Email1Address"},
    {"WebSite", FieldKind::Text, P::WebPage, "WebPage"},
};

// A contact row <-> the item's personal half (the default contact of type 1; type 7, with the
// e-mail slots of kContactOnlyEmails).
constexpr Row kContactRows[] = {
    {"NamePrefix", FieldKind::Text, P::Title, "Title"},
    {"FirstName", FieldKind::Text, P::FirstName, "FirstName"},
    {"MiddleName", FieldKind::Text, P::MiddleName, "MiddleName"},
    {"LastName", FieldKind::Text, P::LastName, "LastName"},
    {"NameSuffix", FieldKind::Text, P::Suffix, "Suffix"},
    {"DisplayName", FieldKind::Text, P::FullName, "FullName"},
    {"PersonalEmail", FieldKind::Text, P::Email3Address, "Email3Address"},
    {"HomePhone_Main", FieldKind::Text, P::HomeTelephoneNumber, "HomeTelephoneNumber"},
    {"HomePhone_Cell", FieldKind::Text, P::Home2TelephoneNumber, "Home2TelephoneNumber"},
    {"HomePhone_Fax", FieldKind::Text, P::HomeFaxNumber, "HomeFaxNumber"},
    {"HomeAddress", FieldKind::Text, P::HomeAddressStreet, "HomeAddressStreet"},
    {"HomeCity", FieldKind::Text, P::HomeAddressCity, "HomeAddressCity"},
    {"HomeProvince", FieldKind::Text, P::HomeAddressState, "HomeAddressState"},
    {"HomePostalCode", FieldKind::Text, P::HomeAddressPostalCode, "HomeAddressPostalCode"},
    {"HomeCountry", FieldKind::Text, P::HomeAddressCountry, "HomeAddressCountry"},
    {"SpouseName", FieldKind::Text, P::Spouse, "Spouse"},
    {"Children", FieldKind::Text, P::Children, "Children"},
    {"Gender", FieldKind::Gender, P::Title, "Gender"},
    {"Birthday", FieldKind::Birthday, P::Title, "Birthday"},
    {"Anniversary", FieldKind::Anniversary, P::Title, "Anniversary"},
    {"BusinessJobTitle", FieldKind::Text, P::JobTitle, "JobTitle"},
    {"BusinessDepartment", FieldKind::Text, P::Department, "Department"},
    {"BusinessOffice", FieldKind::Text, P::OfficeLocation, "OfficeLocation"},
    {"BusinessPhone_Cell", FieldKind::Text, P::Business2TelephoneNumber,
     "Business2TelephoneNumber"},
    {"BusinessEmail", FieldKind::Text, P::Email2Address, "Email2Address"},
};

// The e-mail slots of a contact on its own (information type 7): those the contact's transfer to
// Outlook fills, the business e-mail first and the personal one second, so that the items it
// wrote compare equal to their contacts. (The transfer the other way reads any item as a
// company's, with the default contact's slots above.)
constexpr Row kContactOnlyEmails[] = {
    {"PersonalEmail", FieldKind::Text, P::Email2Address, "Email2Address"},
    {"BusinessEmail", FieldKind::Text, P::Email1Address, "Email1Address"},
};

Field make(const Row& r, bool company) {
  Field f;
  f.pair = {company ? "Companies" : "Contacts", r.column, r.propertyName};
  f.kind = r.kind;
  f.property = r.property;
  f.company = company;
  f.name = f.pair.table + "." + f.pair.column;
  return f;
}

std::vector<Field> build(bool withCompany) {
  std::vector<Field> out;
  if (withCompany)
    for (const Row& r : kCompanyRows) out.push_back(make(r, true));
  for (const Row& r : kContactRows) {
    const Row* row = &r;
    if (!withCompany)
      for (const Row& e : kContactOnlyEmails)
        if (std::string_view(e.column) == r.column) row = &e;
    out.push_back(make(*row, false));
  }
  return out;
}

std::string dateText(const value::Date& d) {
  return d == outlook::kNoDate || d.year == 0 ? std::string() : value::toText(d);
}

value::Date itemDate(const outlook::ContactItem& item, FieldKind kind) {
  return kind == FieldKind::Birthday ? item.Birthday() : item.Anniversary();
}

}  // namespace

const std::vector<Field>& fieldsOf(int32_t info) {
  static const std::vector<Field> companies = build(true), contacts = build(false), none;
  return info == 1 ? companies : info == 7 ? contacts : none;
}

const std::vector<FieldPair>& fieldPairs(int32_t info) {
  auto pairsOf = [](int32_t i) {
    std::vector<FieldPair> out;
    for (const Field& f : fieldsOf(i)) out.push_back(f.pair);
    return out;
  };
  static const std::vector<FieldPair> companies = pairsOf(1), contacts = pairsOf(7), none;
  return info == 1 ? companies : info == 7 ? contacts : none;
}

std::string itemValue(const outlook::ContactItem& item, const Field& field) {
  switch (field.kind) {
    case FieldKind::Text:
      return item.get(field.property);
    case FieldKind::Gender:
      return std::to_string(item.Gender());
    case FieldKind::Birthday:
    case FieldKind::Anniversary:
      return dateText(itemDate(item, field.kind));
  }
  return {};
}

std::string asItemValue(const Field& field, const std::string& hostText) {
  switch (field.kind) {
    case FieldKind::Text:
      return hostText;
    case FieldKind::Gender:
      return std::to_string(transfer::genderFromHost(hostText));
    case FieldKind::Birthday:
    case FieldKind::Anniversary:
      return value::isBlank(hostText) ? std::string() : dateText(transfer::dateFromHost(hostText));
  }
  return {};
}

bool hostEmpty(const std::string& hostText) {
  return value::isBlank(hostText);
}

bool itemEmpty(const Field& field, const std::string& itemText) {
  return itemText.empty() || (field.kind == FieldKind::Gender && itemText == "0");
}

bool copyToItem(outlook::ContactItem& item, const Field& field, const std::string& hostText) {
  switch (field.kind) {
    case FieldKind::Text:
      item.set(field.property, hostText);
      return true;
    case FieldKind::Gender:
      item.setGender(transfer::genderFromHost(hostText));
      return true;
    case FieldKind::Birthday:
    case FieldKind::Anniversary:
      if (value::isBlank(hostText)) return false;
      if (field.kind == FieldKind::Birthday) {
        item.setBirthday(transfer::dateFromHost(hostText));
      } else {
        item.setAnniversary(transfer::dateFromHost(hostText));
      }
      return true;
  }
  return false;
}

std::optional<std::string> asHostText(const Field& field, const std::string& itemText) {
  switch (field.kind) {
    case FieldKind::Text:
      return itemText;
    case FieldKind::Gender:
      if (itemText == std::to_string(outlook::olMale)) return std::string("Male");
      if (itemText == std::to_string(outlook::olFemale)) return std::string("Female");
      return std::nullopt;
    case FieldKind::Birthday:
    case FieldKind::Anniversary:
      if (itemText.empty()) return std::nullopt;
      return value::toText(value::toDate(value::formatMmmDYyyy(value::toDate(itemText))));
  }
  return std::nullopt;
}

}  // namespace dossync::twoway
