#include <iostream>

#include "app/cli.h"
#include "app_wizard/wizard_command.h"

int main(int argc, char** argv) {
  dossync::app::setUpProcess();
  return dossync::app::runWizardProgram(argc, argv, std::cout, std::cerr);
}
