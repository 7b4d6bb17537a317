// What every fitting function does around its geometry: making a solid, putting it into the
// drawing, and naming it in a result list.
#pragma once

#include <memory>

#include "solid/hvac_solid.h"

namespace vantry::ducts {

// How a new entity made here is let go of: closed when it has joined a database (the database owns
// it then), deleted when it has not.
struct LetGo {
  void operator()(AcDbEntity *entity) const;
};
// The holder of a new entity: a fitting function can return from anywhere, before or after
// addToDrawing, without leaking a solid or leaving one open.
using EntityPtr = std::unique_ptr<AcDbEntity, LetGo>;
using SolidPtr = std::unique_ptr<ol_hvacSolid, LetGo>;

// The smallest size, thickness or length the solid models (it joins faces nearer than a tenth of it):
// a hanger whose band or strut is thinner is degenerate and makes no solid.
inline constexpr double kSmallestSize = 1e-3;

// A new, empty solid. Null, after a message on the command line, when the solid module is not loaded
// (the class is not registered).
SolidPtr newSolid();

// Says on the command line why a fitting's own geometry makes no solid: "\nNo duct solid made:
// <why>.\n" (runs that do not meet, a rolled elbow, an elbow longer than its runs ...).
void tellNoSolid(const char *why);
// A refusal by the solid itself: nil with no message, as the product's fittings answer it (the
// modeller's reason stays in the solid's lastError). False, for a caller to return.
bool refused(const ol_hvacSolid &solid);

// Appends the entity to the current drawing's model space and closes it; name receives its entity
// name. On failure (already told by an alert) the entity is deleted and false returned.
bool addToDrawing(EntityPtr entity, ads_name &name);

// The end of a fitting function that makes one solid: adds it to the drawing and answers
// ((key . name)); when it cannot be added, the function's answer stays nil.
void answerSolid(SolidPtr solid, const ACHAR *key);

}  // namespace vantry::ducts
