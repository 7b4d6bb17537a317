// Several duct solids into one STEP file: what a drawing's export writes (every ol_hvacSolid of the
// drawing as one AP214 file that other modelling tools open).
#pragma once

#include <string>
#include <vector>

#include "solid_body.h"

namespace vantry::solid {

// Writes every body of every solid, in world coordinates, to one AP214 STEP file. False, with
// error set, when there is no body at all or the file cannot be written.
bool writeStepFile(const std::vector<const SolidBodies *> &solids, const std::string &path,
                   std::string &error);

}  // namespace vantry::solid
