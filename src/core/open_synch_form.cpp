// openSynchForm: the wizard, created through the platform registry so that the core does not
// depend on the form or its toolkit (the host registers what answers "frmWizard").
#include "base/platform.h"
#include "core/apartment.h"
#include "core/synchronization.h"
#include "interfaces/wizard_host.h"

namespace dossync {

void clsOutlookSynchronization::openSynchForm() {
  ErrorFrame f(std::string(kSyncLocation) + "openSyncForm");
  apartment().currentComponent = this;
  std::shared_ptr<IWizardForm> form;
  f.step([&] {
    form = platform::create<IWizardForm>(kWizardFormClass);
    apartment().currentWizard = form;
  });
  f.step([&] {
    if (form) form->startWizard(*this);
  });
  apartment().currentWizard.reset();
  form.reset();
}

}  // namespace dossync
