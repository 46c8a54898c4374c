// Address blocks and the rich-text summaries the host keeps beside its records: a contact's own
// summary in Contacts.BusinessNotes, and the summary of a company's default contact (or the
// "No Default Contact Selected." note) in Companies.ContactNotes.
//
// The summaries are RTF 1 documents in the exact layout of the host's own editor: the frame
//   {\rtf1\ansi\ansicpg1252\deff0\deflang4105{\fonttbl{\f0\fswiss\fcharset0 Arial;}}
//   \viewkind4\uc1\pard\f0\fs16            (the two run together, no line end between them)
// then one line per non-blank column: template + value + "\par" + CR LF, groups of lines
// separated by a blank line ("\par" + CR LF), and a closing "}". Values are stored as they are
// in the database: "{", "}" and "\" are NOT escaped, since the host reads them back that way.
//
// Address blocks (createAddress) are built with CR LF line ends and then passed through
// convertToRTF, so every line but the last ends in "\par " + CR LF:
//   name line    the business name; when it is blank and includeName is set, the display name.
//                Only one of the two is ever written, and no line at all when neither is there.
//   street       when not blank.
//   locality     city, province, postal code, each when not blank. With separators set the
//                province is preceded by ", " and the postal code by two blanks, but only when
//                something already stands on the line ("Ottawa, ON  K1A 0B1", "ON  K1A 0B1",
//                "K1A 0B1"); without separators the parts run together unseparated.
//   country      on a line of its own, unless it is a domestic word (CANADA, CA, CAN, CDA in
//                any case).
// An address whose street, city, province, postal code and country are all blank is "" (the
// summary then has no Address group). The summaries always ask for separators and the name.
//
// Error locations are those of the host's formatting library: "kvAddress.dll-clsFormatAddresses-"
// followed by the procedure name. The procedures that read the host database answer their
// initial result ("", false) when it is closed. Runs on the apartment's thread through
// apartment().hostDb.
#pragma once

#include <cstdint>
#include <string>

namespace dossync::format {

// The parts of an address block, in the order createAddress takes them.
struct AddressParts {
  std::string businessName;
  std::string displayName;
  std::string street;
  std::string city;
  std::string province;
  std::string postalCode;
  std::string country;
};

// Builds the contact's summary and stores it in its BusinessNotes. Answers the summary, or ""
// when the contact does not exist or the database is closed. The Custom1..5 lines take their
// captions from the one row of CustomAddressFields (empty captions when it has no row).
std::string saveContactBusinessRTF(int32_t contactID);

// Stores in the company's ContactNotes the summary of contactID (which is also rebuilt in the
// contact's BusinessNotes), or the no-default note when contactID is negative. A caller that has
// just built the contact's summary, with nothing it reads written since, passes it as
// `builtSummary`: the company takes it and the contact's BusinessNotes, which already hold it,
// are left as they are.
void saveCompanyContactRTF(int32_t companyID, int32_t contactID,
                           const std::string* builtSummary = nullptr);

// The summary of a company without a default contact.
std::string saveNoDefaultComment();

// The contact's business address block, in RTF line form: the company's address when the
// contact inherits it (InheritCompanyInfo True, a numeric CompanyNum naming a company), else
// the contact's own. The business and display names are always the contact's. "" when the
// contact does not exist. separators and includeName are only read, never changed.
std::string createBusinessContactAddress(int32_t contactID, bool separators);
std::string createAddress(const AddressParts& parts, bool includeName, bool separators);

// Every CR LF becomes "\par " + CR LF; nothing else changes.
std::string convertToRTF(const std::string& text);

// This module's own existence tests (keys below 1 never exist), reporting under its own
// locations; they behave as hostdb::validContactID and hostdb::validCompanyID.
bool validContactID(int32_t contactID);
bool validCompanyID(int32_t companyID);

}  // namespace dossync::format
