// The identifiers of the type library (LIBID, IIDs, CLSIDs), defined once for whoever links
// kvoutlookdx_guids. Not globbed with the server's sources (.cc) so that clients can link it.
#include <initguid.h>

#include "kvoutlookdx_h.h"
