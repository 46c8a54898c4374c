#include "backends/mail/smtp_client.h"

#include <curl/curl.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <memory>
#include <mutex>

#include "base/error.h"

namespace dossync::vdir {
namespace {

void initCurl() {
  static std::once_flag once;
  std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
}

bool startsWithNoCase(const std::string& text, const char* prefix) {
  size_t n = std::strlen(prefix);
  if (text.size() < n) return false;
  for (size_t i = 0; i < n; ++i) {
    if (std::tolower(static_cast<unsigned char>(text[i])) != prefix[i]) return false;
  }
  return true;
}

// The URL as it may be shown: any user information before '@' in the authority dropped.
std::string shownUrl(const std::string& url) {
  size_t scheme = url.find("://");
  if (scheme == std::string::npos) return url;
  size_t start = scheme + 3;
  size_t end = url.find_first_of("/?#", start);
  size_t at = url.rfind('@', end == std::string::npos ? url.size() : end);
  if (at == std::string::npos || at < start) return url;
  return url.substr(0, start) + url.substr(at + 1);
}

struct Upload {
  const std::string* data;
  size_t offset = 0;
};

size_t readMessage(char* buffer, size_t size, size_t count, void* user) {
  auto* up = static_cast<Upload*>(user);
  size_t n = std::min(size * count, up->data->size() - up->offset);
  std::memcpy(buffer, up->data->data() + up->offset, n);
  up->offset += n;
  return n;
}

// The server's answers as libcurl sees them: the last complete reply is kept, and the last
// refusal (4xx or 5xx), which is what a failure is about even when a "221 Bye" followed it.
struct Transcript {
  std::string pending;
  std::string lastReply;
  std::string lastRefusal;
};

int watch(CURL*, curl_infotype type, char* data, size_t size, void* user) {
  if (type != CURLINFO_HEADER_IN) return 0;
  auto* t = static_cast<Transcript*>(user);
  std::string line(data, size);
  while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) line.pop_back();
  if (!t->pending.empty()) t->pending += " ";
  t->pending += line;
  // "250-..." continues a reply, "250 ..." ends it.
  if (line.size() < 4 || line[3] != '-') {
    t->lastReply = std::move(t->pending);
    t->pending.clear();
    if (!t->lastReply.empty() && (t->lastReply[0] == '4' || t->lastReply[0] == '5'))
      t->lastRefusal = t->lastReply;
  }
  return 0;
}

struct CurlFree {
  void operator()(CURL* c) const { curl_easy_cleanup(c); }
};
struct SlistFree {
  void operator()(curl_slist* l) const { curl_slist_free_all(l); }
};

}  // namespace

void checkSmtpUrl(const std::string& url) {
  if (!startsWithNoCase(url, "smtp://") && !startsWithNoCase(url, "smtps://"))
    throw RuntimeError(kInvalidProcedureCall,
                       "The mail server must be an smtp:// or smtps:// URL, not '" + url + "'",
                       "smtp");
  if (url.find_first_of(" \t\r\n") != std::string::npos)
    throw RuntimeError(kInvalidProcedureCall, "The mail server URL holds blanks: '" + url + "'",
                       "smtp");
}

void sendSmtp(const SmtpServer& server, const std::string& sender,
              const std::vector<std::string>& recipients, const std::string& message) {
  checkSmtpUrl(server.url);
  const std::string where = shownUrl(server.url);
  auto fail = [&](const std::string& what) {
    return RuntimeError(kDeliveryFailed,
                        "Cannot deliver the message through " + where + ": " + what, "smtp");
  };
  if (recipients.empty()) throw fail("the message has no recipients");
  initCurl();
  std::unique_ptr<CURL, CurlFree> curl(curl_easy_init());
  if (!curl) throw fail("libcurl could not start");

  std::unique_ptr<curl_slist, SlistFree> rcpt;
  for (const auto& r : recipients) {
    curl_slist* grown = curl_slist_append(rcpt.get(), ("<" + r + ">").c_str());
    if (!grown) throw RuntimeError(kOutOfMemory, "Out of memory", "smtp");
    rcpt.release();
    rcpt.reset(grown);
  }
  const std::string from = "<" + sender + ">";
  Upload upload{&message};
  Transcript transcript;
  char errorText[CURL_ERROR_SIZE] = {0};

  CURL* c = curl.get();
  curl_easy_setopt(c, CURLOPT_URL, server.url.c_str());
  curl_easy_setopt(c, CURLOPT_MAIL_FROM, from.c_str());
  curl_easy_setopt(c, CURLOPT_MAIL_RCPT, rcpt.get());
  curl_easy_setopt(c, CURLOPT_READFUNCTION, readMessage);
  curl_easy_setopt(c, CURLOPT_READDATA, &upload);
  curl_easy_setopt(c, CURLOPT_UPLOAD, 1L);
  curl_easy_setopt(c, CURLOPT_INFILESIZE_LARGE, static_cast<curl_off_t>(message.size()));
  curl_easy_setopt(c, CURLOPT_ERRORBUFFER, errorText);
  curl_easy_setopt(c, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(c, CURLOPT_CONNECTTIMEOUT, std::min(server.timeoutSeconds, 30L));
  curl_easy_setopt(c, CURLOPT_TIMEOUT, server.timeoutSeconds);
  curl_easy_setopt(c, CURLOPT_VERBOSE, 1L);  // the answers reach `watch`, nothing is printed
  curl_easy_setopt(c, CURLOPT_DEBUGFUNCTION, watch);
  curl_easy_setopt(c, CURLOPT_DEBUGDATA, &transcript);
  // Unless the account says otherwise, a log-on needs TLS: the password never goes over a
  // plain connection because a server (or someone between) did not offer STARTTLS.
  const bool plain = startsWithNoCase(server.url, "smtp://");
  const bool tlsForLogon = plain && !server.starttls && !server.user.empty();
  if (plain) {
    long tls = tlsForLogon        ? static_cast<long>(CURLUSESSL_ALL)
               : !server.starttls ? static_cast<long>(CURLUSESSL_TRY)
               : *server.starttls ? static_cast<long>(CURLUSESSL_ALL)
                                  : static_cast<long>(CURLUSESSL_NONE);
    curl_easy_setopt(c, CURLOPT_USE_SSL, tls);
  }
  if (!server.user.empty()) {
    curl_easy_setopt(c, CURLOPT_USERNAME, server.user.c_str());
    curl_easy_setopt(c, CURLOPT_PASSWORD, server.password.c_str());
  }

  CURLcode rc = curl_easy_perform(c);
  if (rc == CURLE_OK) return;
  if (rc == CURLE_USE_SSL_FAILED && tlsForLogon)
    throw fail(
        "the server offers no TLS (STARTTLS), and the password is not sent over a "
        "connection without it; use smtps://, or log on without TLS by setting the "
        "account's \"starttls\" to false (dossync account set --starttls never)");
  std::string what = errorText[0] ? errorText : curl_easy_strerror(rc);
  while (!what.empty() && (what.back() == '\n' || what.back() == '\r')) what.pop_back();
  const std::string& answer =
      transcript.lastRefusal.empty() ? transcript.lastReply : transcript.lastRefusal;
  if (!answer.empty() && what.find(answer) == std::string::npos)
    what += " (server answered \"" + answer + "\")";
  throw fail(what);
}

}  // namespace dossync::vdir
