// The Windows build's message writer: the same message as the GMime one (mime_message.cpp)
// writes, composed by hand (no GMime on Windows). Bodies and attachments go base64; non-ASCII
// header words as RFC 2047 encoded-words, file names as RFC 2231 parameters.
#include <windows.h>

#include <cstdio>
#include <ctime>
#include <random>

#include "backends/mail/mime_message.h"
#include "backends/mail/mime_text.h"

namespace dossync::vdir {
namespace {

bool ascii(std::string_view s) {
  for (unsigned char c : s)
    if (c >= 0x80 || (c < 0x20 && c != '\t')) return false;
  return true;
}

std::string base64(std::string_view bytes, bool lines) {
  static const char* kDigits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string out;
  size_t column = 0;
  for (size_t i = 0; i < bytes.size(); i += 3) {
    uint32_t n = static_cast<unsigned char>(bytes[i]) << 16;
    if (i + 1 < bytes.size()) n |= static_cast<unsigned char>(bytes[i + 1]) << 8;
    if (i + 2 < bytes.size()) n |= static_cast<unsigned char>(bytes[i + 2]);
    out += kDigits[(n >> 18) & 63];
    out += kDigits[(n >> 12) & 63];
    out += i + 1 < bytes.size() ? kDigits[(n >> 6) & 63] : '=';
    out += i + 2 < bytes.size() ? kDigits[n & 63] : '=';
    if (lines && (column += 4) >= 76) {
      out += "\r\n";
      column = 0;
    }
  }
  if (lines && column) out += "\r\n";
  return out;
}

std::string headerWord(const std::string& text) {
  return ascii(text) ? text : "=?UTF-8?B?" + base64(text, false) + "?=";
}

std::string mailboxText(const MailAddress& a) {
  if (a.name.empty()) return a.address;
  std::string name = a.name;
  if (ascii(name)) {
    std::string quoted = "\"";
    for (char c : name) {
      if (c == '"' || c == '\\') quoted += '\\';
      quoted += c;
    }
    name = quoted + "\"";
  } else {
    name = headerWord(name);
  }
  return name + " <" + a.address + ">";
}

void addressHeader(std::string& out, const char* name, const std::vector<MailAddress>& list) {
  if (list.empty()) return;
  out += name;
  out += ": ";
  for (size_t i = 0; i < list.size(); ++i) out += (i ? ",\r\n " : "") + mailboxText(list[i]);
  out += "\r\n";
}

// name="..." for ASCII, name*=UTF-8''percent-encoded otherwise.
std::string parameter(const char* name, const std::string& value) {
  if (ascii(value)) return std::string(name) + "=\"" + value + "\"";
  std::string out = std::string(name) + "*=UTF-8''";
  for (unsigned char c : value) {
    if (std::isalnum(c) || c == '.' || c == '-' || c == '_') {
      out += static_cast<char>(c);
    } else {
      char hex[4];
      std::snprintf(hex, sizeof hex, "%%%02X", c);
      out += hex;
    }
  }
  return out;
}

std::string randomHex(int digits) {
  static std::mt19937_64 generator{std::random_device{}()};
  std::string out;
  for (int i = 0; i < digits; ++i) out += "0123456789abcdef"[generator() & 15];
  return out;
}

std::string rfc5322Date(std::time_t t) {
  std::tm local{};
  localtime_s(&local, &t);
  TIME_ZONE_INFORMATION zone{};
  DWORD kind = ::GetTimeZoneInformation(&zone);
  long bias = -(zone.Bias + (kind == TIME_ZONE_ID_DAYLIGHT ? zone.DaylightBias : 0));
  static const char* kDays[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
  static const char* kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                  "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  char text[64];
  std::snprintf(text, sizeof text, "%s, %02d %s %d %02d:%02d:%02d %c%02ld%02ld",
                kDays[local.tm_wday], local.tm_mday, kMonths[local.tm_mon], local.tm_year + 1900,
                local.tm_hour, local.tm_min, local.tm_sec, bias < 0 ? '-' : '+',
                std::labs(bias) / 60, std::labs(bias) % 60);
  return text;
}

std::string crlf(std::string_view text) {
  std::string out;
  for (char c : mime::canonicalLineBreaks(text))
    out += c == '\n' ? std::string("\r\n") : std::string(1, c);
  return out;
}

}  // namespace

std::vector<MailAddress> parseAddressList(const std::string& text) {
  std::vector<MailAddress> out;
  std::string item;
  bool quoted = false;
  auto flush = [&] {
    if (auto box = parseMailbox(item)) out.push_back(*box);
    item.clear();
  };
  for (char c : text) {
    if (c == '"') quoted = !quoted;
    if (!quoted && (c == ',' || c == ';')) {
      flush();
      continue;
    }
    item += c == '\r' || c == '\n' ? ' ' : c;
  }
  flush();
  return out;
}

std::string writeMime(const MimeMail& mail) {
  std::string out;
  if (!mail.from.address.empty()) out += "From: " + mailboxText(mail.from) + "\r\n";
  addressHeader(out, "To", mail.to);
  addressHeader(out, "Cc", mail.cc);
  if (mail.bccHeader) addressHeader(out, "Bcc", mail.bcc);
  if (!mail.subject.empty()) out += "Subject: " + headerWord(mail.subject) + "\r\n";
  out += "Date: " + rfc5322Date(mail.date ? mail.date : std::time(nullptr)) + "\r\n";
  std::string id = mail.messageId.empty() ? randomHex(16) + "@" + mime::domainOf(mail.from.address)
                                          : mail.messageId;
  out += "Message-Id: <" + id + ">\r\n";
  if (mail.unsent) out += "X-Unsent: 1\r\n";
  out += "MIME-Version: 1.0\r\n";
  const std::string body =
      "Content-Type: text/plain; charset=utf-8\r\n"
      "Content-Transfer-Encoding: base64\r\n\r\n" +
      base64(crlf(mail.body), true);
  if (mail.attachments.empty()) return out + body;
  const std::string boundary = "=-" + randomHex(24);
  out += "Content-Type: multipart/mixed; boundary=\"" + boundary + "\"\r\n\r\n";
  out += "--" + boundary + "\r\n" + body;
  for (const auto& a : mail.attachments) {
    std::string type = a.contentType.empty() ? contentTypeFor(a.displayName) : a.contentType;
    if (type.find('/') == std::string::npos) type = "application/octet-stream";
    out += "--" + boundary + "\r\n";
    out += "Content-Type: " + type + "; " + parameter("name", a.displayName) + "\r\n";
    out += "Content-Disposition: attachment; " + parameter("filename", a.displayName) + "\r\n";
    out += "Content-Transfer-Encoding: base64\r\n\r\n" + base64(a.content, true);
  }
  return out + "--" + boundary + "--\r\n";
}

}  // namespace dossync::vdir
