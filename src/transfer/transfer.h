// The record transfers: one host record into one Outlook contact item, or one item into a host
// company with its default contact, field by field.
//
// The procedures are members of clsOutlookSynchronization (core/synchronization.h), as the
// host sees one class; this folder defines these of them:
//   company_with_default_contact.cpp  createNewDossieraCompanyWithDefaultContactInOutlook
//   company.cpp                       createNewDossieraCompanyInOutlook
//   contact.cpp                       createNewDossieraContactInOutlook
//   outlook_to_host.cpp               createNewOutlookCompanyWithDefaultContactInDossiera
// Each host-to-Outlook transfer answers the saved item's EntryID, "-1" when nothing was saved;
// the reverse transfer answers the host company's number, 0 when nothing was done.
// transfer_support.h holds what they share (opening the paired item, the value conversions).
//
// Threads: the apartment's one thread, like the class.
#pragma once

#include "core/synchronization.h"
