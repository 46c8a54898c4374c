// New host records for people who exist only in Outlook: a company with its client record and
// the client's eight detail rows, and a person in Contacts linked to a company.
//
// The usual order: addNewEntry, then getCompanyIDFromClientDataID on its answer to learn the new
// CompanyID, then the caller fills the company, then addPersonnel with that CompanyID.
// Nothing is rolled back: a failure part way leaves what was already added in the database.
// All run on the apartment's thread through apartment().hostDb.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace dossync::hostdb {

// Adds a company (no name yet, in the host's own category), its ClientData row and one row in
// each of AccountingServices, ClientOptions, ClientNotes, CorpTaxInfo, LawInfo, OtherInfo,
// SoftwareInfo and WSIB_EHTInfo keyed by the new ClientDataID. Answers the ClientDataID (not the
// CompanyID); 0 when the database is closed or the client record could not be added.
int32_t addNewEntry();

// Adds a contact named `name` (split into its parts, the whole name as DisplayName), in the
// category and company given. A company that exists also lends the contact its name as
// BusinessName, with InheritCompanyInfo True; a company that does not exist is still written
// into CompanyNum. A company that had no default contact gets one (checkForDefault).
// Answers the new ContactID; -1 when the name is blank; 0 when the database is closed.
int32_t addPersonnel(const std::string& name, std::optional<int32_t> category = std::nullopt,
                     std::optional<int32_t> companyNum = std::nullopt);

struct PersonName {
  std::string namePrefix;
  std::string firstName;
  std::string middleName;
  std::string lastName;
  std::string displayName;
};

// Splits a full name at single blanks into at most four words (the fourth keeps the rest of the
// text, blanks and all). A first word that is a title (MR, MRS, MS, MISS, MLLE, MME, SIR, REV,
// DR, most also with a full stop, in any case) becomes the prefix, and the others are first,
// middle and last name from the left with the last word always the last name:
//   title + 1 word: last;  title + 2: first last;  title + 3: first middle last
//   1 word: first;  2: first last;  3: first middle last;  4: first middle (third + " " + rest)
// Words are counted by the blanks found, so an empty word between two blanks still counts.
// The display name is always the whole name as given; a blank name gives an empty record.
// Reports errors under addPersonnel's location, as the host always has.
PersonName splitPersonName(const std::string& name);

}  // namespace dossync::hostdb
