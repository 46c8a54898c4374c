#include <iostream>

#include "app/cli.h"

int main(int argc, char** argv) {
  dossync::app::setUpProcess();
  return dossync::app::runCli(argc, argv, std::cout, std::cerr);
}
