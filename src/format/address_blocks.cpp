// Address blocks of contacts and companies, and the small text and key helpers of the
// summaries.
#include <array>

#include "base/value.h"
#include "core/apartment.h"
#include "core/host_database.h"
#include "core/recordset.h"
#include "format/rtf_summaries.h"

namespace dossync::format {
namespace {

const std::string kFormatLocation = "kvAddress.dll-clsFormatAddresses-";
const char* kContactsSql = "SELECT Contacts.* FROM Contacts;";
const char* kCompaniesSql = "SELECT Companies.* FROM Companies;";

// An address in one of these countries is domestic and gets no country line.
constexpr std::array<const char*, 4> kDomesticCountries = {"CANADA", "CA", "CAN", "CDA"};

bool isDomestic(const std::string& country) {
  std::string word = value::upper(country);
  for (const char* domestic : kDomesticCountries)
    if (word == domestic) return true;
  return false;
}

bool exists(const std::string& procedure, const char* sql, const char* key, int32_t id) {
  ErrorFrame f(kFormatLocation + procedure);
  bool result = false;
  f.step([&] {
    if (id < 1) return;
    if (hostdb::IDataAccess* db = hostdb::openHostDatabase(f)) {
      hostdb::Recordset rs(*db, sql);
      result = rs.find(key, id);
    }
  });
  return result;
}

}  // namespace

bool validContactID(int32_t contactID) {
  return exists("validContactID", kContactsSql, "ContactID", contactID);
}

bool validCompanyID(int32_t companyID) {
  return exists("validCompanyID", kCompaniesSql, "CompanyID", companyID);
}

std::string convertToRTF(const std::string& text) {
  ErrorFrame f(kFormatLocation + "convertToRTF");
  std::string result;
  f.step([&] {
    std::string out;
    out.reserve(text.size());
    for (size_t i = 0; i < text.size(); ++i) {
      if (text[i] == '\r' && i + 1 < text.size() && text[i + 1] == '\n') {
        out += "\\par \r\n";
        ++i;
      } else {
        out += text[i];
      }
    }
    result = std::move(out);
  });
  return result;
}

std::string createAddress(const AddressParts& parts, bool includeName, bool separators) {
  ErrorFrame f(kFormatLocation + "createAddress");
  std::string result;
  f.step([&] {
    using value::isBlank;
    if (isBlank(parts.street) && isBlank(parts.city) && isBlank(parts.province) &&
        isBlank(parts.postalCode) && isBlank(parts.country))
      return;
    std::string block;
    if (!isBlank(parts.businessName)) {
      block += parts.businessName + "\r\n";
    } else if (includeName && !isBlank(parts.displayName)) {
      block += parts.displayName + "\r\n";
    }
    if (!isBlank(parts.street)) block += parts.street + "\r\n";
    std::string locality = parts.city;
    if (!isBlank(parts.province)) {
      if (separators && !locality.empty()) locality += ", ";
      locality += parts.province;
    }
    if (!isBlank(parts.postalCode)) {
      if (separators && !locality.empty()) locality += "  ";
      locality += parts.postalCode;
    }
    block += locality;
    if (!isBlank(parts.country) && !isDomestic(parts.country)) block += "\r\n" + parts.country;
    result = convertToRTF(block);
  });
  return result;
}

std::string createBusinessContactAddress(int32_t contactID, bool separators) {
  ErrorFrame f(kFormatLocation + "createBusinessContactAddress");
  std::string result;
  f.step([&] {
    hostdb::IDataAccess* db = hostdb::openHostDatabase(f);
    if (!db) return;
    hostdb::Recordset contact(*db, kContactsSql);
    if (!contact.find("ContactID", contactID)) return;
    AddressParts parts;
    parts.businessName = contact.read("BusinessName");
    parts.displayName = contact.read("DisplayName");
    bool inherited = false;
    std::string companyNum = contact.read("CompanyNum");
    if (value::toBoolean(contact.read("InheritCompanyInfo")) && !value::isBlank(companyNum) &&
        value::isNumeric(companyNum)) {
      hostdb::Recordset company(*db, kCompaniesSql);
      if (company.find("CompanyID", value::toLong(companyNum))) {
        parts.street = company.read("Address");
        parts.city = company.read("City");
        parts.province = company.read("Province");
        parts.postalCode = company.read("PostalCode");
        parts.country = company.read("Country");
        inherited = true;
      }
    }
    if (!inherited) {
      parts.street = contact.read("BusinessAddress");
      parts.city = contact.read("BusinessCity");
      parts.province = contact.read("BusinessProvince");
      parts.postalCode = contact.read("BusinessPostalCode");
      parts.country = contact.read("BusinessCountry");
    }
    result = createAddress(parts, true, separators);
  });
  return result;
}

}  // namespace dossync::format
