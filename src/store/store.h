// The synchronisation database: its file, its tables, and the pairings it keeps.
//
// The procedures are members of clsOutlookSynchronization (core/synchronization.h), as the
// host sees one class; this folder defines these of them:
//   sync_database.cpp  createOutlookSyncDatabase, createTables, verifySyncDatabase,
//                      doesTableExist, openOutlookSyncDatabase: the database is made from an
//                      empty template when missing, checked for its three tables, and opened
//                      beside the host's.
//   id_mapping.cpp     getCompanyOutlookID, getContactOutlookID, getOutlookCompanyID,
//                      getOutlookContactID and the four save...ID procedures: the OutlookSync
//                      rows of the current scheme and data file, read and written through the
//                      statement mappingStatement() answers; contactsFolder().
//
// Threads: the apartment's one thread, like the class.
#pragma once

#include "core/synchronization.h"
