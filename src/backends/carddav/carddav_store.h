// The CardDAV store: Outlook's object model over an address book on a CardDAV server (RFC 6352),
// for --outlook carddav:URL. It is the vCard folder store (backends/vdir) over a copy of the
// address book kept under `cacheRoot` (address_book_copy.h), so items, Find on [FileAs],
// GetItemFromID and the vCard mapping are the folder store's; what differs:
//   - Logon(profile, password): the profile is the account's user name, the password its
//     password. The logon is checked with the server at once: a refused one throws
//     kLogonFailed naming the server and the user; a URL that is not an address book
//     kServerRejected; a server out of reach kServerUnreachable. Then the copy is brought up to
//     date (only what changed is downloaded). A session used without Logon logs on without a
//     user name.
//   - Saves go to the server behind the run, as the folder store writes its files, and are all
//     done (or their failure reported) when the outermost procedure returns.
//   - StoreID: made from the collection's URL (the same on every machine); EntryIDs are the
//     folder store's (from the card's UID), found through the copy's index.
//   - Mail and appointments are kept in the profile's folder as the folder store keeps them.
// Thread use: the apartment's one thread.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "interfaces/object_model.h"

namespace dossync::carddav {

struct CardDavSettings {
  std::string url;        // the address book collection, http:// or https://
  std::string cacheRoot;  // copies live in <cacheRoot>/<host_port_path>/<user>/
  bool insecure = false;  // do not verify the server's TLS certificate
  long timeoutSeconds = 30;
  int maxInFlight = 4;
  // A property changed both by a save and, since the item was read, on the server keeps the
  // server's value (two-way runs whose conflicts go to the address book); else the save's.
  bool serverWinsConflicts = false;
};

std::shared_ptr<outlook::Application> makeCardDavApplication(
    const CardDavSettings& settings, std::function<void(const std::string&)> warn = {});

// The folder the copies of that address book are kept in (for messages and tests).
std::string cardDavCopyRoot(const CardDavSettings& settings);

}  // namespace dossync::carddav
