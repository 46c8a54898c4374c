// The copy of one CardDAV address book kept in a profile's contacts/ folder, and the way its
// writes reach the server (a vdir::CardRemote for the folder's writer).
//
// The copy: one file per card of the collection, named after the last segment of its href when
// that makes a plain card file name (abc.vcf, abc -> abc.vcf), else after a hash of the href;
// beside the folder, carddav-state holds the sync token and each file's href and etag (rewritten
// whole after a refresh, appended to after writes, so a killed run leaves it usable).
//
// refresh(): with a sync token and a server that offers sync-collection, asks only for what
// changed since; otherwise (no token, a token the server forgot, no sync-collection) lists the
// collection's etags. Cards whose etag differs from the copy's are downloaded (multiget, in
// batches), cards gone from the server are removed from the copy. Nothing changed: one request,
// no download.
//
// Writes (upload, on the folder writer's thread): a card that says what the server's copy
// already says (vdir::sameCardMeaning) is not sent. An update is sent with If-Match of the etag
// the copy has; a new card with If-None-Match: *, under <UID>.vcf. On 412 the server's card is
// fetched, this item's changes (against what it was read from) are applied to it
// (vdir::mergeCardChanges; a property the server changed too keeps the server's value when
// `conflict` is CardConflict::Theirs), and it is sent again, up to 5 times (then kEditConflict);
// a merge that leaves the server's card as it is sends nothing. An update
// of a card deleted on the server meanwhile makes it again. The copy then holds what the server
// took. Deletes use If-Match; a card changed on the server since is not deleted (kEditConflict).
//
// Only members inside the collection (DavClient::contains: its origin and path) are copied,
// written or deleted; the server's other hrefs are skipped, each named through `warn`, so that
// neither the account's credentials nor a card go anywhere else.
//
// Thread use: logon/refresh/remove on the apartment's thread, upload on the writer's; each has
// a client of its own, and the state is guarded by a mutex.
#pragma once

#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "backends/carddav/dav_client.h"
#include "backends/vcard/card_merge.h"
#include "backends/vcard/card_remote.h"

namespace dossync::carddav {

class AddressBookCopy : public vdir::CardRemote {
 public:
  // `profileDir` holds contacts/ (made by the caller) and carddav-state.
  AddressBookCopy(std::string url, DavOptions options, std::filesystem::path profileDir,
                  std::function<void(const std::string&)> warn = {},
                  vdir::CardConflict conflict = vdir::CardConflict::Mine);

  // Checks the logon (kLogonFailed names the server and the user) and that the URL is an
  // address book, then refreshes. A new password replaces the one given before.
  void logon(const std::string& password);
  void refresh();

  std::vector<Outcome> upload(const std::vector<Upload>& batch) override;
  void remove(const std::string& file) override;
  // Into the account's calendar (found once, DavClient::findEventCalendar); nothing when the
  // account has none.
  void publishEvent(const std::string& uid, const std::string& ics) override;

  // What the last refresh did, for progress lines and tests.
  struct RefreshCounts {
    size_t downloaded = 0, removed = 0, requests = 0;
    bool incremental = false;
  };
  RefreshCounts lastRefresh() const;

 private:
  struct Known {
    std::string href;
    std::string etag;
  };
  std::string fileFor(const std::string& href) const;
  std::string hrefFor(const std::string& file) const;
  // Whether the href is inside the collection; warns of one that is not.
  bool followed(const std::string& href) const;
  RuntimeError outside(const std::string& href, const std::string& file) const;
  void loadState();
  void saveState();
  void appendState(const std::vector<std::string>& lines);
  void download(DavClient& client, const std::vector<DavClient::Member>& members);
  void writeCopy(const std::string& file, const std::string& text);
  void removeCopy(const std::string& file);
  // One card to the server, after a PUT that answered `first`; the text the server holds.
  std::string resolve(DavClient& client, const Upload& up, DavClient::Put put,
                      DavClient::WriteResult first, std::string* etag);

  std::string url_;
  DavOptions options_;
  std::function<void(const std::string&)> warn_;
  vdir::CardConflict conflict_;
  std::filesystem::path dir_;    // contacts/
  std::filesystem::path state_;  // carddav-state
  std::unique_ptr<DavClient> reader_, writer_;
  bool syncCollection_ = false;
  std::optional<std::string> calendar_;  // once looked for: "" when the account has none

  mutable std::mutex mutex_;
  std::string token_;
  std::map<std::string, Known> files_;  // by file name
  std::map<std::string, std::string> byHref_;
  RefreshCounts last_;
};

}  // namespace dossync::carddav
