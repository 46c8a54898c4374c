// Outlook by automation: the object model (interfaces/object_model.h) over the real Outlook's
// objects, called late-bound through IDispatch by member name, as the component's original
// host code did. "Outlook.Application" is attached to when it runs (GetActiveObject) and
// created otherwise (CoCreateInstance through its ProgID); which of the two, and when Outlook is
// closed again, is the component's own business (platform::attachOrCreate).
//
// Items are told apart by their Class: a contact (40), a mail (43) or an appointment (26) gets
// its interface; anything else (a distribution list) is a plain Item. A look-up Outlook answers
// with an error (GetItemFromID of an unknown id) answers Nothing, as the interface says.
// Errors Outlook raises arrive as RuntimeErrors with Outlook's number and description.
// Thread use: the apartment's one thread, which has called CoInitialize.
#pragma once

#include <oaidl.h>

#include <memory>

#include "interfaces/object_model.h"

namespace dossync::outlook_com {

// The object model over an Application object (AddRef'd and held).
std::shared_ptr<outlook::Application> wrapApplication(IDispatch* application);

// Registers "Outlook.Application" with the platform: created and attached by automation.
void registerOutlookAutomation();

}  // namespace dossync::outlook_com
