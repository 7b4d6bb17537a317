// Jigs: dragging entities under the cursor until a point, an angle, a
// distance or a keyword ends the drag.
#pragma once

#include "host/arx.h"
