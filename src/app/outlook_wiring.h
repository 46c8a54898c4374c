// Which back end answers "Outlook.Application" for the command line: "--outlook vdir:DIR" (a
// profiles root of vCard folders); without it the vCard store under
// $XDG_DATA_HOME/dossync/outlook (or ~/.local/share/dossync/outlook).
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "outlook/object_model.h"

namespace dossync::app {

// The profiles root named by an --outlook value ("" for the default). Throws RuntimeError 5
// for a kind of store that is not known.
std::string vdirRoot(const std::string& outlookSpec);

// Registers the store with the platform as "Outlook.Application".
void registerOutlook(const std::string& outlookSpec);

// A logged-on session of the registered store, for the commands that work on it directly.
struct Session {
  std::shared_ptr<outlook::Application> application;
  std::shared_ptr<outlook::NameSpace> nameSpace;
};
Session openSession(const std::string& profile);

}  // namespace dossync::app
