// The wizard's scheme passwords in the desktop's secret store (the Secret Service: GNOME
// Keyring, KWallet, KeePassXC...) through libsecret, for the wizard on Linux. Each password is
// kept under the synchronisation database's path and the scheme's number. Without a secret
// service (no D-Bus session, as on a server or in CI) nothing is kept and store() answers false,
// so the wizard says the password was not saved.
#pragma once

#include <memory>

#include "wizard/wizard_form.h"

namespace dossync::app {

std::shared_ptr<wizard::ISchemePasswords> makeSecretServicePasswords();

}  // namespace dossync::app
