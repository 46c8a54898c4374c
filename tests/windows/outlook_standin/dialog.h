// A stand-in for the message-box library's progress dialog, "kvdlgbox3.outlookDialog" (tests
// only; run.sh registers it for the one test that wants it). Its members go by the DISPIDs of
// its type library (dialog_standin.idl, carried in outlook_standin.dll): ten settings, the
// value read back, Show, which raises StartProgress on the sink advised through its connection
// point, and Close. Every setting made before Show, then Show and Close (with the value then),
// is noted in dialogLog(), which Application.DialogLog answers.
// Thread use: the apartment's one thread.
#pragma once

#include <oaidl.h>
#include <windows.h>

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
