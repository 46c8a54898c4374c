// A stand-in for the message-box library's progress dialog, "kvdlgbox3.outlookDialog" (tests
// only), by the DISPIDs of its type library (dialog_standin.idl): ten settings, the value read
// back, Show (raising StartProgress on the advised sink) and Close. The settings made before
// Show, then Show and Close (with the value then), are noted in dialogLog().
// Thread use: the apartment's one thread.
#pragma once

#include <windows.h>
#include <oaidl.h>

#include <string>

namespace dossync::standin {

extern const CLSID kDialogClsid;

// A new dialog (reference count 1); nullptr when the type library cannot be loaded.
IDispatch* newDialogObject();
std::string dialogLog();
long liveDialogs();
// outlook_standin.dll's own path, which carries the dialog's type library (server.cpp).
std::wstring modulePath();

}  // namespace dossync::standin
