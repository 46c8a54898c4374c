// The Outlook stand-in's late-bound objects (tests only): the part of Outlook's object model
// the tests and dossync's automation client use, through IDispatch, over any implementation of
// interfaces/object_model.h. Each call hands out a new wrapper; a look-up that finds nothing
// answers Nothing; a RuntimeError of the store reaches the caller as DISP_E_EXCEPTION. Of the
// stand-in's own: Application.GuardedReads counts this process's reads of what Outlook's guard
// asks the user about (e-mail addresses, notes); Application.DialogLog is dialog.h's log.
// Thread use: the apartment's one thread; liveObjects (atomic) is for DllCanUnloadNow.
#pragma once

#include <windows.h>
#include <oaidl.h>

#include <memory>

#include "interfaces/object_model.h"

namespace dossync::standin {

// A new Application object (reference count 1) over `app`.
IDispatch* newApplicationObject(std::shared_ptr<outlook::Application> app);

long liveObjects();

}  // namespace dossync::standin
