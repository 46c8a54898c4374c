// A request to stop the run under way: the driver ends its walk at the next record boundary,
// with what was done committed as at any commit point, and the report says the run was
// interrupted. Made by `dossync sync` on SIGINT or SIGTERM.
// Thread use: any, and signal handlers (a lock-free flag).
#pragma once

namespace dossync {

void requestRunStop();
bool runStopRequested();

}  // namespace dossync
