#include <sys/stat.h>

#include <iostream>

#include "app/cli.h"

int main(int argc, char** argv) {
  // Everything dossync writes holds client data or secrets (the synchronisation database and
  // its journal, reports, the CardDAV copy, drafts, the outbox, the mail account): readable by
  // its owner only, whatever the umask it was started with.
  ::umask(077);
  return dossync::app::runCli(argc, argv, std::cout, std::cerr);
}
