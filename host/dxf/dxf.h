// Drawing files: the host's drawing database saved as and opened from ASCII
// drawing exchange files (DXF), release 2000 layout (AC1015), so that other
// CAD programs open what a script drew. docs/dxf.md describes the layout
// written, what is read, what is kept as read and what is left out.
//
// Callers: the session's save and open of documents (host/session/documents.cpp),
// the runner's --drawing/--save options, tests and benchmarks.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "host/acdb.h"

namespace vantry::host {

// Writes db as ASCII DXF to path. The file is written beside the target
// under a temporary name and renamed over the target only when complete, so
// a failed save leaves any earlier file as it was. Objects must not be open
// for write. On failure *error (when given) says why.
Acad::ErrorStatus saveDxf(AcDbDatabase *db, const std::string &path, std::wstring *error);

// Reads the drawing of path into `into`, replacing whatever it held (no
// object of it may be open; entity names of its old contents then name the
// new objects of the same handles). Handles are kept as the file gives them.
// A file that is damaged or cut short gives eDxfReadAborted (eFileNotFound or
// eFileAccessErr when it cannot be read) and *error names the line, e.g.
// "line 1234: expected a group code, found \"abc\""; `into` is then left
// untouched when the fault was found while reading, and holds a fresh empty
// drawing when the file was well formed but could not be taken in. On
// success *error lists what was dropped or repaired, one line each, naming
// the line ("line 12: dropped the CIRCLE: its data is not valid"), or is
// empty.
Acad::ErrorStatus openDxf(const std::string &path, AcDbDatabase *into, std::wstring *error);

// What the drawing keeps as it was read because the database does not
// model it, counted by kind ("6 ATTRIB, 2 DIMENSION; table records: 1
// VPORT; objects: 2 LAYOUT; 12 classes"); empty when nothing.
std::wstring describeKeptAsRead(AcDbDatabase *db);

// A custom entity class files itself as simple entities (drawable by any DXF
// reader) in an anonymous block, with one INSERT of that block in the
// entity's place; its own data goes in an XRECORD in the INSERT's extension
// dictionary under the class's name. Opening the file turns such an INSERT
// back into the custom entity (with the INSERT's handle, layer, colour and
// extended data) and drops its block.
struct DxfStandIn {
  // Appends the entities to draw (new, not database-resident; the writer owns
  // and deletes them; their coordinates are world coordinates) and writes the
  // class's own data as group-code items into data (strings 1..9 and
  // 300..309, reals 10..59, integers 60..99 and 170..179, binary 310 chunks
  // as hexadecimal text of at most 127 bytes). A status other than eOk fails
  // the save with that status.
  std::function<Acad::ErrorStatus(const AcDbEntity *, std::vector<AcDbEntity *> &drawable,
                                  AcDbDxfFiler &data)>
      write;
  // Makes a new entity (not yet in a database; the reader takes it) from the
  // data; null with *error set refuses it, which fails the open.
  std::function<AcDbEntity *(const AcDbDxfFiler &data, std::wstring *error)> read;
};

// Registers (or replaces) the stand-in of a class and of the classes derived
// from it that have none of their own. The descriptor must outlive the
// registration.
void registerDxfStandIn(AcRxClass *cls, DxfStandIn standIn);
void removeDxfStandIn(AcRxClass *cls);
// The stand-in for an object's class (walking up its parents), or null.
const DxfStandIn *findDxfStandIn(const AcRxClass *cls);
// The stand-in registered under a class name (the XRECORD's key), or null.
const DxfStandIn *findDxfStandIn(const std::wstring &className);

}  // namespace vantry::host
