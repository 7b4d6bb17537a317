// Appending a new entity to the current drawing's model space: the one routine every function that
// makes an entity (MText, leaders, duct solids) uses.
#pragma once

#include "host/arx.h"

namespace vantry::drawing {

// Appends entity (new, not in any database) to the model space of the current document's drawing,
// with the document locked for write around it. On success the entity is resident and still open
// for write: the caller takes its name and closes it. On failure an alert says which step failed
// ("Failed to get block table!", "Failed to get block table record!", "Failed to append entity!"
// with the host's status) and the entity is still the caller's, to delete.
bool AppendToModelSpace(AcDbEntity *entity);

}  // namespace vantry::drawing
