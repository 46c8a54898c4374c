// The host's services reached by automation: the objects the host hands over are called
// late-bound, through IDispatch, by member name.
//
//   error service (errorClass)    EnterProcedure(location), LeaveProcedure(),
//                                 RecordError(number, description, source), ReportError(),
//                                 ChooseAction() -> 1 resume, 2 leave, 3 end the program
//   message box (MsgboxClass)     ShowMessage(text, style, owner, number) -> the button chosen
//                                 (a question is Yes when it answers 6, vbYes);
//                                 CreateProgressDialog() -> the progress dialog:
//   progress dialog               properties Message, Style, Owner (by reference), Minimum,
//                                 Maximum, ShowBar, Value, SecondaryValue, AllowCancel, Number,
//                                 Status; StartHandler (by reference) takes an object whose
//                                 StartProgress() the dialog calls once it is shown, and in
//                                 which the synchronisation runs; Show() returns when the work
//                                 is done; Close().
//   MDIForm                       kept and handed back as the owner of dialogs.
//
// A service call that fails is not the component's error: the error service's calls are
// dropped (ChooseAction then answers 2, leave), a message not shown answers 0; the progress
// dialog's failures are the calling procedure's errors (RuntimeError naming the member).
//
// Owners: the component passes itself, or the MDIForm, as the owner of a message or dialog;
// ownerDispatch gives the IDispatch the host knows for either (the component's COM object is
// registered with registerComponentObject for as long as it lives).
//
// registerHostClasses makes the platform answer the progress dialog class with the message-box
// library's own dialog where its ProgID is registered (registered_dialog.h), else with the one
// the current message box service makes, else with none: the run then goes on without a
// dialog and the error is recorded (RecordError, not reported); and the wizard form with the
// Win32 view, modal over the window of the host's MDIForm (its hWnd) when it has one.
// useWindowsUi gives the calling thread's apartment Windows' message pump and mouse pointer.
// Thread use: the host's single-threaded apartment.
#pragma once

#include <windows.h>
#include <oaidl.h>

#include <memory>
#include <string>
#include <vector>

#include "base/error.h"
#include "base/object.h"
#include "interfaces/services.h"

namespace dossync::com {

std::shared_ptr<IErrorService> errorServiceFor(IDispatch* service);
std::shared_ptr<IMessageBox> messageBoxFor(IDispatch* service);
// A host object kept by the component; Nothing for nullptr.
ObjectPtr hostObject(IDispatch* object);

void registerComponentObject(const Object* component, IDispatch* object);
void unregisterComponentObject(const Object* component);
// The object the host knows for an owner (not AddRef'd); nullptr for Nothing or an unknown one.
IDispatch* ownerDispatch(const ObjectPtr& owner);

// The items of a host's collection object: Item(1) .. Item(Count), as text.
std::vector<std::string> readHostCollection(IDispatch* collection);

void registerHostClasses();
void useWindowsUi();

}  // namespace dossync::com
