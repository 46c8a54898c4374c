// The local vCard folder store: Outlook's object model over a directory of profiles, each a
// vdir of vCard 3.0 files. This is the default "Outlook" of dossync on Linux.
//
//   ROOT/default-profile          optional; its first line names the default profile
//   ROOT/<profile>/store-id       the profile's StoreID, made once (32 hex digits)
//   ROOT/<profile>/contacts/      one <UID>.vcf per contact or contact group
//   ROOT/<profile>/calendar/      one .ics per appointment sent (AppointmentItem::Send)
//   ROOT/<profile>/account.json   the SMTP account mail goes out through (mail_account.h)
//   ROOT/<profile>/drafts/, outbox/  displayed mail, and mail that could not be delivered
// or, for a plain vdir (isPlainVdir below), ROOT itself is the one contacts folder.
//
// Session: Application::GetNamespace("MAPI") answers the one session. Logon(profile) with an
// empty or omitted profile takes the default profile (named in ROOT/default-profile, else
// "default"); a profile that does not exist is created; password, showDialog and newSession
// are ignored. A session used without Logon works on the default profile.
//
// Items: GetDefaultFolder(10) is the contacts folder (class 40 contacts, class 69 contact
// groups: cards with KIND:group or X-ADDRESSBOOKSERVER-KIND:group); GetDefaultFolder(9) the
// calendar (its Items list nothing yet). CreateItem(2) makes an unsaved contact of the
// session's profile, CreateItem(0) a mail item (vdir_mail.h), CreateItem(1) an appointment
// (vdir_calendar.h); other item types throw. Items::Find understands only `[FileAs] = "NAME"` (NAME
// is everything between the first and the last double quote, taken literally) and compares as
// Outlook does, without regard to case (value::equalsIgnoreCase: É = é, but é != e).
// Save writes the whole file atomically (temporary file in the same folder, then rename; those a
// killed run left are removed when the folder is next opened, once an hour old). An empty FileAs
// is filled on Save as Outlook does: "LastName, FirstName" (or the one set), else CompanyName,
// else FullName. A contact without FullName is written with an FN made for address books
// (contact_card.h). EntryID: see entry_id.h. StoreID: ROOT/<profile>/store-id.
// GetItemFromID answers Nothing for another store's id.
//
// A malformed .vcf is reported through `warn` (default: a line on stderr) with its path and
// skipped; it never stops a walk or a look-up.
// Thread use: the apartment's one thread.
#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "backends/vcard/card_remote.h"
#include "backends/vcard/vdir_item.h"
#include "interfaces/object_model.h"

namespace dossync::vdir {

// Makes the store the copy of a server's address books (backends/carddav): `logon` is called
// with the profile's name, its folder and the password by every Logon, and by the first use of
// a profile without one. It checks them with the server (throwing refuses the logon), brings the
// folder's contacts/ up to date, and answers the remote the profile's writes go to (only the
// answer of a profile's first call is used).
using MirrorLogon = std::function<std::shared_ptr<CardRemote>(
    const std::string& profile, const std::filesystem::path& profileDir,
    const std::string& password)>;

// `plainState`: when `profilesRoot` turns out to be a plain vdir (isPlainVdir), the folder that
// takes what the store keeps of its own; empty: the root is always a profiles root.
std::shared_ptr<outlook::Application> makeVdirApplication(
    const std::string& profilesRoot, std::function<void(const std::string&)> warn = {},
    MirrorLogon mirror = {}, const std::filesystem::path& plainState = {});

// A plain vdir: a folder that itself holds the cards, as khard and vdirsyncer keep them. It is
// used as it is, as the store's one profile (any profile name logs on to it): its cards are the
// contacts folder, and what the store keeps of its own (store-id, calendar/, account.json,
// drafts/, outbox/) goes to a state folder outside it, so nothing is added among the cards.
// `root` is one when it holds a *.vcf file (not hidden), or when `stateDir` exists already (a
// vdir emptied since); never with an empty `stateDir`.
bool isPlainVdir(const std::filesystem::path& root, const std::filesystem::path& stateDir);
// A name for that folder's state and reports: its last component and 8 hex digits of a hash of
// its absolute path (two address books both called "contacts" stay apart).
std::string plainVdirName(const std::filesystem::path& root);

// The profile a Logon with that name works on ("" the default); throws RuntimeError 5 for a
// name that is no folder name. Its folder is ROOT/<answer>.
std::string profileName(const std::filesystem::path& profilesRoot, std::string name);

// Deletes the item with that entry id from the session's profile (a session of this store).
// Answers false when there is no such item.
bool deleteVdirItem(outlook::NameSpace& session, const std::string& entryId);

}  // namespace dossync::vdir
