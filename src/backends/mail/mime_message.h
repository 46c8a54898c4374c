// Internet messages for the mail items of the local store, written with GMime.
//
// writeMime gives the message as it goes on the wire: CRLF line ends, MIME 1.0, Date and
// Message-ID, a UTF-8 subject (an RFC 2047 encoded-word when it is not ASCII), a text/plain
// UTF-8 body in quoted-printable, and each attachment as base64 named by its display name
// (RFC 2231 when that is not ASCII). A message with attachments is multipart/mixed with the
// body first. Bcc is written only when asked for (drafts and the outbox keep it, what a server
// receives never has it).
//
// Recipients are written as Outlook keeps them: one text per recipient. parseMailbox is the
// strict reading used to deliver ("addr@domain" or "Name <addr@domain>", the name optionally
// in double quotes); parseAddressList the lenient one used to show a draft.
// Pure functions apart from GMime's one-time initialisation; the apartment's one thread.
#pragma once

#include <ctime>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace dossync::vdir {

struct MailAddress {
  std::string name;     // UTF-8, may be empty
  std::string address;  // local@domain
  bool operator==(const MailAddress&) const = default;
};

// One mailbox, or nullopt when the text is anything else (two addresses, no '@', blanks or
// separators in the address, an unclosed '<', control characters).
std::optional<MailAddress> parseMailbox(std::string_view text);
// Whatever mailboxes the text holds, separated by ',' or ';' (groups flattened).
std::vector<MailAddress> parseAddressList(const std::string& text);

struct MimeAttachment {
  std::string displayName;
  std::string content;      // the bytes
  std::string contentType;  // "" for one guessed from the display name's extension
};

struct MimeMail {
  MailAddress from;  // no From header when its address is empty
  std::vector<MailAddress> to, cc, bcc;
  std::string subject;  // UTF-8
  std::string body;     // UTF-8; CR LF, LF or CR line breaks
  std::vector<MimeAttachment> attachments;
  std::string messageId;   // without angle brackets; "" for a new one
  std::time_t date = 0;    // 0 for now
  bool bccHeader = false;  // write the Bcc header
  bool unsent = false;     // mark a draft (X-Unsent: 1) so that mail programs open it for editing
};

std::string writeMime(const MimeMail& mail);

// The media type for a file name by its extension; application/octet-stream when unknown.
std::string contentTypeFor(std::string_view fileName);

}  // namespace dossync::vdir
