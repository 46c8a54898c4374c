#include <iostream>

#include "app/cli.h"

int main(int argc, char** argv) { return dossync::app::runCli(argc, argv, std::cout, std::cerr); }
