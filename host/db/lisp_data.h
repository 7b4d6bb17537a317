// Between the drawing database and the host's AutoLISP: entity names as LISP
// values and entity data lists (db_lisp_data.cpp), used by the entity and
// table built-ins (db_lisp_entities.cpp, db_lisp_tables.cpp).
#pragma once

#include <string>
#include <vector>

#include "db/db.h"
#include "lisp/value.h"

namespace vantry::host {

// The entity name of an id (nil for a null id).
lisp::Value enameValue(AcDbObjectId id);
// The id of an entity name; false (and a null id) for anything else or a
// name of nothing.
bool idFromValue(const lisp::Value &v, AcDbObjectId &id);
// As idFromValue, but a value that is not an entity name at all is a LISP
// error ("bad argument type: lentityp").
AcDbObjectId entityArg(lisp::Interp &in, const lisp::Value &v);

// An object's data list: (-1 . name) (0 . type) then its fields; with apps,
// the extended data of the applications whose names match one of the
// wild-card patterns, as (-3 (app ...) ...).
lisp::Value entityData(AcDbObject *obj, const std::vector<std::wstring> *apps);

// What a data list says besides its fields.
struct ParsedData {
  AcDbObjectId self;        // -1
  std::wstring type;        // 0, upper case
  bool hasXData = false;    // -3 present
  resbuf *xdata = nullptr;  // -3 as a setXData chain (owned)
  ParsedData() = default;
  ParsedData(const ParsedData &) = delete;
  ParsedData &operator=(const ParsedData &) = delete;
  ~ParsedData() { acutRelRb(xdata); }
};
// Reads a data list into fields (f) and the rest (parsed). False when the
// list is malformed: not a list of groups, or a value of the wrong kind for
// its code.
bool parseEntityData(const lisp::Value &list, AcDbDxfFiler &f, ParsedData &parsed);

}  // namespace vantry::host
