#include "backends/mail/mime_message.h"

#include <gmime/gmime.h>

#include <algorithm>
#include <cctype>
#include <memory>
#include <mutex>

#include "backends/mail/mime_text.h"
#include "base/error.h"

namespace dossync::vdir {
namespace {

void initGMime() {
  static std::once_flag once;
  std::call_once(once, [] { g_mime_init(); });
}

struct Unref {
  void operator()(void* p) const {
    if (p) g_object_unref(p);
  }
};
template <class T>
using GRef = std::unique_ptr<T, Unref>;

struct GFree {
  void operator()(void* p) const { g_free(p); }
};

GRef<InternetAddress> mailbox(const MailAddress& a) {
  GRef<InternetAddress> box(
      internet_address_mailbox_new(a.name.empty() ? nullptr : a.name.c_str(), a.address.c_str()));
  internet_address_set_charset(box.get(), "UTF-8");
  return box;
}

void addAll(InternetAddressList* list, const std::vector<MailAddress>& addresses) {
  for (const auto& a : addresses) internet_address_list_add(list, mailbox(a).get());
}

// RFC 2231 parameters in UTF-8 rather than the narrowest charset GMime would pick.
void utf8Parameter(GMimeParamList* list, const char* name) {
  if (!list) return;
  if (GMimeParam* p = g_mime_param_list_get_parameter(list, name))
    g_mime_param_set_charset(p, "UTF-8");
}

GRef<GMimePart> leafPart(const char* type, const char* subtype, const std::string& bytes) {
  GRef<GMimePart> part(g_mime_part_new_with_type(type, subtype));
  GRef<GMimeStream> stream(g_mime_stream_mem_new_with_buffer(bytes.data(), bytes.size()));
  GRef<GMimeDataWrapper> content(
      g_mime_data_wrapper_new_with_stream(stream.get(), GMIME_CONTENT_ENCODING_DEFAULT));
  g_mime_part_set_content(part.get(), content.get());
  return part;
}

}  // namespace

using namespace mime;

std::vector<MailAddress> parseAddressList(const std::string& text) {
  initGMime();
  // ';' separates addresses as Outlook writes them; GMime reads it as the end of a group.
  std::string commas = text;
  bool quoted = false;
  for (char& c : commas) {
    if (c == '"') quoted = !quoted;
    if (!quoted && c == ';') c = ',';
    if (c == '\r' || c == '\n') c = ' ';
  }
  std::vector<MailAddress> out;
  GRef<InternetAddressList> list(internet_address_list_parse(nullptr, commas.c_str()));
  if (!list) return out;
  auto walk = [&](auto& self, InternetAddressList* l) -> void {
    for (int i = 0, n = internet_address_list_length(l); i < n; ++i) {
      InternetAddress* a = internet_address_list_get_address(l, i);
      if (INTERNET_ADDRESS_IS_GROUP(a)) {
        self(self, internet_address_group_get_members(INTERNET_ADDRESS_GROUP(a)));
      } else if (INTERNET_ADDRESS_IS_MAILBOX(a)) {
        const char* name = internet_address_get_name(a);
        const char* addr = internet_address_mailbox_get_addr(INTERNET_ADDRESS_MAILBOX(a));
        out.push_back({name ? name : "", addr ? addr : ""});
      }
    }
  };
  walk(walk, list.get());
  return out;
}

std::string writeMime(const MimeMail& mail) {
  initGMime();
  GRef<GMimeMessage> message(g_mime_message_new(TRUE));
  auto* object = GMIME_OBJECT(message.get());

  if (!mail.from.address.empty())
    internet_address_list_add(g_mime_message_get_from(message.get()), mailbox(mail.from).get());
  addAll(g_mime_message_get_to(message.get()), mail.to);
  addAll(g_mime_message_get_cc(message.get()), mail.cc);
  if (mail.bccHeader) addAll(g_mime_message_get_bcc(message.get()), mail.bcc);
  if (!mail.subject.empty())
    g_mime_message_set_subject(message.get(), mail.subject.c_str(), "UTF-8");

  std::unique_ptr<GDateTime, decltype(&g_date_time_unref)> date(
      g_date_time_new_from_unix_local(mail.date ? mail.date : std::time(nullptr)),
      g_date_time_unref);
  g_mime_message_set_date(message.get(), date.get());
  if (mail.messageId.empty()) {
    std::unique_ptr<char, GFree> id(
        g_mime_utils_generate_message_id(domainOf(mail.from.address).c_str()));
    g_mime_message_set_message_id(message.get(), id.get());
  } else {
    g_mime_message_set_message_id(message.get(), mail.messageId.c_str());
  }
  if (mail.unsent) g_mime_object_set_header(object, "X-Unsent", "1", nullptr);

  GRef<GMimePart> body = leafPart("text", "plain", canonicalLineBreaks(mail.body));
  g_mime_object_set_content_type_parameter(GMIME_OBJECT(body.get()), "charset", "utf-8");
  g_mime_part_set_content_encoding(body.get(), g_mime_part_get_best_content_encoding(
                                                   body.get(), GMIME_ENCODING_CONSTRAINT_7BIT));

  if (mail.attachments.empty()) {
    g_mime_message_set_mime_part(message.get(), GMIME_OBJECT(body.get()));
  } else {
    GRef<GMimeMultipart> mixed(g_mime_multipart_new_with_subtype("mixed"));
    g_mime_multipart_add(mixed.get(), GMIME_OBJECT(body.get()));
    for (const auto& a : mail.attachments) {
      std::string type = a.contentType.empty() ? contentTypeFor(a.displayName) : a.contentType;
      if (type.find('/') == std::string::npos) type = "application/octet-stream";
      size_t slash = type.find('/');
      GRef<GMimePart> part =
          leafPart(type.substr(0, slash).c_str(), type.substr(slash + 1).c_str(), a.content);
      g_mime_part_set_filename(part.get(), a.displayName.c_str());
      auto* partObject = GMIME_OBJECT(part.get());
      utf8Parameter(g_mime_content_type_get_parameters(g_mime_object_get_content_type(partObject)),
                    "name");
      if (auto* disposition = g_mime_object_get_content_disposition(partObject))
        utf8Parameter(g_mime_content_disposition_get_parameters(disposition), "filename");
      g_mime_part_set_content_encoding(part.get(), GMIME_CONTENT_ENCODING_BASE64);
      g_mime_multipart_add(mixed.get(), partObject);
    }
    g_mime_message_set_mime_part(message.get(), GMIME_OBJECT(mixed.get()));
  }

  std::unique_ptr<GMimeFormatOptions, decltype(&g_mime_format_options_free)> options(
      g_mime_format_options_new(), g_mime_format_options_free);
  g_mime_format_options_set_newline_format(options.get(), GMIME_NEWLINE_FORMAT_DOS);
  std::unique_ptr<char, GFree> text(g_mime_object_to_string(object, options.get()));
  if (!text) throw RuntimeError(kOutOfMemory, "Cannot write the message", "vdir");
  return std::string(text.get());
}

}  // namespace dossync::vdir
