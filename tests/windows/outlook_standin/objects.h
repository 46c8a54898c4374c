// The Outlook stand-in's late-bound objects (tests only, never installed): Outlook's object
// model, as a scripting host or dossync's Outlook-by-automation client reaches it through
// IDispatch, served over any implementation of interfaces/object_model.h (the stand-in uses the
// vCard folder store). Each call hands out a new wrapper that holds the C++ object it wraps; a
// look-up that finds nothing answers Nothing (a null VT_DISPATCH). Members answer whether they
// are invoked as a method or as a property get; a RuntimeError of the store reaches the caller
// as DISP_E_EXCEPTION with its number and description.
//
// Outlook's members served: Application.GetNamespace, CreateItem, Name; NameSpace.Logon,
// GetDefaultFolder, GetItemFromID; MAPIFolder.Items, StoreID;
// Items.Count, Item (the default member), Find; every item Class, EntryID, Save; ContactItem
// its text properties, Gender, Birthday, Anniversary, Delete; MailItem Subject, Body, Recipients,
// Attachments, Send, Display; Recipients Count, Add, Item; Recipient Name, Type, Resolve;
// Attachments Count, Add, Item; Attachment DisplayName, PathName (no calendar: an appointment
// has only what every item has). Application.GuardedReads is the stand-in's own: how many
// times this process read a contact's e-mail addresses or notes (what Outlook's guard asks
// about); Application.DialogLog, what the last progress dialog stand-in was told (dialog.h).
//
// Thread use: the apartment's one thread. liveObjects counts the wrappers alive (atomic), for
// DllCanUnloadNow.
#pragma once

#include <oaidl.h>
#include <windows.h>

#include <memory>

#include "interfaces/object_model.h"

namespace dossync::standin {

// A new Application object (reference count 1) over `app`.
IDispatch* newApplicationObject(std::shared_ptr<outlook::Application> app);

long liveObjects();

}  // namespace dossync::standin
