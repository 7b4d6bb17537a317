// One exploded face of a duct solid as the host's 3D face: the entity's explode and its faces in
// drawing files make them alike. The caller owns the new face.
#pragma once

#include "host/arx.h"
#include "solid_body.h"

inline AcDbFace *newFace(const vantry::solid::FacePiece &f) {
  auto at = [&](int i) { return AcGePoint3d(f.corners[i].x, f.corners[i].y, f.corners[i].z); };
  // Sides that are no feature edge are the host's invisible edges. A triangle repeats its third
  // corner as the fourth: its edge 2 has no length, and edge 3 closes it.
  if (f.count == 4)
    return new AcDbFace(at(0), at(1), at(2), at(3), f.edge[0], f.edge[1], f.edge[2], f.edge[3]);
  return new AcDbFace(at(0), at(1), at(2), f.edge[0], f.edge[1], false, f.edge[2]);
}
