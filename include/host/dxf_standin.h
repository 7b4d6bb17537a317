// Custom entities in drawing files: the host's API for a class that other CAD programs do not know
// (part of host/arx.h).
//
// A module that registers a custom entity class registers a stand-in for it too. When a drawing is
// saved, each entity of the class is written as an INSERT of an anonymous block holding simple
// entities that any DXF reader draws, and the class's own data goes into an XRECORD in the INSERT's
// extension dictionary under the class's name. When a drawing is opened while the stand-in is
// registered, such an INSERT becomes the entity again (with the INSERT's handle, layer, colour and
// extended data) and its block is dropped. docs/dxf.md has the file layout.
//
// Callers: modules that define entity classes, on start-up (register) and unload (remove). The
// functions keep pointers only; the class descriptor must stay registered while its stand-in is.
#pragma once

#include <string>

#include "host/acge.h"
#include "host/arx.h"

// host/acdb.h defines these; it may be half-way through when this header is read.
class AcDbDxfFiler;
class AcDbEntity;

// Writes one entity of the class. Appends to `drawable` new entities (not in a database, in world
// coordinates) that draw it; the host owns them from then on and deletes them after the save. Puts
// the class's own data into `data` as group-code items: text 1-9 and 300-309 (at most 2049
// characters each), reals and points 10-59, integers 60-99 and 170-179, hexadecimal chunks 310. Any
// status but eOk fails the save, which then leaves the earlier file as it was.
typedef Acad::ErrorStatus (*AcDbDxfStandInWriter)(const AcDbEntity *entity, AcDbVoidPtrArray &drawable,
                                                  AcDbDxfFiler *data);
// Makes a new entity of the class from the data its writer put down (in the XRECORD's order). The
// entity is not in a database; the host takes it. Null, with *why set (why may be null), refuses it,
// and the open fails.
typedef AcDbEntity *(*AcDbDxfStandInReader)(const AcDbDxfFiler *data, std::wstring *why);

// Registers, or replaces, the stand-in of cls and of its derived classes that have none of their own.
// eNullObjectPointer when cls or a function is null.
Acad::ErrorStatus acdbRegisterDxfStandIn(AcRxClass *cls, AcDbDxfStandInWriter write,
                                         AcDbDxfStandInReader read);
// Removes it; eKeyNotFound when cls has none.
Acad::ErrorStatus acdbRemoveDxfStandIn(AcRxClass *cls);
