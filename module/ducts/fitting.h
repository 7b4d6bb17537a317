// What every fitting function does around its geometry: making a solid, putting it into the
// drawing, and naming it in a result list.
#pragma once

#include "solid/hvac_solid.h"

namespace vantry::ducts {

// A new, empty solid that the caller owns until addToDrawing. Null, after a message on the command
// line, when the solid module is not loaded (the class is not registered).
ol_hvacSolid *newSolid();

// Appends the solid to the current drawing's model space and closes it; name receives its entity
// name. On failure (already told by an alert) the solid is deleted and false returned.
bool addToDrawing(ol_hvacSolid *solid, ads_name &name);
// The same for any new entity.
bool addToDrawingEntity(AcDbEntity *entity, ads_name &name);

// Appends (key . entity name) after tail and moves tail to the last node appended; with a null name,
// (key) (the key with nil), so a result keeps all its keys.
void appendNamePair(resbuf *&tail, const ACHAR *key, const int64_t *name);

}  // namespace vantry::ducts
