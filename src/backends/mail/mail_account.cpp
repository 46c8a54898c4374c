#include "backends/mail/mail_account.h"

#include <nlohmann/json.hpp>

#include <fstream>
#include <sstream>

#include "backends/mail/mime_message.h"
#include "backends/vcard/atomic_file.h"
#include "base/error.h"

namespace fs = std::filesystem;

namespace dossync::vdir {
namespace {

RuntimeError badAccount(const fs::path& file, const std::string& why) {
  return RuntimeError(kTypeMismatch, "The mail account " + file.string() + " " + why, "vdir");
}

void checkSender(const std::string& from) {
  auto box = parseMailbox(from);
  if (!box || !box->name.empty())
    throw RuntimeError(kInvalidProcedureCall,
                       "The sender must be one address (local@domain), not '" + from + "'", "vdir");
}

}  // namespace

fs::path accountFile(const fs::path& profileDir) {
  return profileDir / "account.json";
}

std::optional<MailAccount> readMailAccount(const fs::path& profileDir) {
  fs::path file = accountFile(profileDir);
  std::ifstream in(file, std::ios::binary);
  if (!in) {
    std::error_code ec;
    if (!fs::exists(file, ec)) return std::nullopt;
    throw RuntimeError(kPermissionDenied, "Cannot read the mail account " + file.string(), "vdir");
  }
  std::stringstream text;
  text << in.rdbuf();
  nlohmann::json j = nlohmann::json::parse(text.str(), nullptr, false);
  if (j.is_discarded() || !j.is_object()) throw badAccount(file, "is not a JSON object");

  auto textOf = [&](const char* key, bool required) -> std::string {
    auto it = j.find(key);
    if (it == j.end() || it->is_null()) {
      if (required) throw badAccount(file, std::string("has no \"") + key + "\"");
      return "";
    }
    if (!it->is_string())
      throw badAccount(file, std::string("has a \"") + key + "\" that is not text");
    return it->get<std::string>();
  };
  MailAccount a;
  a.server.url = textOf("smtp", true);
  a.from = textOf("from", true);
  a.name = textOf("name", false);
  a.server.user = textOf("user", false);
  a.server.password = textOf("password", false);
  if (auto it = j.find("starttls"); it != j.end() && !it->is_null()) {
    if (!it->is_boolean()) throw badAccount(file, "has a \"starttls\" that is not true or false");
    a.server.starttls = it->get<bool>();
  }
  if (auto it = j.find("timeout"); it != j.end() && !it->is_null()) {
    if (!it->is_number_integer() || it->get<long>() <= 0)
      throw badAccount(file, "has a \"timeout\" that is not a number of seconds");
    a.server.timeoutSeconds = it->get<long>();
  }
  return a;
}

void writeMailAccount(const fs::path& profileDir, const MailAccount& a) {
  checkSmtpUrl(a.server.url);
  checkSender(a.from);
  if (a.server.user.empty() && !a.server.password.empty())
    throw RuntimeError(kInvalidProcedureCall, "A password needs a user", "vdir");
  nlohmann::ordered_json j;
  j["smtp"] = a.server.url;
  j["from"] = a.from;
  if (!a.name.empty()) j["name"] = a.name;
  if (!a.server.user.empty()) j["user"] = a.server.user;
  if (!a.server.password.empty()) j["password"] = a.server.password;
  if (a.server.starttls) j["starttls"] = *a.server.starttls;
  if (a.server.timeoutSeconds != SmtpServer{}.timeoutSeconds)
    j["timeout"] = a.server.timeoutSeconds;
  writeFileAtomically(accountFile(profileDir), j.dump(2) + "\n", true);
}

}  // namespace dossync::vdir
