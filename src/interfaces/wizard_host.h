// The wizard form as the component sees it: an object with one entry procedure. The component
// creates it by class name through the platform registry (the host registers which form
// answers "frmWizard"), so the core knows nothing of the form's toolkit.
#pragma once

#include "base/object.h"

namespace dossync {

class clsOutlookSynchronization;

inline constexpr const char* kWizardFormClass = "frmWizard";

class IWizardForm : public Object {
 public:
  // Runs the wizard modally for owner; returns when the form has been unloaded.
  virtual void startWizard(clsOutlookSynchronization& owner) = 0;
};

}  // namespace dossync
