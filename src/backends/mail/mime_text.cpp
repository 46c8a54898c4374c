#include "backends/mail/mime_text.h"

#include <algorithm>
#include <cctype>
#include <utility>

#include "backends/mail/mime_message.h"

namespace dossync::vdir {
namespace mime {

std::string_view trimView(std::string_view t) {
  while (!t.empty() && (t.front() == ' ' || t.front() == '\t')) t.remove_prefix(1);
  while (!t.empty() && (t.back() == ' ' || t.back() == '\t')) t.remove_suffix(1);
  return t;
}

bool validAddress(std::string_view a) {
  size_t at = a.find('@');
  if (at == std::string_view::npos || at == 0 || at + 1 == a.size()) return false;
  if (a.find('@', at + 1) != std::string_view::npos) return false;
  for (unsigned char c : a) {
    if (c <= 0x20 || c == 0x7f) return false;
    if (std::string_view("()<>[]:;,\\\"").find(static_cast<char>(c)) != std::string_view::npos)
      return false;
  }
  std::string_view local = a.substr(0, at), domain = a.substr(at + 1);
  for (std::string_view part : {local, domain}) {
    if (part.front() == '.' || part.back() == '.' || part.find("..") != std::string_view::npos)
      return false;
  }
  return true;
}

bool validBareName(std::string_view n) {
  return n.find_first_of(",;<>\"@:") == std::string_view::npos;
}

std::optional<std::string> unquote(std::string_view n) {
  if (n.size() < 2 || n.front() != '"' || n.back() != '"') return std::nullopt;
  std::string out;
  for (size_t i = 1; i + 1 < n.size(); ++i) {
    char c = n[i];
    if (c == '\\') {
      if (i + 2 >= n.size()) return std::nullopt;
      out += n[++i];
    } else if (c == '"') {
      return std::nullopt;
    } else {
      out += c;
    }
  }
  return out;
}

std::string canonicalLineBreaks(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\r') {
      out += '\n';
      if (i + 1 < text.size() && text[i + 1] == '\n') ++i;
    } else {
      out += text[i];
    }
  }
  return out;
}

std::string domainOf(const std::string& address) {
  size_t at = address.rfind('@');
  return at == std::string::npos ? std::string("localhost") : address.substr(at + 1);
}

}  // namespace mime

using namespace mime;

std::optional<MailAddress> parseMailbox(std::string_view text) {
  if (text.find_first_of("\r\n") != std::string_view::npos) return std::nullopt;
  text = trimView(text);
  if (text.empty()) return std::nullopt;
  MailAddress out;
  size_t open = text.rfind('<');
  if (open == std::string_view::npos) {
    if (text.find('>') != std::string_view::npos) return std::nullopt;
    out.address = std::string(text);
  } else {
    if (text.back() != '>') return std::nullopt;
    std::string_view addr = text.substr(open + 1, text.size() - open - 2);
    std::string_view name = trimView(text.substr(0, open));
    if (!name.empty() && name.front() == '"') {
      auto unquoted = unquote(name);
      if (!unquoted) return std::nullopt;
      out.name = *unquoted;
    } else {
      if (!validBareName(name)) return std::nullopt;
      out.name = std::string(name);
    }
    out.address = std::string(addr);
  }
  if (!validAddress(out.address)) return std::nullopt;
  return out;
}

std::string contentTypeFor(std::string_view fileName) {
  static const std::pair<const char*, const char*> kTypes[] = {
      {"txt", "text/plain"},
      {"csv", "text/csv"},
      {"htm", "text/html"},
      {"html", "text/html"},
      {"ics", "text/calendar"},
      {"vcf", "text/vcard"},
      {"pdf", "application/pdf"},
      {"zip", "application/zip"},
      {"xml", "application/xml"},
      {"json", "application/json"},
      {"rtf", "application/rtf"},
      {"doc", "application/msword"},
      {"xls", "application/vnd.ms-excel"},
      {"docx", "application/vnd.openxmlformats-officedocument.wordprocessingml.document"},
      {"xlsx", "application/vnd.openxmlformats-officedocument.spreadsheetml.sheet"},
      {"odt", "application/vnd.oasis.opendocument.text"},
      {"ods", "application/vnd.oasis.opendocument.spreadsheet"},
      {"png", "image/png"},
      {"jpg", "image/jpeg"},
      {"jpeg", "image/jpeg"},
      {"gif", "image/gif"},
      {"eml", "message/rfc822"},
  };
  size_t dot = fileName.rfind('.');
  if (dot != std::string_view::npos) {
    std::string ext(fileName.substr(dot + 1));
    std::transform(ext.begin(), ext.end(), ext.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    for (const auto& [e, type] : kTypes) {
      if (ext == e) return type;
    }
  }
  return "application/octet-stream";
}

}  // namespace dossync::vdir
