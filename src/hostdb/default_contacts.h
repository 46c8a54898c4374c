// The default contact of a company: at most one of the company's contacts has DefaultContact
// True, and the company keeps copies of that contact's name, phone, fax and e-mail
// (DefaultContactName, DefaultContactPhoneNumber, DefaultContactFaxNumber, DefaultContactEmail;
// "" when it has none) and its summary in ContactNotes. Schedule columns defined as contact
// look-ups show values of the default contact of their client.
//
// Every procedure does nothing (answers its initial result) when the host database is closed.
// The walks call the message pump once per pass. All run on the apartment's thread.
#pragma once

#include <cstdint>
#include <string>

namespace dossync::hostdb {

// Answers the ContactID of the company's default contact, or -1 when it has none. A company
// without contacts gets its default columns cleared and the no-default summary. With setDefault,
// a company whose contacts are all non-default gets its first contact as default; the answer
// is still -1 then.
int32_t checkForDefault(int32_t companyID, bool setDefault);

// Makes the contact its company's default: the others of the company are set non-default, every
// touched contact's summary is rebuilt, the company's default columns and ContactNotes are
// refreshed and the schedule look-up columns of its client are filled from the contact. A
// contact without a numeric CompanyNum of an existing company only gets its own flag and summary.
void setContactAsDefault(int32_t contactID);

// Clears the company's default columns and gives it the no-default summary. No contact changes.
void setNoContactAsDefault(int32_t companyID);

// Copies the default contact's DisplayName, BusinessPhone_Main, BusinessPhone_Fax and
// BusinessEmail into the company's default columns, or "" into all four when there is none.
void updateDefaultContactInfo(int32_t companyID);

// True when fieldName is the upper-case name of a Contacts column that a schedule column may
// show. The name is not case-folded: the host stores these names in upper case, and a
// mixed-case name is not a look-up. MiddleName is not among them.
bool isContactLookupField(const std::string& fieldName);

// Writes the contact's values into the schedule rows of its client, in each custom column
// that CustomFields defines as a contact look-up (type 3; a blank type is none). Dates are
// written as "Mar 5, 1970". A contact that is not found blanks those columns. Shows the
// hourglass pointer while it works and restores the default one even when an error ends it.
void changeDefaultContactChangeLookupFieldValue(int32_t contactID);

}  // namespace dossync::hostdb
