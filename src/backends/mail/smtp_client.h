// Hands one message to an SMTP server through libcurl.
//
// The server is a URL: smtp://host[:port] (port 25 by default; STARTTLS when the server offers
// it, unless `starttls` says otherwise) or smtps://host[:port] (TLS from the start, port 465).
// starttls true requires STARTTLS on smtp://, false never asks for it. User and password, when
// set, log on with whatever mechanism the server offers; on smtp:// with starttls unset a
// log-on requires STARTTLS (a server that offers none is a delivery failure that says so), and
// only starttls false logs on over a plain connection. The envelope sender is the account's
// address; every recipient (To, Cc and Bcc alike) gets one RCPT TO, and a recipient the server
// refuses fails the whole delivery.
//
// Failure: RuntimeError kDeliveryFailed whose description names the server URL (without
// credentials), says what went wrong and quotes the server's last answer when there was one:
//   Cannot deliver the message through smtp://127.0.0.1:2525: Failed to connect to ...
//   Cannot deliver the message through smtp://mx:25: RCPT failed: 550 (server answered
//   "550 5.1.1 <x@y>: Recipient address rejected")
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace dossync::vdir {

struct SmtpServer {
  std::string url;
  std::string user, password;
  std::optional<bool> starttls;
  long timeoutSeconds = 60;
};

// Throws RuntimeError kInvalidProcedureCall for a URL that is not smtp:// or smtps://.
void checkSmtpUrl(const std::string& url);

void sendSmtp(const SmtpServer& server, const std::string& sender,
              const std::vector<std::string>& recipients, const std::string& message);

}  // namespace dossync::vdir
