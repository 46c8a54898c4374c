// The wizard's scheme passwords in the desktop's secret store (the Secret Service: GNOME
// Keyring, KWallet, KeePassXC...) through libsecret, for the wizard on Linux. Each password is
// kept under the synchronisation database's path and the scheme's number. Without a secret
// service (no D-Bus session, as on a server or in CI) nothing is kept and store() answers false,
// so the wizard says the password was not saved.
// The wizard's other settings of a scheme that the synchronisation database does not hold (the
// conflict rule of a scheme run both ways) go to a settings file of dossync's own,
// $XDG_CONFIG_HOME/dossync/wizard-schemes.ini (or ~/.config/...), under the same keys.
#pragma once

#include <memory>
#include <string>

#include "wizard/wizard_form.h"

namespace dossync::app {

std::shared_ptr<wizard::ISchemePasswords> makeSecretServicePasswords();

// The scheme settings kept in that file (`path` instead, when given).
std::shared_ptr<wizard::ISchemeSettings> makeSchemeSettingsFile(const std::string& path = "");

}  // namespace dossync::app
