// A WebDAV/CardDAV client for one address book collection (RFC 4918, RFC 6352, RFC 6578), over
// libcurl with the XML read by pugixml.
//
// Connection: HTTP or HTTPS; the user name and password are offered to basic and digest
// authentication alike (libcurl picks what the server asks for), and when either is empty
// libcurl looks in the user's ~/.netrc for the server's host; TLS certificates are verified
// unless `insecure`. Connections are kept alive between requests. Every request has a time
// limit (`timeoutSeconds` for the whole exchange, a tenth of it, at least 5 s, to connect).
// 429 and 503 answers are retried up to `maxRetries` times after the wait their Retry-After
// asks for (seconds or an HTTP date; at most `maxRetryWaitSeconds`), else 1, 2, 4... seconds.
//
// Hrefs are what the server lists (usually absolute paths such as /alice/book/abc.vcf);
// urlOf turns one into a URL on the collection's server. The credentials never leave the
// collection's origin: a request to a URL on another scheme, host or port is not sent
// (kServerRejected naming it); `contains` tells the hrefs inside the collection itself. Etags are
// kept as the server sent them, quotes included, and sent back the same way.
//
// Failures throw RuntimeError, its description naming the URL and what the server said:
//   kLogonFailed         401, or 403 to probe (the first request a client makes)
//   kServerUnreachable   no connection, a timeout, or 429/503 still after the retries
//   kServerRejected      any other answer not listed as an outcome below (the status and the
//                        start of the server's text are in the description)
// Outcomes the caller acts on are answered, not thrown: 404 and 412 of get/put/remove, and a
// sync token the server no longer accepts (tokenInvalid).
//
// Thread use: one thread at a time per client; make one client per thread (they share nothing).
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "base/error.h"

namespace dossync::carddav {

struct DavOptions {
  std::string user;
  std::string password;
  bool insecure = false;  // do not verify the server's TLS certificate
  long timeoutSeconds = 30;
  int maxInFlight = 4;  // putMany: most requests at once (it finds how many help)
  int maxRetries = 4;
  long maxRetryWaitSeconds = 60;
};

class DavClient {
 public:
  // `collectionUrl`: the address book, http:// or https:// (a missing final '/' is added).
  // Throws kInvalidProcedureCall for anything else.
  DavClient(std::string collectionUrl, DavOptions options);
  ~DavClient();
  DavClient(const DavClient&) = delete;
  DavClient& operator=(const DavClient&) = delete;

  const std::string& collectionUrl() const;
  const DavOptions& options() const;
  // The URL of an href: an absolute URL stays as it is, a path is taken on the collection's
  // scheme, host and port, anything else is relative to the collection.
  std::string urlOf(const std::string& href) const;
  // The collection's own path (as its hrefs start), e.g. /alice/book/.
  std::string collectionPath() const;
  // Whether an href names a resource inside the collection: on its origin and under its path
  // (unescaped, without "." or ".." segments), not the collection itself.
  bool contains(const std::string& href) const;
  // Whether a URL is on the collection's scheme, host and port (the default port counted).
  bool sameOrigin(const std::string& url) const;

  // PROPFIND depth 0 on the collection: whether it is an address book, whether it offers
  // sync-collection (supported-report-set), its sync token and display name. The logon check.
  struct CollectionInfo {
    bool isAddressBook = false;
    bool syncCollection = false;
    std::string syncToken;
    std::string displayName;
  };
  CollectionInfo probe();

  struct Member {
    std::string href;
    std::string etag;
  };
  // PROPFIND depth 1 (getetag, resourcetype): every member resource, without the collection
  // itself and without sub-collections.
  std::vector<Member> listMembers();

  // REPORT sync-collection (sync-level 1) from `token` ("" for the first time): the members
  // added or changed since, those removed (404 in the answer), and the new token. When the
  // server refuses the token (valid-sync-token precondition, or 403/409/410 to the report),
  // answers tokenInvalid and nothing else; a refusal of the first sync ("") is thrown.
  struct SyncResult {
    std::string token;
    std::vector<Member> changed;
    std::vector<std::string> removed;
    bool tokenInvalid = false;
  };
  SyncResult syncCollection(const std::string& token);

  struct Card {
    std::string href;
    std::string etag;
    std::string data;  // the vCard text; empty when status is 404
    long status = 200;
  };
  // REPORT addressbook-multiget for these hrefs, in batches of `batch`; an href the server does
  // not answer for, or answers 404, comes back with status 404. In the order asked.
  std::vector<Card> multiget(const std::vector<std::string>& hrefs, size_t batch = 100);
  Card get(const std::string& href);  // status 404 when there is none

  // PUT text/vcard. `ifMatch`: the etag the card must still have (update); else, with
  // `create`, If-None-Match: * (a new card). Answers the status (2xx, 404 or 412) and the
  // etag the server gave (empty when it gave none, or when the stored card differs from the
  // one sent, as a weak etag says).
  struct Put {
    std::string href;
    std::string body;
    std::string ifMatch;
    bool create = false;
    std::string contentType = "text/vcard";  // text/calendar for an event
  };
  struct WriteResult {
    long status = 0;
    std::string etag;
    std::optional<RuntimeError> error;  // putMany only: what put would have thrown
  };
  WriteResult put(const Put& request);
  // Up to maxInFlight at once (one connection each, kept alive): the first batches are sent one
  // at a time, then two, four... at once while that makes the time per request drop by a sixth
  // or more (a server that serialises writes is slower with more). Results in the order asked.
  // A request that fails as listed above has what put would have thrown in `error` (and the
  // status the server answered, 0 for none); the others go on.
  std::vector<WriteResult> putMany(const std::vector<Put>& requests);
  // The account's calendar for events (CalDAV, RFC 4791), found from the collection: its
  // current-user-principal, the principal's calendar-home-set, and there the first calendar
  // (by href) whose supported components include VEVENT (or are not stated). Answers its URL,
  // or "" when the account has none (a server without CalDAV included).
  std::string findEventCalendar();

  // DELETE, with If-Match when `ifMatch` is set. Answers 2xx, 404 or 412.
  WriteResult remove(const std::string& href, const std::string& ifMatch = "");

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace dossync::carddav
