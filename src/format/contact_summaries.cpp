// The rich-text summaries of a contact (Contacts.BusinessNotes) and of a company's default
// contact (Companies.ContactNotes).
#include <optional>
#include <utility>
#include <vector>

#include "base/value.h"
#include "core/apartment.h"
#include "core/host_database.h"
#include "core/recordset.h"
#include "format/rtf_summaries.h"

namespace dossync::format {
namespace {

const std::string kFormatLocation = "kvAddress.dll-clsFormatAddresses-";

const char* const kOpening =
    R"({\rtf1\ansi\ansicpg1252\deff0\deflang4105{\fonttbl{\f0\fswiss\fcharset0 Arial;}})"
    R"(\viewkind4\uc1\pard\f0\fs16)";
const char* const kClosing = "}";
const char* const kLineEnd = "\\par\r\n";

// Templates of the contact summary, each followed by its column's value. The blanks after
// \b0 (and after \tab) are part of the layout the host's editor reads.
using Line = std::pair<const char*, const char*>;  // column, template

const std::vector<Line> kNameGroup = {
    {"DisplayName", R"(\b\pard\fi-1450\li1450\ri0 Name:\b0  )"},
    {"BusinessName", R"(\b\pard\fi-1425\li1425\ri0 Company Name:\b0   )"},
    {"BusinessJobTitle", R"(\b\pard\fi-800\li800\ri0 Job Title:\b0   )"},
    {"BusinessDepartment", R"(\b\pard\fi-1050\li1050\ri0 Department:\b0   )"},
    {"BusinessOffice", R"(\b\pard\fi-600\li600\ri0 Office:\b0   )"},
};
const char* const kDefaultYes = R"(\b Default Contact:\b0  Yes)";
const char* const kDefaultNo = R"(\b Default Contact:\b0  No)";
const std::vector<Line> kPhoneGroup = {
    {"BusinessPhone_Main", R"(\b\pard\fi-1100\li1100\ri0 Main Phone:\b0   )"},
    {"BusinessPhone_Cell", R"(\b\pard\fi-1100\li1100\ri0 Cell Phone:\b0     )"},
    {"BusinessPhone_Fax", R"(\b\pard\fi-1100\li1100\ri0 Fax:\b0  \tab         )"},
    {"BusinessPhone_Pager", R"(\b\pard\fi-1100\li1100\ri0 Pager:\b0  \tab         )"},
    {"BusinessEmail", R"(\b\pard\fi0\li0\ri0 Email:\b0  \tab         )"},
    {"BusinessWebSite", R"(\b Web Site:\b0        )"},
};
const char* const kAddressHeading = R"(\b\pard\fi0\li0\ri0 Address:\b0\par)";
const std::vector<Line> kPersonalGroup = {
    {"SocialInsuranceNumber", R"(\b SIN:\b0  \tab\tab    )"},
    {"EmployeeType", R"(\b Employee Type:\b0  )"},
};
const char* const kNotesHeading = R"(\b Notes:\b0\par)";
const char* const kNoDefault = R"(\b No Default Contact Selected.\b0  )";

// Appends the lines of a group whose columns are not blank, and a blank line after them when
// there was at least one.
void appendGroup(std::string& text, hostdb::Recordset& contact, const std::vector<Line>& group) {
  bool any = false;
  for (const auto& [column, layout] : group) {
    std::string value = contact.read(column);
    if (value::isBlank(value)) continue;
    text += layout + value + kLineEnd;
    any = true;
  }
  if (any) text += kLineEnd;
}

}  // namespace

std::string saveNoDefaultComment() {
  ErrorFrame f(kFormatLocation + "saveNoDefaultComment");
  std::string result;
  f.step([&] { result = std::string(kOpening) + kNoDefault + kLineEnd + kClosing; });
  return result;
}

std::string saveContactBusinessRTF(int32_t contactID) {
  ErrorFrame f(kFormatLocation + "saveContactBusinessRTF");
  std::string result;
  std::optional<hostdb::Recordset> contact, labels;
  bool found = false;
  std::string text;
  f.step([&] {
    if (!validContactID(contactID)) return;
    hostdb::IDataAccess* db = hostdb::openHostDatabase(f);
    if (!db) return;
    contact.emplace(*db, "SELECT Contacts.* FROM Contacts;", hostdb::kLockOptimistic);
    labels.emplace(*db, "SELECT CustomAddressFields.* FROM CustomAddressFields;");
    found = contact->find("ContactID", contactID);
  });
  if (!found) return result;

  f.step([&] {
    text = kOpening;
    appendGroup(text, *contact, kNameGroup);
  });
  f.step([&] {
    text += value::toBoolean(contact->read("DefaultContact")) ? kDefaultYes : kDefaultNo;
    text += kLineEnd;
    text += kLineEnd;
  });
  f.step([&] { appendGroup(text, *contact, kPhoneGroup); });
  f.step([&] {
    std::string block = createBusinessContactAddress(contactID, true);
    if (value::isBlank(block)) return;
    text += std::string(kAddressHeading) + "\r\n" + block + kLineEnd + kLineEnd;
  });
  f.step([&] { appendGroup(text, *contact, kPersonalGroup); });
  f.step([&] {
    bool any = false;
    for (int i = 1; i <= 5; ++i) {
      std::string value = contact->read("Custom" + std::to_string(i));
      if (value::isBlank(value)) continue;
      // The captions' table has one row; without it the captions are empty.
      std::string caption =
          labels->hasRow() ? labels->read("ContactLabel" + std::to_string(i)) : "";
      text += "\\b " + caption + "\\b0  " + value + kLineEnd;
      any = true;
    }
    if (any) text += kLineEnd;
  });
  f.step([&] {
    std::string notes = contact->read("Notes");
    if (value::isBlank(notes)) return;
    text += std::string(kNotesHeading) + "\r\n" + convertToRTF(notes) + kLineEnd + kLineEnd;
  });
  f.step([&] {
    text += kClosing;
    contact->write("BusinessNotes", text);
    result = text;
  });
  return result;
}

void saveCompanyContactRTF(int32_t companyID, int32_t contactID, const std::string* builtSummary) {
  ErrorFrame f(kFormatLocation + "saveCompanyContactRTF");
  f.step([&] {
    if (!validCompanyID(companyID)) return;
    hostdb::IDataAccess* db = hostdb::openHostDatabase(f);
    if (!db) return;
    hostdb::Recordset rs(*db, "SELECT Companies.* FROM Companies;", hostdb::kLockOptimistic);
    if (!rs.find("CompanyID", companyID)) return;
    if (contactID < 0)
      rs.write("ContactNotes", saveNoDefaultComment());
    else
      rs.write("ContactNotes", builtSummary ? *builtSummary : saveContactBusinessRTF(contactID));
  });
}

}  // namespace dossync::format
