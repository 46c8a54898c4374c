#include <sys/stat.h>

#include <iostream>

#ifdef DOSSYNC_HAVE_MIMALLOC
#include <mimalloc.h>
#endif

#include "app/cli.h"

int main(int argc, char** argv) {
  // Everything dossync writes holds client data or secrets (the synchronisation database and
  // its journal, reports, the CardDAV copy, drafts, the outbox, the mail account): readable by
  // its owner only, whatever the umask it was started with.
  ::umask(077);
#ifdef DOSSYNC_HAVE_MIMALLOC
  // A run lets go of what its databases cached at every commit point (ten times a second) and
  // reads as much again right after: memory freed is kept a second before it goes back to the
  // system, rather than handed back and faulted in again at once.
  mi_option_set(mi_option_decommit_delay, 1000);
#endif
  return dossync::app::runCli(argc, argv, std::cout, std::cerr);
}
