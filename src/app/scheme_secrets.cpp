#include "app/scheme_secrets.h"

#include <libsecret/secret.h>

#include <filesystem>

#include "backends/databases.h"

namespace dossync::app {
namespace {

const SecretSchema* schema() {
  static const SecretSchema s = [] {
    SecretSchema x{};
    x.name = "org.dossync.SchemePassword";
    x.flags = SECRET_SCHEMA_NONE;
    x.attributes[0] = {"database", SECRET_SCHEMA_ATTRIBUTE_STRING};
    x.attributes[1] = {"scheme", SECRET_SCHEMA_ATTRIBUTE_INTEGER};
    return x;
  }();
  return &s;
}

// The database as the same file is named from any folder; a server's as it is shown.
std::string databaseKey(const std::string& location) {
  if (databases::isServer(location)) return databases::displayName(location);
  std::error_code ec;
  auto path = std::filesystem::weakly_canonical(location, ec);
  return ec ? location : path.string();
}

struct ErrorFree {
  void operator()(GError* e) const {
    if (e) g_error_free(e);
  }
};

class SecretServicePasswords : public wizard::ISchemePasswords {
 public:
  bool store(const std::string& database, int32_t schemeID, const std::string& schemeName,
             const std::string& password) override {
    GError* error = nullptr;
    std::string label = "dossync scheme " + schemeName;
    gboolean kept = secret_password_store_sync(
        schema(), SECRET_COLLECTION_DEFAULT, label.c_str(), password.c_str(), nullptr, &error,
        "database", databaseKey(database).c_str(), "scheme", static_cast<int>(schemeID), nullptr);
    std::unique_ptr<GError, ErrorFree> owned(error);
    return kept && !error;
  }

  std::optional<std::string> lookup(const std::string& database, int32_t schemeID) override {
    GError* error = nullptr;
    gchar* found = secret_password_lookup_sync(schema(), nullptr, &error, "database",
                                               databaseKey(database).c_str(), "scheme",
                                               static_cast<int>(schemeID), nullptr);
    std::unique_ptr<GError, ErrorFree> owned(error);
    if (!found) return std::nullopt;
    std::string password = found;
    secret_password_free(found);
    return password;
  }

  void forget(const std::string& database, int32_t schemeID) override {
    GError* error = nullptr;
    secret_password_clear_sync(schema(), nullptr, &error, "database",
                               databaseKey(database).c_str(), "scheme", static_cast<int>(schemeID),
                               nullptr);
    std::unique_ptr<GError, ErrorFree> owned(error);
  }
};

}  // namespace

std::shared_ptr<wizard::ISchemePasswords> makeSecretServicePasswords() {
  return std::make_shared<SecretServicePasswords>();
}

}  // namespace dossync::app
