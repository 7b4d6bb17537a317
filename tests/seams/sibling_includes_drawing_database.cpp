// Compiled with the sibling solid module's include roots by the seams test,
// which expects it to fail: the sibling sees the host's API, never the
// stand-in's drawing database.
#include "host/arx.h"
#include "db/db.h"
