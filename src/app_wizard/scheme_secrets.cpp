#include "app_wizard/scheme_secrets.h"

#include <libsecret/secret.h>

#include <QSettings>
#include <QUrl>

#include <cstdlib>
#include <filesystem>

#include "app/databases.h"

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
    secret_password_clear_sync(schema(), nullptr, &error, "database", databaseKey(database).c_str(),
                               "scheme", static_cast<int>(schemeID), nullptr);
    std::unique_ptr<GError, ErrorFree> owned(error);
  }
};

std::string defaultSettingsPath() {
  const char* xdg = std::getenv("XDG_CONFIG_HOME");
  if (xdg && *xdg) return (std::filesystem::path(xdg) / "dossync/wizard-schemes.ini").string();
  const char* home = std::getenv("HOME");
  return (std::filesystem::path(home && *home ? home : ".") / ".config/dossync/wizard-schemes.ini")
      .string();
}

// One group per scheme, named after the database (percent-encoded: a path's slashes would
// nest groups) and the scheme's number.
class SchemeSettingsFile : public wizard::ISchemeSettings {
 public:
  explicit SchemeSettingsFile(std::string path) : path_(std::move(path)) {}

  void store(const std::string& database, int32_t schemeID, const std::string& key,
             const std::string& value) override {
    QSettings file(QString::fromStdString(path_), QSettings::IniFormat);
    file.setValue(group(database, schemeID) + "/" + QString::fromStdString(key),
                  QString::fromStdString(value));
  }

  std::optional<std::string> lookup(const std::string& database, int32_t schemeID,
                                    const std::string& key) override {
    QSettings file(QString::fromStdString(path_), QSettings::IniFormat);
    QVariant v = file.value(group(database, schemeID) + "/" + QString::fromStdString(key));
    if (!v.isValid()) return std::nullopt;
    return v.toString().toStdString();
  }

  void forget(const std::string& database, int32_t schemeID) override {
    QSettings file(QString::fromStdString(path_), QSettings::IniFormat);
    file.remove(group(database, schemeID));
  }

 private:
  static QString group(const std::string& database, int32_t schemeID) {
    QByteArray name = QUrl::toPercentEncoding(QString::fromStdString(databaseKey(database)));
    return QString::fromLatin1(name) + "%23" + QString::number(schemeID);
  }
  std::string path_;
};

}  // namespace

std::shared_ptr<wizard::ISchemePasswords> makeSecretServicePasswords() {
  return std::make_shared<SecretServicePasswords>();
}

std::shared_ptr<wizard::ISchemeSettings> makeSchemeSettingsFile(const std::string& path) {
  return std::make_shared<SchemeSettingsFile>(path.empty() ? defaultSettingsPath() : path);
}

}  // namespace dossync::app
