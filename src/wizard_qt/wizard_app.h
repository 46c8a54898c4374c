// Running the wizard with Qt: on the desktop over a host window, or offscreen to pictures.
//   withQtApplication  creates the one QApplication (offscreen: the "offscreen" platform unless
//                      QT_QPA_PLATFORM names another), installs the Qt host services and runs
//                      body inside it.
//   runWizardWindow    shows a host main window, makes it the component's MDIForm, registers
//                      the Qt wizard (each form given the host's hooks by setup) and calls
//                      openSynchForm; returns when the wizard closes.
//   renderScreenshots  drives a Qt wizard over the component's databases and Outlook store and
//                      writes PNG pictures of each step, and of the selection step filled from
//                      each direction and with contacts, and (given setup) of the dialog
//                      "Show what will change" opens; answers the files written.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace dossync {
class clsOutlookSynchronization;
}

namespace dossync::qt {

class QtWizard;

int withQtApplication(bool offscreen, const std::function<int()>& body);
void runWizardWindow(clsOutlookSynchronization& component,
                     std::function<void(QtWizard&)> setup = {});
std::vector<std::string> renderScreenshots(clsOutlookSynchronization& component,
                                           const std::string& dir,
                                           std::function<void(QtWizard&)> setup = {});

}  // namespace dossync::qt
