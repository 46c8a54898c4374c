#include "backends/carddav/dav_client.h"

#include <curl/curl.h>
#include <pugixml.hpp>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <cstring>
#include <ctime>
#include <map>
#include <mutex>
#include <thread>
#include <unordered_map>

namespace dossync::carddav {
namespace {

constexpr const char* kSource = "carddav";
constexpr const char* kDav = "DAV:";
constexpr const char* kCardDav = "urn:ietf:params:xml:ns:carddav";
constexpr const char* kCalDav = "urn:ietf:params:xml:ns:caldav";
using Clock = std::chrono::steady_clock;

void initCurl() {
  static std::once_flag once;
  std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
}

std::string lower(std::string text) {
  for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return text;
}

std::string trim(const std::string& text) {
  size_t b = text.find_first_not_of(" \t\r\n");
  if (b == std::string::npos) return "";
  size_t e = text.find_last_not_of(" \t\r\n");
  return text.substr(b, e - b + 1);
}

std::string xmlEscape(const std::string& text) {
  std::string out;
  for (char c : text) {
    switch (c) {
      case '&':
        out += "&amp;";
        break;
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      case '"':
        out += "&quot;";
        break;
      default:
        out += c;
    }
  }
  return out;
}

std::string percentDecode(const std::string& text) {
  std::string out;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '%' && i + 2 < text.size() &&
        std::isxdigit(static_cast<unsigned char>(text[i + 1])) &&
        std::isxdigit(static_cast<unsigned char>(text[i + 2]))) {
      out += static_cast<char>(std::stoi(text.substr(i + 1, 2), nullptr, 16));
      i += 2;
    } else {
      out += text[i];
    }
  }
  return out;
}

// Escapes what may not stand in a URL as it is (spaces, quotes, controls, non-ASCII bytes);
// escapes already there are kept.
std::string urlSafe(const std::string& text) {
  static const char* hex = "0123456789ABCDEF";
  std::string out;
  for (unsigned char c : text) {
    if (c <= 0x20 || c >= 0x7f || std::strchr("\"<>\\^`{|}", c)) {
      out += '%';
      out += hex[c >> 4];
      out += hex[c & 15];
    } else {
      out += static_cast<char>(c);
    }
  }
  return out;
}

// Where the path of an absolute URL starts (npos for none); 0 when `url` is not absolute.
size_t pathStart(const std::string& url) {
  size_t scheme = url.find("://");
  if (scheme == std::string::npos) return 0;
  return url.find('/', scheme + 3);
}

// An href as compared with others: its path, unescaped, without a final '/'.
std::string hrefKey(const std::string& href) {
  std::string path = href;
  if (href.find("://") != std::string::npos) {
    size_t p = pathStart(href);
    path = p == std::string::npos ? "/" : href.substr(p);
  }
  path = percentDecode(path);
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  return path;
}

// The parts of a URL that say where a request goes, as libcurl reads them: scheme and host in
// lower case, the port (the scheme's default when none is written), the path as written.
struct UrlParts {
  std::string scheme, host, port, path;
  bool ok = false;
  bool sameOrigin(const UrlParts& other) const {
    return ok && other.ok && scheme == other.scheme && host == other.host && port == other.port;
  }
};

UrlParts partsOf(const std::string& url) {
  UrlParts p;
  CURLU* u = curl_url();
  if (!u) return p;
  if (curl_url_set(u, CURLUPART_URL, url.c_str(), 0) == CURLUE_OK) {
    auto get = [u](CURLUPart part, unsigned flags) {
      char* v = nullptr;
      std::string out;
      if (curl_url_get(u, part, &v, flags) == CURLUE_OK && v) out = v;
      curl_free(v);
      return out;
    };
    p.scheme = lower(get(CURLUPART_SCHEME, 0));
    p.host = lower(get(CURLUPART_HOST, 0));
    p.port = get(CURLUPART_PORT, CURLU_DEFAULT_PORT);
    p.path = get(CURLUPART_PATH, 0);
    p.ok = !p.scheme.empty() && !p.host.empty();
  }
  curl_url_cleanup(u);
  return p;
}

// The URL with a user name in it (and no password).
std::string withUser(const std::string& url, const std::string& user) {
  CURLU* u = curl_url();
  if (!u) return url;
  std::string out = url;
  char* v = nullptr;
  if (curl_url_set(u, CURLUPART_URL, url.c_str(), 0) == CURLUE_OK &&
      curl_url_set(u, CURLUPART_USER, user.c_str(), CURLU_URLENCODE) == CURLUE_OK &&
      curl_url_get(u, CURLUPART_URL, &v, 0) == CURLUE_OK && v)
    out = v;
  curl_free(v);
  curl_url_cleanup(u);
  return out;
}

const char* standardReason(long status) {
  switch (status) {
    case 200:
      return "OK";
    case 201:
      return "Created";
    case 204:
      return "No Content";
    case 207:
      return "Multi-Status";
    case 400:
      return "Bad Request";
    case 401:
      return "Unauthorized";
    case 403:
      return "Forbidden";
    case 404:
      return "Not Found";
    case 405:
      return "Method Not Allowed";
    case 409:
      return "Conflict";
    case 412:
      return "Precondition Failed";
    case 413:
      return "Payload Too Large";
    case 415:
      return "Unsupported Media Type";
    case 429:
      return "Too Many Requests";
    case 500:
      return "Internal Server Error";
    case 502:
      return "Bad Gateway";
    case 503:
      return "Service Unavailable";
    case 507:
      return "Insufficient Storage";
    default:
      return "";
  }
}

// ---- XML with namespaces: pugixml keeps prefixes, so names are resolved here.

std::string namespaceOf(pugi::xml_node node, const std::string& prefix) {
  const std::string attr = prefix.empty() ? "xmlns" : "xmlns:" + prefix;
  for (pugi::xml_node n = node; n; n = n.parent()) {
    if (n.type() != pugi::node_element) continue;
    if (pugi::xml_attribute a = n.attribute(attr.c_str())) return a.value();
  }
  return "";
}

bool is(pugi::xml_node node, const char* ns, const char* local) {
  if (node.type() != pugi::node_element) return false;
  const char* name = node.name();
  const char* colon = std::strchr(name, ':');
  const char* own = colon ? colon + 1 : name;
  if (std::strcmp(own, local) != 0) return false;
  return namespaceOf(node, colon ? std::string(name, colon) : "") == ns;
}

pugi::xml_node child(pugi::xml_node node, const char* ns, const char* local) {
  for (pugi::xml_node c : node.children()) {
    if (is(c, ns, local)) return c;
  }
  return {};
}

std::vector<pugi::xml_node> children(pugi::xml_node node, const char* ns, const char* local) {
  std::vector<pugi::xml_node> out;
  for (pugi::xml_node c : node.children()) {
    if (is(c, ns, local)) out.push_back(c);
  }
  return out;
}

bool hasDescendant(pugi::xml_node node, const char* ns, const char* local) {
  for (pugi::xml_node c : node.children()) {
    if (is(c, ns, local) || hasDescendant(c, ns, local)) return true;
  }
  return false;
}

// All the text of an element (its text and CDATA children).
std::string textOf(pugi::xml_node node) {
  std::string out;
  for (pugi::xml_node c : node.children()) {
    if (c.type() == pugi::node_pcdata || c.type() == pugi::node_cdata) out += c.value();
  }
  return out;
}

// The status code of a DAV:status element ("HTTP/1.1 404 Not Found"); 0 when there is none.
long statusOf(pugi::xml_node node) {
  std::string text = trim(textOf(child(node, kDav, "status")));
  size_t space = text.find(' ');
  if (space == std::string::npos) return 0;
  return std::strtol(text.c_str() + space + 1, nullptr, 10);
}

// The DAV:prop of a response's propstat answered 200 (an empty node when none was).
pugi::xml_node okProps(pugi::xml_node response) {
  for (pugi::xml_node ps : children(response, kDav, "propstat")) {
    long s = statusOf(ps);
    if (s >= 200 && s < 300) return child(ps, kDav, "prop");
  }
  return {};
}

// ---- One HTTP exchange. It does not move while libcurl works on it.

struct Request {
  std::string method;
  std::string url;
  std::string body;
  std::vector<std::string> headers;
  bool follow = false;  // follow redirects (reads only)
};

struct Exchange {
  Request request;
  curl_slist* headerList = nullptr;
  CURLcode code = CURLE_OK;
  char errorText[CURL_ERROR_SIZE] = {};
  long osErrno = 0;
  long status = 0;
  std::string reason;                          // from the status line, e.g. "Not Found"
  std::map<std::string, std::string> headers;  // names in lower case; the last answer's only
  std::string body;

  explicit Exchange(Request r) : request(std::move(r)) {}
  ~Exchange() { curl_slist_free_all(headerList); }
  Exchange(const Exchange&) = delete;
  Exchange& operator=(const Exchange&) = delete;

  std::string header(const std::string& name) const {
    auto it = headers.find(name);
    return it == headers.end() ? "" : trim(it->second);
  }
  // "404 Not Found"
  std::string statusText() const {
    std::string r = reason.empty() ? standardReason(status) : reason;
    return std::to_string(status) + (r.empty() ? "" : " " + r);
  }
  bool busy() const { return code == CURLE_OK && (status == 429 || status == 503); }
};

size_t onBody(char* data, size_t size, size_t count, void* user) {
  static_cast<Exchange*>(user)->body.append(data, size * count);
  return size * count;
}

size_t onHeader(char* data, size_t size, size_t count, void* user) {
  auto* x = static_cast<Exchange*>(user);
  std::string line(data, size * count);
  if (line.rfind("HTTP/", 0) == 0) {  // a new answer (after a challenge or a redirect)
    x->headers.clear();
    x->reason.clear();
    size_t code = line.find(' ');
    size_t reason = code == std::string::npos ? code : line.find(' ', code + 1);
    if (reason != std::string::npos) x->reason = trim(line.substr(reason + 1));
    return size * count;
  }
  size_t colon = line.find(':');
  if (colon != std::string::npos) {
    x->headers[lower(trim(line.substr(0, colon)))] = trim(line.substr(colon + 1));
  }
  return size * count;
}

// The start of what the server said in a body: the names in a DAV error document, else the
// text without markup, on one line.
std::string saidIn(const std::string& body) {
  std::string text;
  pugi::xml_document doc;
  if (!body.empty() && body.find('<') != std::string::npos && doc.load_string(body.c_str())) {
    pugi::xml_node root = doc.document_element();
    if (is(root, kDav, "error")) {
      for (pugi::xml_node c : root.children()) {
        if (c.type() != pugi::node_element) continue;
        const char* name = c.name();
        const char* colon = std::strchr(name, ':');
        text += (text.empty() ? "" : ", ") + std::string(colon ? colon + 1 : name);
        std::string inner = trim(c.text().get());
        if (!inner.empty()) text += " " + inner;
      }
      if (!text.empty()) return text;
    }
  }
  bool inTag = false, space = false;
  for (char c : body) {
    if (c == '<') inTag = true;
    if (!inTag) {
      if (std::isspace(static_cast<unsigned char>(c))) {
        space = !text.empty();
      } else {
        if (space) text += ' ';
        space = false;
        text += c;
      }
    }
    if (c == '>') inTag = false;
    if (text.size() > 200) return text.substr(0, 200) + "...";
  }
  return text;
}

}  // namespace

// ---- The client.

struct DavClient::Impl {
  std::string url;     // ends with '/'
  std::string origin;  // scheme://host[:port]
  UrlParts where;      // the collection's URL, taken apart
  DavOptions options;
  CURL* easy = nullptr;
  CURLM* multi = nullptr;
  std::vector<CURL*> pool;  // putMany's handles, kept for their connections

  // How many requests putMany has in flight. A server that gains nothing from parallel writes
  // (one that serialises them, such as Radicale) answers each one later the more are waiting,
  // and a far one gains much: so the width starts at 1 and doubles, up to maxInFlight, while
  // a batch's time per request drops by a sixth or more; else the better width stays.
  int width = 1;
  bool widthSettled = false;
  double lastPerRequest = 0;  // seconds per request of the last batch measured

  void learnWidth(size_t requests, Clock::duration took) {
    if (widthSettled || requests < kMeasuredBatch) return;
    double perRequest = std::chrono::duration<double>(took).count() / requests;
    if (lastPerRequest > 0 && perRequest > lastPerRequest * 5 / 6) {
      width = std::max(1, width / 2);
      widthSettled = true;
    } else if (width >= options.maxInFlight) {
      widthSettled = true;
    } else {
      width = std::min(width * 2, options.maxInFlight);
    }
    lastPerRequest = perRequest;
  }
  static constexpr size_t kMeasuredBatch = 8;  // fewer requests say too little of the server

  ~Impl() {
    for (CURL* h : pool) {
      if (multi) curl_multi_remove_handle(multi, h);
      curl_easy_cleanup(h);
    }
    if (multi) curl_multi_cleanup(multi);
    if (easy) curl_easy_cleanup(easy);
  }

  CURL* newHandle() {
    CURL* h = curl_easy_init();
    if (!h) throw RuntimeError(kOutOfMemory, "Cannot start an HTTP session", kSource);
    return h;
  }

  // Sets everything a request needs. The handle is not reset between requests: its
  // connections and the authentication it settled on stay.
  void prepare(CURL* h, Exchange& x) {
    const Request& r = x.request;
    x.headerList = nullptr;
    for (const std::string& line : r.headers) {
      curl_slist* grown = curl_slist_append(x.headerList, line.c_str());
      if (!grown) throw RuntimeError(kOutOfMemory, "Out of memory", kSource);
      x.headerList = grown;
    }
    // Without a password the user's ~/.netrc is asked (libcurl's own reading of it); libcurl
    // looks a user's password up there only when the user is named in the URL.
    const bool netrc = options.password.empty();
    curl_easy_setopt(
        h, CURLOPT_URL,
        (netrc && !options.user.empty() ? withUser(r.url, options.user) : r.url).c_str());
    if (r.method == "GET") {
      curl_easy_setopt(h, CURLOPT_HTTPGET, 1L);
      curl_easy_setopt(h, CURLOPT_CUSTOMREQUEST, nullptr);
    } else if (r.body.empty() && r.method != "PUT") {
      curl_easy_setopt(h, CURLOPT_HTTPGET, 1L);
      curl_easy_setopt(h, CURLOPT_CUSTOMREQUEST, r.method.c_str());
    } else {
      curl_easy_setopt(h, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(r.body.size()));
      curl_easy_setopt(h, CURLOPT_POSTFIELDS, r.body.c_str());
      curl_easy_setopt(h, CURLOPT_CUSTOMREQUEST, r.method.c_str());
      curl_easy_setopt(h, CURLOPT_POSTREDIR, static_cast<long>(CURL_REDIR_POST_ALL));
    }
    curl_easy_setopt(h, CURLOPT_HTTPHEADER, x.headerList);
    curl_easy_setopt(h, CURLOPT_FOLLOWLOCATION, r.follow ? 1L : 0L);
    curl_easy_setopt(h, CURLOPT_MAXREDIRS, 5L);
    curl_easy_setopt(h, CURLOPT_UNRESTRICTED_AUTH, 0L);
    curl_easy_setopt(h, CURLOPT_USERNAME, netrc ? nullptr : options.user.c_str());
    curl_easy_setopt(h, CURLOPT_PASSWORD, netrc ? nullptr : options.password.c_str());
    curl_easy_setopt(h, CURLOPT_NETRC, static_cast<long>(CURL_NETRC_OPTIONAL));
    curl_easy_setopt(h, CURLOPT_HTTPAUTH, static_cast<long>(CURLAUTH_BASIC | CURLAUTH_DIGEST));
    curl_easy_setopt(h, CURLOPT_SSL_VERIFYPEER, options.insecure ? 0L : 1L);
    curl_easy_setopt(h, CURLOPT_SSL_VERIFYHOST, options.insecure ? 0L : 2L);
    curl_easy_setopt(h, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(h, CURLOPT_TIMEOUT, options.timeoutSeconds);
    curl_easy_setopt(h, CURLOPT_CONNECTTIMEOUT, std::max(5L, options.timeoutSeconds / 10));
    curl_easy_setopt(h, CURLOPT_ACCEPT_ENCODING, "");
    curl_easy_setopt(h, CURLOPT_USERAGENT, "dossync");
    curl_easy_setopt(h, CURLOPT_WRITEFUNCTION, onBody);
    curl_easy_setopt(h, CURLOPT_WRITEDATA, &x);
    curl_easy_setopt(h, CURLOPT_HEADERFUNCTION, onHeader);
    curl_easy_setopt(h, CURLOPT_HEADERDATA, &x);
    curl_easy_setopt(h, CURLOPT_ERRORBUFFER, x.errorText);
    curl_easy_setopt(h, CURLOPT_PRIVATE, &x);
  }

  void finish(CURL* h, Exchange& x, CURLcode code) {
    x.code = code;
    curl_easy_getinfo(h, CURLINFO_RESPONSE_CODE, &x.status);
    curl_easy_getinfo(h, CURLINFO_OS_ERRNO, &x.osErrno);
    // Nothing may point at the exchange once it is done.
    curl_easy_setopt(h, CURLOPT_ERRORBUFFER, nullptr);
    curl_easy_setopt(h, CURLOPT_HTTPHEADER, nullptr);
  }

  // How long to wait before asking again after a busy answer: what Retry-After asks (seconds
  // or an HTTP date), else 1, 2, 4... seconds; never more than maxRetryWaitSeconds.
  std::chrono::milliseconds retryWait(const Exchange& x, int attempt) const {
    long seconds = 1L << std::min(attempt, 20);
    std::string after = x.header("retry-after");
    if (!after.empty()) {
      if (std::all_of(after.begin(), after.end(),
                      [](unsigned char c) { return std::isdigit(c); })) {
        seconds = after.size() > 9 ? options.maxRetryWaitSeconds : std::stol(after);
      } else if (time_t when = curl_getdate(after.c_str(), nullptr); when != -1) {
        seconds = static_cast<long>(std::max<time_t>(0, when - std::time(nullptr)));
      }
    }
    return std::chrono::seconds(std::clamp(seconds, 0L, std::max(0L, options.maxRetryWaitSeconds)));
  }

  // Requests go to the collection's origin only: the credentials are the account's there.
  std::optional<RuntimeError> refusedElsewhere(const std::string& target) const {
    if (partsOf(target).sameOrigin(where)) return std::nullopt;
    return RuntimeError(kServerRejected,
                        "Not sent: " + target + " is not on the address book's server " + origin,
                        kSource);
  }

  // One request on the client's own handle, asked again while the server is busy.
  std::unique_ptr<Exchange> send(Request request) {
    if (auto refusal = refusedElsewhere(request.url)) throw *refusal;
    for (int attempt = 0;; ++attempt) {
      auto x = std::make_unique<Exchange>(request);
      prepare(easy, *x);
      finish(easy, *x, curl_easy_perform(easy));
      if (!x->busy() || attempt >= options.maxRetries) return x;
      std::this_thread::sleep_for(retryWait(*x, attempt));
    }
  }

  // Throws for a failed exchange and for any status not in `answered` (2xx always are).
  // `probing`: a 403 is a refused logon.
  void check(const Exchange& x, std::initializer_list<long> answered, bool probing = false) {
    const std::string& url = x.request.url;
    if (x.code != CURLE_OK) {
      std::string why = x.code == CURLE_COULDNT_CONNECT && x.osErrno != 0
                            ? std::strerror(static_cast<int>(x.osErrno))
                        : x.errorText[0] ? x.errorText
                                         : curl_easy_strerror(x.code);
      throw RuntimeError(kServerUnreachable, "Cannot reach " + url + ": " + why, kSource);
    }
    if (x.status == 401 || (probing && x.status == 403)) {
      throw RuntimeError(kLogonFailed,
                         "The server at " + url + " refused the logon of " + options.user + " (" +
                             x.statusText() + ")",
                         kSource);
    }
    if ((x.status >= 200 && x.status < 300) ||
        std::find(answered.begin(), answered.end(), x.status) != answered.end()) {
      return;
    }
    std::string said = saidIn(x.body);
    if (said == x.reason || said == x.statusText()) said.clear();  // says nothing more
    if (x.busy()) {
      throw RuntimeError(kServerUnreachable,
                         "The server at " + url + " is too busy to answer (" + x.statusText() +
                             "); gave up after " + std::to_string(options.maxRetries + 1) +
                             " attempts" + (said.empty() ? "" : ": " + said),
                         kSource);
    }
    // The number says the server refused; what to do depends on why: a fault of the server
    // (5xx but "not implemented") may pass, a missing card is not found.
    Remedy remedy = x.status >= 500 && x.status != 501   ? Remedy::kRetryLater
                    : x.status == 404 || x.status == 410 ? Remedy::kNotFound
                                                         : Remedy::kRefused;
    throw RuntimeError(kServerRejected, remedy,
                       "The server at " + url + " refused " + x.request.method + " (" +
                           x.statusText() + ")" + (said.empty() ? "" : ": " + said),
                       kSource);
  }

  // The multistatus document of a PROPFIND or REPORT answer.
  pugi::xml_node multistatus(const Exchange& x, pugi::xml_document& doc) {
    pugi::xml_parse_result parsed =
        doc.load_buffer(x.body.data(), x.body.size(), pugi::parse_default & ~pugi::parse_eol);
    pugi::xml_node root = doc.document_element();
    if (!parsed || !is(root, kDav, "multistatus")) {
      std::string said = saidIn(x.body);
      throw RuntimeError(kServerRejected,
                         "The server at " + x.request.url + " did not answer " + x.request.method +
                             " as a WebDAV server (" + x.statusText() + ")" +
                             (said.empty() ? "" : ": " + said),
                         kSource);
    }
    return root;
  }

  Request xmlRequest(const std::string& method, const std::string& depth, std::string body,
                     const std::string& target = "") {
    return {method,
            target.empty() ? url : target,
            std::move(body),
            {"Depth: " + depth, "Content-Type: application/xml; charset=utf-8", "Expect:"},
            true};
  }

  Request putRequest(const Put& p, const std::string& target) const {
    Request r{"PUT",
              target,
              p.body,
              {"Content-Type: " + p.contentType + "; charset=utf-8", "Expect:"},
              false};
    if (!p.ifMatch.empty()) {
      r.headers.push_back("If-Match: " + p.ifMatch);
    } else if (p.create) {
      r.headers.push_back("If-None-Match: *");
    }
    return r;
  }

  WriteResult judgePut(const Exchange& x) {
    check(x, {404, 412});
    WriteResult result;
    result.status = x.status;
    if (x.status >= 200 && x.status < 300) {
      std::string etag = x.header("etag");
      if (etag.rfind("W/", 0) != 0) result.etag = etag;
    }
    return result;
  }
};

DavClient::DavClient(std::string collectionUrl, DavOptions options) : impl_(new Impl) {
  std::string scheme = lower(collectionUrl.substr(0, collectionUrl.find("://")));
  size_t hostStart = scheme.size() + 3;
  if ((scheme != "http" && scheme != "https") || collectionUrl.size() <= hostStart ||
      collectionUrl[hostStart] == '/') {
    throw RuntimeError(kInvalidProcedureCall,
                       "Not an http:// or https:// address: " + collectionUrl, kSource);
  }
  if (collectionUrl.back() != '/') collectionUrl += '/';
  size_t path = collectionUrl.find('/', hostStart);
  impl_->origin = collectionUrl.substr(0, path);
  impl_->where = partsOf(collectionUrl);
  if (!impl_->where.ok)
    throw RuntimeError(kInvalidProcedureCall, "Not a valid address: " + collectionUrl, kSource);
  impl_->url = std::move(collectionUrl);
  impl_->options = std::move(options);
  impl_->options.maxInFlight = std::max(1, impl_->options.maxInFlight);
  impl_->options.maxRetries = std::max(0, impl_->options.maxRetries);
  initCurl();
  impl_->easy = impl_->newHandle();
}

DavClient::~DavClient() = default;

const std::string& DavClient::collectionUrl() const {
  return impl_->url;
}

const DavOptions& DavClient::options() const {
  return impl_->options;
}

std::string DavClient::urlOf(const std::string& href) const {
  if (href.find("://") != std::string::npos) return urlSafe(href);
  if (!href.empty() && href[0] == '/') return impl_->origin + urlSafe(href);
  return impl_->url + urlSafe(href);
}

std::string DavClient::collectionPath() const {
  return impl_->url.substr(impl_->origin.size());
}

bool DavClient::contains(const std::string& href) const {
  UrlParts member = partsOf(urlOf(href));
  if (!member.sameOrigin(impl_->where)) return false;
  std::string path = percentDecode(member.path), base = percentDecode(impl_->where.path);
  if (base.empty() || base.back() != '/') base += '/';
  for (size_t start = 0; start <= path.size();) {
    size_t end = std::min(path.find('/', start), path.size());
    std::string segment = path.substr(start, end - start);
    if (segment == "." || segment == "..") return false;
    start = end + 1;
  }
  return path.size() > base.size() && path.compare(0, base.size(), base) == 0 &&
         hrefKey(path) != hrefKey(base);
}

bool DavClient::sameOrigin(const std::string& url) const {
  return partsOf(url).sameOrigin(impl_->where);
}

DavClient::CollectionInfo DavClient::probe() {
  auto x = impl_->send(impl_->xmlRequest(
      "PROPFIND", "0",
      "<?xml version=\"1.0\" encoding=\"utf-8\"?><D:propfind xmlns:D=\"DAV:\"><D:prop>"
      "<D:resourcetype/><D:displayname/><D:sync-token/><D:supported-report-set/>"
      "</D:prop></D:propfind>"));
  impl_->check(*x, {}, true);
  pugi::xml_document doc;
  pugi::xml_node root = impl_->multistatus(*x, doc);
  CollectionInfo info;
  for (pugi::xml_node response : children(root, kDav, "response")) {
    pugi::xml_node prop = okProps(response);
    info.isAddressBook = bool(child(child(prop, kDav, "resourcetype"), kCardDav, "addressbook"));
    info.syncCollection =
        hasDescendant(child(prop, kDav, "supported-report-set"), kDav, "sync-collection");
    info.syncToken = trim(textOf(child(prop, kDav, "sync-token")));
    info.displayName = trim(textOf(child(prop, kDav, "displayname")));
    break;  // depth 0: the collection is the one answer
  }
  return info;
}

std::vector<DavClient::Member> DavClient::listMembers() {
  auto x = impl_->send(impl_->xmlRequest(
      "PROPFIND", "1",
      "<?xml version=\"1.0\" encoding=\"utf-8\"?><D:propfind xmlns:D=\"DAV:\"><D:prop>"
      "<D:resourcetype/><D:getetag/></D:prop></D:propfind>"));
  impl_->check(*x, {});
  pugi::xml_document doc;
  pugi::xml_node root = impl_->multistatus(*x, doc);
  const std::string self = hrefKey(collectionPath());
  std::vector<Member> members;
  for (pugi::xml_node response : children(root, kDav, "response")) {
    std::string href = trim(textOf(child(response, kDav, "href")));
    if (href.empty() || hrefKey(href) == self) continue;
    pugi::xml_node prop = okProps(response);
    if (child(child(prop, kDav, "resourcetype"), kDav, "collection")) continue;
    members.push_back({href, trim(textOf(child(prop, kDav, "getetag")))});
  }
  return members;
}

DavClient::SyncResult DavClient::syncCollection(const std::string& token) {
  std::string body =
      "<?xml version=\"1.0\" encoding=\"utf-8\"?><D:sync-collection xmlns:D=\"DAV:\">" +
      (token.empty() ? std::string("<D:sync-token/>")
                     : "<D:sync-token>" + xmlEscape(token) + "</D:sync-token>") +
      "<D:sync-level>1</D:sync-level><D:prop><D:getetag/></D:prop></D:sync-collection>";
  auto x = impl_->send(impl_->xmlRequest("REPORT", "0", std::move(body)));
  SyncResult result;
  if (!token.empty()) {
    bool refused = x->code == CURLE_OK &&
                   (x->status == 403 || x->status == 409 || x->status == 410 || x->status == 400);
    if (refused && (x->status != 400 || x->body.find("valid-sync-token") != std::string::npos)) {
      result.tokenInvalid = true;
      return result;
    }
  }
  impl_->check(*x, {});
  pugi::xml_document doc;
  pugi::xml_node root = impl_->multistatus(*x, doc);
  const std::string self = hrefKey(collectionPath());
  for (pugi::xml_node response : children(root, kDav, "response")) {
    std::string href = trim(textOf(child(response, kDav, "href")));
    if (href.empty() || hrefKey(href) == self) continue;
    if (statusOf(response) == 404) {
      result.removed.push_back(href);
      continue;
    }
    pugi::xml_node prop = okProps(response);
    if (child(child(prop, kDav, "resourcetype"), kDav, "collection")) continue;
    result.changed.push_back({href, trim(textOf(child(prop, kDav, "getetag")))});
  }
  result.token = trim(textOf(child(root, kDav, "sync-token")));
  return result;
}

std::vector<DavClient::Card> DavClient::multiget(const std::vector<std::string>& hrefs,
                                                 size_t batch) {
  batch = std::max<size_t>(batch, 1);
  std::vector<Card> cards;
  cards.reserve(hrefs.size());
  for (size_t start = 0; start < hrefs.size(); start += batch) {
    size_t end = std::min(hrefs.size(), start + batch);
    std::string body =
        "<?xml version=\"1.0\" encoding=\"utf-8\"?><C:addressbook-multiget xmlns:D=\"DAV:\" "
        "xmlns:C=\"urn:ietf:params:xml:ns:carddav\"><D:prop><D:getetag/><C:address-data/>"
        "</D:prop>";
    for (size_t i = start; i < end; ++i) body += "<D:href>" + xmlEscape(hrefs[i]) + "</D:href>";
    body += "</C:addressbook-multiget>";
    auto x = impl_->send(impl_->xmlRequest("REPORT", "1", std::move(body)));
    impl_->check(*x, {});
    pugi::xml_document doc;
    pugi::xml_node root = impl_->multistatus(*x, doc);
    std::unordered_map<std::string, Card> answered;
    for (pugi::xml_node response : children(root, kDav, "response")) {
      Card card;
      long status = statusOf(response);
      pugi::xml_node prop = okProps(response);
      if (status == 0) status = prop ? 200 : 404;
      card.status = status;
      if (status >= 200 && status < 300) {
        card.etag = trim(textOf(child(prop, kDav, "getetag")));
        card.data = textOf(child(prop, kCardDav, "address-data"));
      }
      // A response may name several hrefs (RFC 4918: href, then more hrefs with one status).
      for (pugi::xml_node href : children(response, kDav, "href")) {
        answered.emplace(hrefKey(trim(textOf(href))), card);
      }
    }
    for (size_t i = start; i < end; ++i) {
      auto it = answered.find(hrefKey(hrefs[i]));
      Card card = it == answered.end() ? Card{} : it->second;
      if (it == answered.end()) card.status = 404;
      card.href = hrefs[i];
      cards.push_back(std::move(card));
    }
  }
  return cards;
}

DavClient::Card DavClient::get(const std::string& href) {
  auto x = impl_->send({"GET", urlOf(href), "", {"Accept: text/vcard"}, true});
  impl_->check(*x, {404});
  Card card;
  card.href = href;
  card.status = x->status;
  if (x->status != 404) {
    card.etag = x->header("etag");
    card.data = std::move(x->body);
  }
  return card;
}

DavClient::WriteResult DavClient::put(const Put& request) {
  auto x = impl_->send(impl_->putRequest(request, urlOf(request.href)));
  return impl_->judgePut(*x);
}

std::vector<DavClient::WriteResult> DavClient::putMany(const std::vector<Put>& requests) {
  std::vector<WriteResult> results(requests.size());
  if (requests.empty()) return results;
  Impl& d = *impl_;
  if (!d.multi) {
    d.multi = curl_multi_init();
    if (!d.multi) throw RuntimeError(kOutOfMemory, "Cannot start an HTTP session", kSource);
  }
  const auto started = Clock::now();
  bool retried = false;
  size_t width = std::min(requests.size(), static_cast<size_t>(d.width));
  while (d.pool.size() < width) d.pool.push_back(d.newHandle());

  struct Slot {
    CURL* handle;
    std::unique_ptr<Exchange> exchange;  // set while the slot has a request
    size_t index = 0;
    int attempt = 0;
    bool running = false;
    Clock::time_point due;
  };
  std::vector<Slot> slots;
  for (size_t i = 0; i < width; ++i) slots.push_back(Slot{d.pool[i], nullptr, 0, 0, false, {}});

  auto conclude = [&](Slot& slot) {
    WriteResult& result = results[slot.index];
    try {
      result = d.judgePut(*slot.exchange);
    } catch (const RuntimeError& e) {
      result.status = slot.exchange->status;
      result.error = e;
    }
    slot.exchange.reset();
  };

  size_t next = 0;
  struct Cleanup {  // handles are taken out of the multi however the loop ends
    Impl& d;
    std::vector<Slot>& slots;
    ~Cleanup() {
      for (Slot& s : slots) {
        if (s.running) curl_multi_remove_handle(d.multi, s.handle);
      }
    }
  } cleanup{d, slots};
  for (;;) {
    const auto now = Clock::now();
    bool any = false;
    for (Slot& slot : slots) {
      while (!slot.exchange && next < requests.size()) {
        size_t index = next++;
        std::string target = urlOf(requests[index].href);
        if (auto refusal = d.refusedElsewhere(target)) {
          results[index].error = *refusal;
          continue;
        }
        slot.index = index;
        slot.attempt = 0;
        slot.due = now;
        slot.exchange = std::make_unique<Exchange>(d.putRequest(requests[index], target));
      }
      if (!slot.exchange) continue;
      any = true;
      if (slot.running || slot.due > now) continue;
      d.prepare(slot.handle, *slot.exchange);
      if (curl_multi_add_handle(d.multi, slot.handle) != CURLM_OK) {
        throw RuntimeError(kOutOfMemory, "Cannot start an HTTP request", kSource);
      }
      slot.running = true;
    }
    if (!any) break;
    int running = 0;
    curl_multi_perform(d.multi, &running);
    bool progressed = false;  // a request ended: refill its slot, or end when all are done
    int left = 0;
    while (CURLMsg* msg = curl_multi_info_read(d.multi, &left)) {
      if (msg->msg != CURLMSG_DONE) continue;
      auto slot = std::find_if(slots.begin(), slots.end(),
                               [&](const Slot& s) { return s.handle == msg->easy_handle; });
      if (slot == slots.end()) continue;
      CURLcode code = msg->data.result;
      curl_multi_remove_handle(d.multi, slot->handle);
      slot->running = false;
      d.finish(slot->handle, *slot->exchange, code);
      if (slot->exchange->busy() && slot->attempt < d.options.maxRetries) {
        slot->due = Clock::now() + d.retryWait(*slot->exchange, slot->attempt);
        ++slot->attempt;
        retried = true;  // the server's waits, not its pace: this batch teaches nothing
        slot->exchange = std::make_unique<Exchange>(slot->exchange->request);
      } else {
        conclude(*slot);
        progressed = true;
      }
    }
    if (progressed) continue;
    // Sleep until a transfer has news, or the next retry is due.
    auto wake = Clock::now() + std::chrono::seconds(1);
    for (const Slot& slot : slots) {
      if (slot.exchange && !slot.running) wake = std::min(wake, slot.due);
    }
    auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(wake - Clock::now()).count();
    if (ms > 0) curl_multi_poll(d.multi, nullptr, 0, static_cast<int>(ms), nullptr);
  }
  if (!retried) d.learnWidth(requests.size(), Clock::now() - started);
  return results;
}

std::string DavClient::findEventCalendar() {
  // One PROPFIND of `target` for the href inside `prop` of its first answer ("" when none).
  auto hrefProperty = [&](const std::string& target, const char* ns, const char* name) {
    std::string body = std::string("<?xml version=\"1.0\" encoding=\"utf-8\"?>") +
                       "<D:propfind xmlns:D=\"DAV:\" xmlns:C=\"" + kCalDav + "\"><D:prop><" +
                       (ns == kDav ? "D:" : "C:") + name + "/></D:prop></D:propfind>";
    auto x = impl_->send(impl_->xmlRequest("PROPFIND", "0", body, target));
    if (x->code != CURLE_OK || x->status != 207) {
      impl_->check(*x, {400, 403, 404, 405, 501});
      return std::string();
    }
    pugi::xml_document doc;
    pugi::xml_node root = impl_->multistatus(*x, doc);
    for (pugi::xml_node response : children(root, kDav, "response")) {
      std::string href = trim(textOf(child(child(okProps(response), ns, name), kDav, "href")));
      // Elsewhere than the address book's server: not asked with this account's credentials.
      if (!href.empty()) return sameOrigin(urlOf(href)) ? urlOf(href) : std::string();
    }
    return std::string();
  };
  std::string principal = hrefProperty(impl_->url, kDav, "current-user-principal");
  if (principal.empty()) return "";
  std::string home = hrefProperty(principal, kCalDav, "calendar-home-set");
  if (home.empty()) return "";
  if (home.back() != '/') home += '/';
  auto x = impl_->send(impl_->xmlRequest(
      "PROPFIND", "1",
      std::string("<?xml version=\"1.0\" encoding=\"utf-8\"?><D:propfind xmlns:D=\"DAV:\" "
                  "xmlns:C=\"") +
          kCalDav +
          "\"><D:prop><D:resourcetype/><C:supported-calendar-component-set/></D:prop>"
          "</D:propfind>",
      home));
  impl_->check(*x, {403, 404});
  if (x->status != 207) return "";
  pugi::xml_document doc;
  pugi::xml_node root = impl_->multistatus(*x, doc);
  std::vector<std::string> calendars;
  for (pugi::xml_node response : children(root, kDav, "response")) {
    pugi::xml_node prop = okProps(response);
    if (!child(child(prop, kDav, "resourcetype"), kCalDav, "calendar")) continue;
    pugi::xml_node set = child(prop, kCalDav, "supported-calendar-component-set");
    bool events = !set;
    for (pugi::xml_node comp : children(set, kCalDav, "comp"))
      events = events || std::string(comp.attribute("name").value()) == "VEVENT";
    std::string href = trim(textOf(child(response, kDav, "href")));
    if (events && sameOrigin(urlOf(href))) calendars.push_back(href);
  }
  if (calendars.empty()) return "";
  std::sort(calendars.begin(), calendars.end());
  std::string found = urlOf(calendars.front());
  return found.back() == '/' ? found : found + "/";
}

DavClient::WriteResult DavClient::remove(const std::string& href, const std::string& ifMatch) {
  Request r{"DELETE", urlOf(href), "", {}, false};
  if (!ifMatch.empty()) r.headers.push_back("If-Match: " + ifMatch);
  auto x = impl_->send(std::move(r));
  impl_->check(*x, {404, 412});
  WriteResult result;
  result.status = x->status;
  return result;
}

}  // namespace dossync::carddav
