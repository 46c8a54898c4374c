// A profile's mail account: how its mail items reach an SMTP server. Kept as JSON in
// ROOT/<profile>/account.json (mode 0600, since it may hold a password):
//
//   {
//     "smtp": "smtp://mail.example.org:587",   smtp:// or smtps:// URL (required)
//     "from": "office@example.org",            sender address (required)
//     "name": "Example Office",                sender name (optional)
//     "user": "office",                        log-on user (optional)
//     "password": "secret",                    log-on password (optional)
//     "starttls": true,                        optional: true requires STARTTLS, false never
//                                              asks; absent uses it when the server offers it
//     "timeout": 60                            optional: seconds for one delivery
//   }
#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "backends/mail/smtp_client.h"

namespace dossync::vdir {

struct MailAccount {
  SmtpServer server;
  std::string from;  // the sender's address
  std::string name;  // the sender's name, may be empty
};

std::filesystem::path accountFile(const std::filesystem::path& profileDir);

// The account of the profile, nullopt when it has none. A file that is not such a JSON object,
// or lacks "smtp" or "from", is RuntimeError kTypeMismatch naming the file.
std::optional<MailAccount> readMailAccount(const std::filesystem::path& profileDir);

// Checks the settings (URL scheme, sender address) and writes them atomically.
void writeMailAccount(const std::filesystem::path& profileDir, const MailAccount& account);

}  // namespace dossync::vdir
