// Compiled with the module's include roots by the seams test, which expects
// it to fail: the module sees the host's API, never the stand-in's session.
#include "host/arx.h"
#include "session/session.h"
