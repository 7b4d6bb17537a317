// Appending a new entity to the current drawing's model space: the one routine every function that
// makes an entity (MText, leaders, duct solids) uses.
#pragma once

#include "host/arx.h"

namespace vantry::drawing {

// Appends entity (new, not in any database) to the model space of the current document's drawing,
// with that document locked for write around it. On success the entity is resident and still open
// for write: the caller takes its name and closes it. On failure an alert says which step failed
// ("Failed to get block table!", "Failed to get block table record!", "Failed to append entity!"
// with the host's status) and the entity is still the caller's. With no current document there is
// no block table to get, and nothing is locked.
bool AppendToModelSpace(AcDbEntity *entity);

// The tail of a LISP function that made entity and handed it to AppendToModelSpace, whatever that
// answered: the entity's name becomes the result when it has one, and the entity is let go of:
// closed when it is in a drawing, deleted when it is not. An entity the append refused is in no
// drawing and has no name, so the result stays nil and nothing is left behind.
void returnNewEntity(AcDbEntity *entity);

}  // namespace vantry::drawing
