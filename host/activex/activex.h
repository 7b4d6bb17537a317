// ActiveX from LISP: the drawing's automation objects as the host's Visual
// LISP shows them (VLA-objects, variants, safearrays), the vla-* and vlax-*
// functions, and LISP data kept with the drawing (vlax-ldata-*).
//
// A VLA-object is a view of the drawing database, not a copy: it names an
// object by its drawing and handle, and every property read or written
// opens that object for the length of the call, so entget sees what
// ActiveX wrote and the other way round. The session installs the functions
// in every document's interpreter.
#pragma once

#include "db/db.h"
#include "lisp/lisp.h"

namespace vantry::host {

void installActiveXLisp(lisp::Interp &in);

// The object behind an entity name or the VLA-object of a drawing object,
// for the functions that take either (vlax-curve-*); false for anything else.
bool objectIdOfValue(const lisp::Value &v, AcDbObjectId &id);

}  // namespace vantry::host
