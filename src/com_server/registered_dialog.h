// The progress dialog of the host's message-box library, made by its ProgID
// ("kvdlgbox3.outlookDialog") where the library is registered on the machine.
//
// Its members are reached through its type information, not by our names for them: the ten
// settings (message, style, owner, starting value, maximum, bar shown, value, second value,
// cancelling allowed, number) are its first ten properties in the order its interface lists
// them, the owner put by reference; the value read and stepped during the run is the seventh.
// Its start notification is the event of its default source interface named StartProgress, or
// its first event; the work runs when the dialog raises it. Show and Close are called by name,
// and a Status property, when the dialog has one, takes the run's status line.
//
// Thread use: the host's single-threaded apartment.
#pragma once

#include <memory>

#include "interfaces/progress.h"

namespace dossync::com {

// A new dialog; nullptr when the ProgID is not registered. RuntimeError when it is, but the
// object cannot be made or does not describe the members above.
std::shared_ptr<IProgressDialog> registeredProgressDialog(const wchar_t* progId);

}  // namespace dossync::com
