// command, command-s and vl-cmdf: the host's commands driven from LISP.
//
// The arguments are read as the command line would take them, one answer
// each: a string (a command name, an option, a number or point as typed),
// a number, a point list, an entity name or a selection set; nil and ""
// are Enter. pause hands that answer to the person (the next queued
// input). A command that runs out of answers ends as Enter would end it.
//
// A headless host has a set of core commands: drawing (LINE, CIRCLE, ARC,
// PLINE, POINT, TEXT, MTEXT, -INSERT), editing (ERASE, MOVE, COPY, ROTATE,
// SCALE, MIRROR, CHPROP, EXPLODE, -BLOCK), tables (-LAYER, -STYLE, -PURGE),
// settings (-OSNAP), UNDO and U, files (QSAVE, SAVEAS), and ZOOM, REGEN,
// REDRAW (nothing to show). The leading "_" and "." are accepted. Any other
// name is an unknown command, as the host answers it. Entities are made
// through entmake, as a LISP program would make them, so they take the
// drawing's current layer (CLAYER), colour (CECOLOR), linetype (CELTYPE),
// lineweight and linetype scale as entmake gives them; text takes the text
// style and size (TEXTSTYLE, TEXTSIZE).
//
// A point answer may be preceded by an object snap override ("_end",
// "int", "non" ...), which snaps the next point; running snaps (OSMODE) are
// not applied to points a program gives, so a point arrives as given.
// At "Select objects:" the answers are entity names, selection sets,
// points (a pick), "L", "P", "ALL", "W"/"C" with two corners, "WP"/"CP"
// with points up to Enter, and "R"/"A" to remove or add; Enter ends it.
#include <algorithm>
#include <cmath>
#include <deque>
#include <filesystem>
#include <set>

#include "db/db.h"
#include "db/lisp_data.h"
#include "select/select.h"
#include "session/internal.h"
#include "session/session.h"

namespace vantry::host {
namespace {

using lisp::Interp;
using lisp::Type;
using lisp::Value;

Session &session() {
  return Session::get();
}

std::wstring stringVar(const wchar_t *name) {
  resbuf rb{};
  if (acedGetVar(name, &rb) != RTNORM || rb.restype != RTSTR) return L"";
  std::wstring s = rb.resval.rstring;
  acutDelString(rb.resval.rstring);
  return s;
}
double realVar(const wchar_t *name, double fallback) {
  resbuf rb{};
  if (acedGetVar(name, &rb) != RTNORM) return fallback;
  return rb.restype == RTREAL ? rb.resval.rreal : rb.restype == RTSHORT ? rb.resval.rint : fallback;
}

// Failure inside a command: the command ends; the rest of the answers are
// not read as commands.
struct CommandFailed {};

class Runner {
 public:
  Runner(Interp &in, const Value *args, int nargs) : in_(in) {
    for (int i = 0; i < nargs; ++i) answers_.push_back(args[i]);
  }

  // Runs every command in the answers. False when one failed.
  bool run() {
    while (!answers_.empty()) {
      Value v = take();
      if (v.isNil() || (v.type() == Type::Str && lisp::str(v).empty())) continue;  // Enter at the prompt
      if (v.type() != Type::Str) {
        session().print(L"\nCommand: " + in_.toString(v, false) + L"\nUnknown command \"" +
                        in_.toString(v, false) + L"\".  Press F1 for help.\n");
        return false;
      }
      std::wstring name = text::upcase(lisp::str(v));
      while (!name.empty() && (name[0] == L'_' || name[0] == L'.')) name.erase(0, 1);
      session().print(L"\nCommand: " + lisp::str(v) + L"\n");
      AcDbDatabase *db = session().current()->database();
      // UNDO and U go through the record; every other command is a step of it.
      bool step = name != L"UNDO" && name != L"U";
      if (step) undoCommandStarts(db, name);
      bool ok = true;
      try {
        if (!dispatch(name)) {
          session().print(L"Unknown command \"" + name + L"\".  Press F1 for help.\n");
          ok = false;
        }
      } catch (const CommandFailed &) {
        ok = false;
      }
      if (step) undoCommandEnds(db);
      undoPublishState(db);
      if (!ok) return false;
    }
    return true;
  }

 private:
  bool dispatch(const std::wstring &name) {
    if (name == L"LINE") return line(), true;
    if (name == L"PLINE") return pline(), true;
    if (name == L"CIRCLE") return circle(), true;
    if (name == L"ARC") return arc(), true;
    if (name == L"MTEXT") return mtext(), true;
    if (name == L"-LAYER") return layer(), true;
    if (name == L"-INSERT" || name == L"INSERT") return insert(), true;
    if (name == L"ERASE") return erase(), true;
    if (name == L"UNDO") return undo(), true;
    if (name == L"U") return undoBack(session().current()->database(), 1), true;
    if (name == L"POINT") return point(), true;
    if (name == L"TEXT" || name == L"-TEXT" || name == L"DTEXT") return textCommand(), true;
    if (name == L"MOVE") return transform(Edit::Move), true;
    if (name == L"COPY") return transform(Edit::Copy), true;
    if (name == L"ROTATE") return transform(Edit::Rotate), true;
    if (name == L"SCALE") return transform(Edit::Scale), true;
    if (name == L"MIRROR") return transform(Edit::Mirror), true;
    if (name == L"CHPROP") return chprop(), true;
    if (name == L"EXPLODE") return explode(), true;
    if (name == L"-BLOCK" || name == L"BLOCK") return block(), true;
    if (name == L"-PURGE" || name == L"PURGE") return purge(), true;
    if (name == L"-STYLE" || name == L"STYLE") return style(), true;
    if (name == L"-OSNAP" || name == L"OSNAP") return osnapCommand(), true;
    if (name == L"QSAVE" || name == L"SAVE" || name == L"SAVEAS") return saveCommand(name), true;
    if (name == L"ZOOM" || name == L"REGEN" || name == L"REDRAW") return viewCommand(name), true;
    return false;
  }

  // --- Answers

  Value take() {
    Value v = answers_.front();
    answers_.pop_front();
    if (v.type() == Type::Str && lisp::str(v) == L"\\") return fromPerson();
    return v;
  }
  bool more() const { return !answers_.empty(); }

  // The person's answer for a pause: text, a point, Enter; a cancel ends
  // the command.
  Value fromPerson() {
    InputItem item = session().nextInput();
    switch (item.kind) {
      case InputItem::Point:
      case InputItem::Pick: {
        lisp::ListBuilder b;
        for (double c : item.pt) b.add(Value::real(c));
        return b.take();
      }
      case InputItem::Text:
        return lisp::makeString(item.text);
      case InputItem::Empty:
        return Value();
      case InputItem::Cancel:
        session().print(L"*Cancel*\n");
        throw CommandFailed{};
    }
    return Value();
  }

  static bool isEnter(const Value &v) { return v.isNil() || (v.type() == Type::Str && lisp::str(v).empty()); }

  // A point answer: a list of 2 or 3 numbers, or "x,y[,z]" typed; or an
  // object snap override followed by the point it snaps.
  bool asPoint(const Value &v, AcGePoint3d &p) {
    if (v.type() == Type::Str && more()) {
      std::wstring k = lisp::str(v);
      int bits = k.find(L',') == std::wstring::npos ? osnapBits(k) : -1;
      if (bits >= 0 && !k.empty()) {
        if (!asPoint(take(), p)) return false;
        AcGePoint3d snapped;
        resbuf rb{};
        AcGePoint3d from = last_;
        if (acedGetVar(L"LASTPOINT", &rb) == RTNORM && rb.restype == RT3DPOINT)
          from = AcGePoint3d(rb.resval.rpoint[0], rb.resval.rpoint[1], rb.resval.rpoint[2]);
        if (bits > 0) {
          if (!osnapPoint(in_, p, bits, &from, snapped)) {
            session().print(L"No " + text::upcase(k) + L" snap point found near the point.\n");
            return false;
          }
          p = snapped;
        }
        return true;
      }
    }
    if (v.isCons()) {
      std::vector<Value> xyz = lisp::listToVector(v);
      if (xyz.size() < 2 || xyz.size() > 3) return false;
      for (const Value &c : xyz)
        if (!c.isNumber()) return false;
      p = AcGePoint3d(xyz[0].number(), xyz[1].number(), xyz.size() == 3 ? xyz[2].number() : 0.0);
      return true;
    }
    if (v.type() == Type::Str) {
      double x, y, z = 0;
      wchar_t tail;
      int n = swscanf(lisp::str(v).c_str(), L"%lf,%lf,%lf%lc", &x, &y, &z, &tail);
      if (n == 2 || n == 3) {
        p = AcGePoint3d(x, y, z);
        return true;
      }
    }
    return false;
  }
  bool asNumber(const Value &v, double &d) {
    if (v.isNumber()) {
      d = v.number();
      return true;
    }
    if (v.type() != Type::Str) return false;
    wchar_t *end = nullptr;
    d = std::wcstod(lisp::str(v).c_str(), &end);
    return end != lisp::str(v).c_str() && *end == 0;
  }
  // An option as typed, in capitals; a leading "_" (the language-neutral
  // form) is dropped.
  std::wstring keyword(const Value &v) {
    if (v.type() != Type::Str) return L"";
    std::wstring k = text::upcase(lisp::str(v));
    if (!k.empty() && k[0] == L'_') k.erase(0, 1);
    return k;
  }

  // An answer that does not fit the prompt: the host says so and asks
  // again; with no person to ask again, the command ends.
  [[noreturn]] void invalid(const wchar_t *what) {
    session().print(std::wstring(L"Invalid ") + what + L".\n*Cancel*\n");
    throw CommandFailed{};
  }

  // --- Making entities

  static Value pointGroup(int code, const AcGePoint3d &p) {
    lisp::ListBuilder b;
    b.add(Value::real(p.x));
    b.add(Value::real(p.y));
    b.add(Value::real(p.z));
    return lisp::cons(Value::integer(code), b.take());
  }
  // Makes the entity through entmake. A kind the drawing database does
  // not keep says so and ends the command.
  void make(lisp::ListBuilder &data, const wchar_t *kind = nullptr) {
    Value list = data.take();
    Value made = in_.apply(Value(in_.intern(L"ENTMAKE")), &list, 1);
    if (made.isNil() && kind) {
      session().print(std::wstring(L"This drawing database could not make the ") + kind + L" entity.\n*Cancel*\n");
      throw CommandFailed{};
    }
    if (made.isNil()) invalid(L"entity");
    setLastPoint();
  }
  void setLastPoint() {
    resbuf rb{};
    rb.restype = RT3DPOINT;
    rb.resval.rpoint[0] = last_.x, rb.resval.rpoint[1] = last_.y, rb.resval.rpoint[2] = last_.z;
    setSystemValue(L"LASTPOINT", rb);
  }

  void makeLine(const AcGePoint3d &a, const AcGePoint3d &b) {
    lisp::ListBuilder d;
    d.add(lisp::cons(Value::integer(0), lisp::makeString(L"LINE")));
    d.add(pointGroup(10, a));
    d.add(pointGroup(11, b));
    last_ = b;
    make(d);
  }

  // --- Commands

  void line() {
    std::vector<AcGePoint3d> pts;
    while (more()) {
      Value v = take();
      if (isEnter(v)) break;
      std::wstring k = keyword(v);
      AcGePoint3d p;
      if ((k == L"C" || k == L"CLOSE") && pts.size() >= 3) {
        makeLine(pts.back(), pts.front());
        break;
      }
      if (!asPoint(v, p)) invalid(L"point");
      if (!pts.empty()) makeLine(pts.back(), p);
      pts.push_back(p);
    }
  }

  void pline() {
    std::vector<AcGePoint3d> pts;
    bool closed = false;
    while (more()) {
      Value v = take();
      if (isEnter(v)) break;
      std::wstring k = keyword(v);
      AcGePoint3d p;
      if ((k == L"C" || k == L"CL" || k == L"CLOSE") && pts.size() >= 2) {
        closed = true;
        break;
      }
      if (!asPoint(v, p)) invalid(L"point");
      pts.push_back(p);
    }
    if (pts.size() < 2) return;
    lisp::ListBuilder d;
    d.add(lisp::cons(Value::integer(0), lisp::makeString(L"LWPOLYLINE")));
    d.add(lisp::cons(Value::integer(100), lisp::makeString(L"AcDbEntity")));
    d.add(lisp::cons(Value::integer(100), lisp::makeString(L"AcDbPolyline")));
    d.add(lisp::cons(Value::integer(90), Value::integer(int32_t(pts.size()))));
    d.add(lisp::cons(Value::integer(70), Value::integer(closed ? 1 : 0)));
    for (const AcGePoint3d &p : pts) {
      lisp::ListBuilder xy;
      xy.add(Value::real(p.x));
      xy.add(Value::real(p.y));
      d.add(lisp::cons(Value::integer(10), xy.take()));
    }
    last_ = pts.back();
    make(d);
  }

  void circle() {
    AcGePoint3d c, p;
    if (!more() || !asPoint(take(), c)) invalid(L"point");
    if (!more()) return;
    Value v = take();
    double r = 0;
    std::wstring k = keyword(v);
    if (k == L"D" || k == L"DIAMETER") {
      if (!more() || !asNumber(take(), r)) invalid(L"diameter");
      r /= 2;
    } else if (asPoint(v, p)) {
      r = c.distanceTo(p);
    } else if (!asNumber(v, r)) {
      invalid(L"radius");
    }
    if (!(r > 0)) invalid(L"radius");
    lisp::ListBuilder d;
    d.add(lisp::cons(Value::integer(0), lisp::makeString(L"CIRCLE")));
    d.add(pointGroup(10, c));
    d.add(lisp::cons(Value::integer(40), Value::real(r)));
    last_ = c;
    make(d);
  }

  // ARC through three points.
  void arc() {
    AcGePoint3d a, b, c;
    for (AcGePoint3d *p : {&a, &b, &c})
      if (!more() || !asPoint(take(), *p)) invalid(L"point");
    double ax = a.x, ay = a.y, bx = b.x, by = b.y, cx = c.x, cy = c.y;
    double den = 2 * (ax * (by - cy) + bx * (cy - ay) + cx * (ay - by));
    if (std::fabs(den) < 1e-12) invalid(L"arc: the points are in line");
    double ux = ((ax * ax + ay * ay) * (by - cy) + (bx * bx + by * by) * (cy - ay) + (cx * cx + cy * cy) * (ay - by)) / den;
    double uy = ((ax * ax + ay * ay) * (cx - bx) + (bx * bx + by * by) * (ax - cx) + (cx * cx + cy * cy) * (bx - ax)) / den;
    double r = std::hypot(ax - ux, ay - uy);
    double a0 = std::atan2(ay - uy, ax - ux), a2 = std::atan2(cy - uy, cx - ux);
    bool ccw = den > 0;  // the turn a -> b -> c
    double start = ccw ? a0 : a2, end = ccw ? a2 : a0;
    auto deg = [](double x) { return std::fmod(x * 180 / M_PI + 720, 360); };
    lisp::ListBuilder d;
    d.add(lisp::cons(Value::integer(0), lisp::makeString(L"ARC")));
    d.add(pointGroup(10, AcGePoint3d(ux, uy, a.z)));
    d.add(lisp::cons(Value::integer(40), Value::real(r)));
    d.add(lisp::cons(Value::integer(50), Value::real(deg(start))));
    d.add(lisp::cons(Value::integer(51), Value::real(deg(end))));
    last_ = c;
    make(d);
  }

  // MTEXT corner [options] opposite-corner text lines... "" : the text is
  // the lines joined with paragraph breaks.
  void mtext() {
    AcGePoint3d a, b;
    if (!more() || !asPoint(take(), a)) invalid(L"point");
    double height = realVar(L"TEXTSIZE", 0.2);
    while (more()) {
      Value v = take();
      if (asPoint(v, b)) break;
      std::wstring k = keyword(v);
      if ((k == L"H" || k == L"HEIGHT") && more()) {
        if (!asNumber(take(), height)) invalid(L"height");
        continue;
      }
      invalid(L"point");
    }
    std::wstring contents;
    while (more()) {
      Value v = take();
      if (isEnter(v)) break;
      if (v.type() != Type::Str) invalid(L"text");
      if (!contents.empty()) contents += L"\\P";
      contents += lisp::str(v);
    }
    lisp::ListBuilder d;
    d.add(lisp::cons(Value::integer(0), lisp::makeString(L"MTEXT")));
    d.add(lisp::cons(Value::integer(100), lisp::makeString(L"AcDbEntity")));
    d.add(lisp::cons(Value::integer(100), lisp::makeString(L"AcDbMText")));
    d.add(pointGroup(10, a));
    d.add(lisp::cons(Value::integer(40), Value::real(height)));
    d.add(lisp::cons(Value::integer(41), Value::real(std::fabs(b.x - a.x))));
    d.add(lisp::cons(Value::integer(1), lisp::makeString(contents)));
    d.add(lisp::cons(Value::integer(7), lisp::makeString(stringVar(L"TEXTSTYLE"))));
    last_ = a;
    make(d);
  }

  // -INSERT name point [xscale [yscale [rotation]]]: Enter keeps 1, the X
  // scale and 0 degrees. The block must be defined in the drawing.
  void insert() {
    if (!more()) invalid(L"block name");
    Value n = take();
    if (n.type() != Type::Str) invalid(L"block name");
    std::wstring name = lisp::str(n);
    AcDbBlockTable *table = nullptr;
    bool defined = session().current()->database()->getBlockTable(table, AcDb::kForRead) == Acad::eOk &&
                   table->has(name.c_str());
    if (table) table->close();
    if (!defined) {
      session().print(L"Block \"" + name + L"\" not found.\n*Invalid*\n");
      throw CommandFailed{};
    }
    AcGePoint3d at;
    if (!more() || !asPoint(take(), at)) invalid(L"point");
    double sx = 1, sy = 0, rot = 0;
    bool haveY = false;
    if (more()) {
      Value v = take();
      if (!isEnter(v) && !asNumber(v, sx)) invalid(L"scale factor");
    }
    if (more()) {
      Value v = take();
      if (!isEnter(v)) {
        if (!asNumber(v, sy)) invalid(L"scale factor");
        haveY = true;
      }
    }
    if (!haveY) sy = sx;
    if (more()) {
      Value v = take();
      if (!isEnter(v) && !asNumber(v, rot)) invalid(L"rotation angle");
    }
    lisp::ListBuilder d;
    d.add(lisp::cons(Value::integer(0), lisp::makeString(L"INSERT")));
    d.add(lisp::cons(Value::integer(2), lisp::makeString(name)));
    d.add(pointGroup(10, at));
    d.add(lisp::cons(Value::integer(41), Value::real(sx)));
    d.add(lisp::cons(Value::integer(42), Value::real(sy)));
    d.add(lisp::cons(Value::integer(43), Value::real(sx)));
    d.add(lisp::cons(Value::integer(50), Value::real(rot * M_PI / 180)));
    last_ = at;
    make(d);
  }

  // -LAYER: options until Enter.
  void layer() {
    AcDbDatabase *db = session().current()->database();
    while (more()) {
      Value v = take();
      if (isEnter(v)) break;
      std::wstring k = keyword(v);
      auto names = [&]() {
        std::vector<std::wstring> out;
        if (!more()) invalid(L"layer name");
        Value n = take();
        if (n.type() != Type::Str) invalid(L"layer name");
        std::wstring all = lisp::str(n);
        size_t start = 0;
        while (start <= all.size()) {
          size_t end = all.find(L',', start);
          if (end == std::wstring::npos) end = all.size();
          if (end > start) out.push_back(all.substr(start, end - start));
          start = end + 1;
        }
        return out;
      };
      auto each = [&](const std::vector<std::wstring> &list, bool create, auto change) {
        AcDbLayerTable *table = nullptr;
        if (db->getLayerTable(table, AcDb::kForWrite) != Acad::eOk) invalid(L"layer table");
        for (const std::wstring &name : list) {
          AcDbLayerTableRecord *rec = nullptr;
          if (table->getAt(name.c_str(), rec, AcDb::kForWrite) != Acad::eOk) {
            if (!create) {
              session().print(L"No matching layer names found.\n");
              continue;
            }
            rec = new AcDbLayerTableRecord();
            rec->setName(name.c_str());
            AcDbObjectId id;
            if (table->add(id, rec) != Acad::eOk) {
              delete rec;
              table->close();
              invalid(L"layer name");
            }
          }
          change(rec);
          rec->close();
        }
        table->close();
      };
      auto nothing = [](AcDbLayerTableRecord *) {};
      if (k == L"M" || k == L"MAKE") {
        std::vector<std::wstring> n = names();
        each(n, true, nothing);
        setSystemString(L"CLAYER", n.front());
      } else if (k == L"S" || k == L"SET") {
        std::vector<std::wstring> n = names();
        AcDbLayerTable *table = nullptr;
        bool exists = db->getLayerTable(table, AcDb::kForRead) == Acad::eOk && table->has(n.front().c_str());
        if (table) table->close();
        if (!exists) {
          session().print(L"Cannot find layer \"" + n.front() + L"\".\n");
          continue;
        }
        setSystemString(L"CLAYER", n.front());
      } else if (k == L"N" || k == L"NEW") {
        each(names(), true, nothing);
      } else if (k == L"C" || k == L"COLOR") {
        double index = 0;
        if (!more() || !asNumber(take(), index) || index < 1 || index > 255) invalid(L"color");
        each(names(), false, [&](AcDbLayerTableRecord *r) {
          AcCmColor c;
          c.setColorIndex(Adesk::UInt16(index));
          r->setColor(c);
        });
      } else if (k == L"ON") {
        each(names(), false, [](AcDbLayerTableRecord *r) { r->setIsOff(false); });
      } else if (k == L"OFF") {
        each(names(), false, [](AcDbLayerTableRecord *r) { r->setIsOff(true); });
      } else if (k == L"F" || k == L"FREEZE") {
        each(names(), false, [](AcDbLayerTableRecord *r) { r->setIsFrozen(true); });
      } else if (k == L"T" || k == L"THAW") {
        each(names(), false, [](AcDbLayerTableRecord *r) { r->setIsFrozen(false); });
      } else if (k == L"LO" || k == L"LOCK") {
        each(names(), false, [](AcDbLayerTableRecord *r) { r->setIsLocked(true); });
      } else if (k == L"U" || k == L"UNLOCK") {
        each(names(), false, [](AcDbLayerTableRecord *r) { r->setIsLocked(false); });
      } else {
        invalid(L"option keyword");
      }
    }
  }

  // ERASE: "Select objects:" as the other edits take it (entity names,
  // selection sets, picks, Last, ALL, windows ...); objects on locked
  // layers are left out. Each is erased as entdel erases it.
  void erase() {
    for (AcDbObjectId id : selectObjects()) {
      Value e = enameValue(id);
      in_.apply(Value(in_.intern(L"ENTDEL")), &e, 1);
    }
  }

  // UNDO: "Enter the number of operations to undo or
  // [Auto/Control/BEgin/End/Mark/Back] <1>:". Enter undoes one step. Back with
  // no mark asks "This will undo everything. OK? <Y>" first. Auto and Control
  // take their setting and change nothing (the record is always whole).
  void undo() {
    AcDbDatabase *db = session().current()->database();
    Value v = more() ? take() : Value();
    std::wstring k = keyword(v);
    double count = 1;
    if (k == L"M" || k == L"MARK") return undoMark(db);
    if (k == L"BE" || k == L"BEGIN") return undoBegin(db);
    if (k == L"E" || k == L"END") return undoEnd(db);
    if (k == L"A" || k == L"AUTO" || k == L"C" || k == L"CONTROL") {
      if (more()) take();
      return;
    }
    if (k == L"B" || k == L"BACK") {
      if (!undoHasMark(db)) {
        session().print(L"This will undo everything. OK? <Y>: ");
        std::wstring yes = more() ? keyword(take()) : L"";
        session().print(yes + L"\n");
        if (yes == L"N" || yes == L"NO") return;
      }
      return undoBack(db, -1);
    }
    if (!isEnter(v) && (!asNumber(v, count) || count < 1 || count != std::floor(count)))
      invalid(L"option keyword");
    undoBack(db, int(std::min(count, 32767.0)));
  }

  // ZOOM, REGEN, REDRAW: there is no screen; their answers are read and
  // passed over.
  void viewCommand(const std::wstring &name) {
    if (name != L"ZOOM") return;
    while (more()) {
      Value v = take();
      if (isEnter(v)) break;
      std::wstring k = keyword(v);
      if (k == L"E" || k == L"EXTENTS" || k == L"A" || k == L"ALL" || k == L"P" || k == L"PREVIOUS") break;
      if (k == L"W" || k == L"WINDOW") {
        if (more()) take();
        if (more()) take();
        break;
      }
    }
  }

  // --- Selection

  // The members of a selection set value.
  std::vector<AcDbObjectId> members(Value ss) {
    std::vector<AcDbObjectId> out;
    if (ss.type() != Type::Pickset) return out;
    Value n = in_.apply(Value(in_.intern(L"SSLENGTH")), &ss, 1);
    for (int32_t i = 0; i < (n.isNumber() ? int32_t(n.number()) : 0); ++i) {
      Value args[2] = {ss, Value::integer(i)};
      AcDbObjectId id;
      if (idFromValue(in_.apply(Value(in_.intern(L"SSNAME")), args, 2), id)) out.push_back(id);
    }
    return out;
  }
  std::vector<AcDbObjectId> ssget(std::vector<Value> args) {
    return members(in_.apply(Value(in_.intern(L"SSGET")), args.data(), int(args.size())));
  }
  static Value pointValue(const AcGePoint3d &p) {
    lisp::ListBuilder b;
    b.add(Value::real(p.x));
    b.add(Value::real(p.y));
    b.add(Value::real(p.z));
    return b.take();
  }
  AcGePoint3d needPoint(const wchar_t *what = L"point") {
    AcGePoint3d p;
    if (!more() || !asPoint(take(), p)) invalid(what);
    return p;
  }

  // "Select objects:" answered from the arguments up to Enter. Objects on
  // locked layers are left out, as the host leaves them out of edits.
  std::vector<AcDbObjectId> selectObjects() {
    std::vector<AcDbObjectId> chosen;
    bool removing = false;
    while (more()) {
      Value v = take();
      if (isEnter(v)) break;
      std::wstring k = keyword(v);
      std::vector<AcDbObjectId> got;
      AcDbObjectId id;
      AcGePoint3d p;
      if (v.type() == Type::Ename) {
        if (idFromValue(v, id)) got.push_back(id);
      } else if (v.type() == Type::Pickset) {
        got = members(v);
      } else if (k == L"L" || k == L"LAST") {
        got = ssget({lisp::makeString(L"_L")});
      } else if (k == L"P" || k == L"PREVIOUS") {
        got = select::previous();
      } else if (k == L"ALL") {
        got = ssget({lisp::makeString(L"_A")});
      } else if (k == L"W" || k == L"WINDOW" || k == L"C" || k == L"CROSSING" || k == L"BOX") {
        AcGePoint3d a = needPoint(), b = needPoint();
        bool crossing = k == L"C" || k == L"CROSSING" || (k == L"BOX" && b.x < a.x);
        got = ssget({lisp::makeString(crossing ? L"_C" : L"_W"), pointValue(a), pointValue(b)});
      } else if (k == L"WP" || k == L"WPOLYGON" || k == L"CP" || k == L"CPOLYGON") {
        lisp::ListBuilder pts;
        int n = 0;
        while (more()) {
          Value q = take();
          if (isEnter(q)) break;
          if (!asPoint(q, p)) invalid(L"point");
          pts.add(pointValue(p)), ++n;
        }
        if (n < 3) invalid(L"polygon");
        got = ssget({lisp::makeString(k[0] == L'W' ? L"_WP" : L"_CP"), pts.take()});
      } else if (k == L"R" || k == L"REMOVE") {
        removing = true;
        continue;
      } else if (k == L"A" || k == L"ADD") {
        removing = false;
        continue;
      } else if (asPoint(v, p)) {
        got = ssget({pointValue(p)});
      } else {
        session().print(L"*Invalid selection*\nExpects a point or "
                        L"Window/Last/Crossing/BOX/ALL/Fence/WPolygon/CPolygon/Group/Add/Remove/Multiple/"
                        L"Previous/Undo/AUto/SIngle\n");
        continue;
      }
      int locked = 0, changed = 0;
      for (AcDbObjectId e : got) {
        auto at = std::find(chosen.begin(), chosen.end(), e);
        if (removing) {
          if (at != chosen.end()) chosen.erase(at), ++changed;
        } else if (at == chosen.end()) {
          if (onLockedLayer(e))
            ++locked;
          else
            chosen.push_back(e), ++changed;
        }
      }
      std::wstring said = std::to_wstring(got.size()) + L" found";
      if (removing) said += L", " + std::to_wstring(changed) + L" removed";
      session().print(said + L", " + std::to_wstring(chosen.size()) + L" total\n");
      if (locked) session().print(std::to_wstring(locked) + L" were on a locked layer.\n");
    }
    select::setPrevious(chosen);
    return chosen;
  }
  static bool onLockedLayer(AcDbObjectId id) {
    AcDbEntity *ent = nullptr;
    if (acdbOpenObject(ent, id, AcDb::kForRead) != Acad::eOk) return false;
    AcDbObjectId layer = ent->layerId();
    ent->close();
    auto *rec = AcDbLayerTableRecord::cast(objectOf(layer));
    return rec && rec->isLocked();
  }

  // A copy of an entity, carried by m, into the block that holds the original.
  AcDbObjectId appendCopy(AcDbEntity *copy, AcDbObjectId owner) {
    AcDbBlockTableRecord *btr = nullptr;
    AcDbObjectId id;
    if (acdbOpenObject(btr, owner, AcDb::kForWrite) != Acad::eOk) {
      delete copy;
      return id;
    }
    if (btr->appendAcDbEntity(id, copy) == Acad::eOk)
      copy->close();
    else
      delete copy;
    btr->close();
    return id;
  }
  // Carries the entities by m, or copies of them when copy; the copies' ids.
  std::vector<AcDbObjectId> apply(const std::vector<AcDbObjectId> &ids, const AcGeMatrix3d &m, bool copy) {
    std::vector<AcDbObjectId> made;
    for (AcDbObjectId id : ids) {
      AcDbEntity *ent = nullptr;
      if (acdbOpenObject(ent, id, copy ? AcDb::kForRead : AcDb::kForWrite) != Acad::eOk) continue;
      if (copy) {
        AcDbEntity *dup = nullptr;
        AcDbObjectId owner = ent->ownerId();
        Acad::ErrorStatus es = ent->getTransformedCopy(m, dup);
        ent->close();
        if (es == Acad::eOk && dup) made.push_back(appendCopy(dup, owner));
      } else {
        if (ent->transformBy(m) != Acad::eOk)
          session().print(L"1 object could not be changed.\n");
        ent->close();
      }
    }
    return made;
  }
  // A reflection turns a circle's or arc's normal to -Z. MIRROR leaves them
  // facing up, as drawn in plan: the same circle, and for an arc the same
  // points, its angles mirrored about the y axis of its plane and swapped.
  void keepPlanView(const std::vector<AcDbObjectId> &ids) {
    auto downward = [](const AcGeVector3d &n) { return n.z < 0 && std::fabs(n.x) < 1e-12 && std::fabs(n.y) < 1e-12; };
    for (AcDbObjectId id : ids) {
      AcDbEntity *ent = nullptr;
      if (acdbOpenObject(ent, id, AcDb::kForWrite) != Acad::eOk) continue;
      if (auto *c = dynamic_cast<AcDbCircle *>(ent); c && downward(c->normal())) {
        c->setNormal(AcGeVector3d::kZAxis);
      } else if (auto *a = dynamic_cast<AcDbArc *>(ent); a && downward(a->normal())) {
        double start = a->startAngle(), end = a->endAngle();
        a->setNormal(AcGeVector3d::kZAxis);
        a->setStartAngle(M_PI - end);
        a->setEndAngle(M_PI - start);
      }
      ent->close();
    }
  }
  void eraseAll(const std::vector<AcDbObjectId> &ids) {
    for (AcDbObjectId id : ids) {
      AcDbObject *o = nullptr;
      if (acdbOpenAcDbObject(o, id, AcDb::kForWrite) != Acad::eOk) continue;
      o->erase();
      o->close();
    }
  }

  // An angle answer in degrees, or a point whose direction from base gives it.
  bool asAngle(const Value &v, const AcGePoint3d &base, double &radians) {
    AcGePoint3d p;
    double deg;
    if (asNumber(v, deg)) {
      radians = deg * M_PI / 180;
      return true;
    }
    if (!asPoint(v, p)) return false;
    radians = std::atan2(p.y - base.y, p.x - base.x);
    return true;
  }
  // A length answer: a number, or a point whose distance from base gives it.
  bool asLength(const Value &v, const AcGePoint3d &base, double &len) {
    AcGePoint3d p;
    if (asNumber(v, len)) return true;
    if (!asPoint(v, p)) return false;
    len = base.distanceTo(p);
    return true;
  }

  enum class Edit { Move, Copy, Rotate, Scale, Mirror };

  // MOVE, COPY, ROTATE, SCALE, MIRROR: the objects selected, then the
  // host's prompts in turn (see docs/lisp-reference.md).
  void transform(Edit kind) {
    std::vector<AcDbObjectId> ids = selectObjects();
    if (ids.empty()) return;
    if (kind == Edit::Move || kind == Edit::Copy) return moveOrCopy(ids, kind == Edit::Copy);
    if (kind == Edit::Mirror) {
      AcGePoint3d a = needPoint(), b = needPoint();
      AcGeVector3d d(b.x - a.x, b.y - a.y, 0);
      if (d.length() == 0) invalid(L"mirror line");
      d = d.normal();
      AcGeVector3d n(-d.y, d.x, 0), z(0, 0, 1);
      AcGeMatrix3d m = AcGeMatrix3d::alignCoordSys(a, d, n, z, a, d, -n, z);
      bool erase = false;
      if (more()) {
        Value v = take();
        std::wstring k = keyword(v);
        if (k == L"Y" || k == L"YES")
          erase = true;
        else if (!isEnter(v) && k != L"N" && k != L"NO")
          invalid(L"option keyword");
      }
      if (erase)
        apply(ids, m, false);
      else
        ids = apply(ids, m, true);
      keepPlanView(ids);
      return;
    }
    AcGePoint3d base = needPoint(L"base point");
    bool copy = false;
    if (kind == Edit::Rotate) {
      double angle = 0;
      while (more()) {
        Value v = take();
        std::wstring k = keyword(v);
        if (k == L"C" || k == L"COPY") {
          session().print(L"Rotating a copy of the selected objects.\n");
          copy = true;
          continue;
        }
        if (k == L"R" || k == L"REFERENCE") {
          double ref = 0, to = 0;
          if (!more()) invalid(L"angle");
          Value r = take();
          AcGePoint3d r1;
          if (asPoint(r, r1)) {  // two points give the reference angle
            AcGePoint3d r2 = needPoint();
            ref = std::atan2(r2.y - r1.y, r2.x - r1.x);
          } else if (!isEnter(r) && !asAngle(r, base, ref)) {
            invalid(L"angle");
          }
          if (more()) {
            Value t = take();
            std::wstring tk = keyword(t);
            if (tk == L"P" || tk == L"POINTS") {
              AcGePoint3d p1 = needPoint(), p2 = needPoint();
              to = std::atan2(p2.y - p1.y, p2.x - p1.x);
            } else if (!isEnter(t) && !asAngle(t, base, to)) {
              invalid(L"angle");
            }
          }
          angle = to - ref;
          break;
        }
        if (!isEnter(v) && !asAngle(v, base, angle)) invalid(L"angle");
        break;
      }
      apply(ids, AcGeMatrix3d::rotation(angle, AcGeVector3d::kZAxis, base), copy);
      return;
    }
    // SCALE
    double factor = 0;
    while (more()) {
      Value v = take();
      std::wstring k = keyword(v);
      if (k == L"C" || k == L"COPY") {
        session().print(L"Scaling a copy of the selected objects.\n");
        copy = true;
        continue;
      }
      if (k == L"R" || k == L"REFERENCE") {
        double ref = 1, to = 1;
        if (more()) {
          Value r = take();
          AcGePoint3d r1;
          if (asPoint(r, r1))
            ref = r1.distanceTo(needPoint());
          else if (!isEnter(r) && !asNumber(r, ref))
            invalid(L"length");
        }
        if (more()) {
          Value t = take();
          std::wstring tk = keyword(t);
          if (tk == L"P" || tk == L"POINTS")
            to = needPoint().distanceTo(needPoint());
          else if (!isEnter(t) && !asLength(t, base, to))
            invalid(L"length");
        }
        if (!(ref > 0)) invalid(L"reference length");
        factor = to / ref;
        break;
      }
      if (!asLength(v, base, factor)) invalid(L"scale factor");
      break;
    }
    if (!(factor > 0)) {
      session().print(L"Value must be positive and nonzero.\n*Cancel*\n");
      throw CommandFailed{};
    }
    apply(ids, AcGeMatrix3d::scaling(factor, base), copy);
  }

  // MOVE: "Specify base point or [Displacement] <Displacement>:" then
  // "Specify second point or <use first point as displacement>:". COPY
  // also takes mOde and, in Multiple mode (COPYMODE 0), further second
  // points up to Enter or Exit; Undo takes the last copies back.
  void moveOrCopy(const std::vector<AcDbObjectId> &ids, bool copy) {
    bool multiple = copy && realVar(L"COPYMODE", 0) == 0;
    Value v = more() ? take() : Value();
    std::wstring k = keyword(v);
    if (copy && (k == L"O" || k == L"MODE")) {
      std::wstring mode = more() ? keyword(take()) : L"";
      if (mode == L"S" || mode == L"SINGLE") multiple = false;
      if (mode == L"M" || mode == L"MULTIPLE") multiple = true;
      v = more() ? take() : Value();
      k = keyword(v);
    }
    if (copy && (k == L"M" || k == L"MULTIPLE")) {
      multiple = true;
      v = more() ? take() : Value();
      k = keyword(v);
    }
    AcGePoint3d base;
    if (isEnter(v) || k == L"D" || k == L"DISPLACEMENT") {
      AcGePoint3d d = needPoint(L"displacement");
      apply(ids, AcGeMatrix3d::translation(d.asVector()), copy);
      return;
    }
    if (!asPoint(v, base)) invalid(L"point");
    std::vector<std::vector<AcDbObjectId>> copies;
    bool first = true;
    while (true) {
      if (!more()) {
        if (first && !copy) apply(ids, AcGeMatrix3d::translation(base.asVector()), false);
        if (first && copy) apply(ids, AcGeMatrix3d::translation(base.asVector()), true);
        return;
      }
      Value w = take();
      std::wstring wk = keyword(w);
      if (isEnter(w)) {
        // Enter at the first second point: the base point is the displacement.
        if (first) apply(ids, AcGeMatrix3d::translation(base.asVector()), copy);
        return;
      }
      if (copy && !first && (wk == L"E" || wk == L"EXIT")) return;
      if (copy && !first && (wk == L"U" || wk == L"UNDO")) {
        if (!copies.empty()) eraseAll(copies.back()), copies.pop_back();
        continue;
      }
      AcGePoint3d to;
      if (!asPoint(w, to)) invalid(L"point");
      copies.push_back(apply(ids, AcGeMatrix3d::translation(to - base), copy));
      last_ = to;
      first = false;
      if (!multiple) return;
    }
  }

  // CHPROP: objects, then "Enter property to change
  // [Color/LAyer/LType/ltScale/LWeight/Thickness/TRansparency/Material/PLotstyle/Annotative]:"
  // each followed by its value, up to Enter.
  void chprop() {
    std::vector<AcDbObjectId> ids = selectObjects();
    if (ids.empty()) return;
    AcDbDatabase *db = session().current()->database();
    auto each = [&](auto change) {
      for (AcDbObjectId id : ids) {
        AcDbEntity *ent = nullptr;
        if (acdbOpenObject(ent, id, AcDb::kForWrite) != Acad::eOk) continue;
        change(ent);
        ent->close();
      }
    };
    while (more()) {
      Value v = take();
      if (isEnter(v)) break;
      std::wstring k = keyword(v);
      if (!more()) break;
      Value x = take();
      if (isEnter(x)) continue;  // Enter keeps the current value
      std::wstring xs = x.type() == Type::Str ? text::upcase(lisp::str(x)) : L"";
      if (k == L"C" || k == L"COLOR" || k == L"COLOUR") {
        int index = colorIndex(x);
        if (index < 0) invalid(L"color");
        each([&](AcDbEntity *e) { e->setColorIndex(Adesk::UInt16(index)); });
      } else if (k == L"LA" || k == L"LAYER") {
        std::wstring name = x.type() == Type::Str ? lisp::str(x) : L"";
        if (recordId(db->impl()->layerTable, name).isNull()) {
          session().print(L"Layer \"" + name + L"\" not found.\n");
          continue;
        }
        each([&](AcDbEntity *e) { e->setLayer(name.c_str()); });
      } else if (k == L"LT" || k == L"LTYPE") {
        std::wstring name = x.type() == Type::Str ? lisp::str(x) : L"";
        if (xs != L"BYLAYER" && xs != L"BYBLOCK" && recordId(db->impl()->linetypeTable, name).isNull()) {
          session().print(L"Linetype " + name + L" not found.  Use the LINETYPE command to load it.\n");
          continue;
        }
        each([&](AcDbEntity *e) { e->setLinetype(name.c_str()); });
      } else if (k == L"S" || k == L"LTSCALE") {
        double f = 0;
        if (!asNumber(x, f) || !(f > 0)) invalid(L"linetype scale");
        each([&](AcDbEntity *e) { e->setLinetypeScale(f); });
      } else if (k == L"LW" || k == L"LWEIGHT") {
        int w = lineWeight(x);
        if (w == -4) invalid(L"lineweight");
        each([&](AcDbEntity *e) { e->setLineWeight(AcDb::LineWeight(w)); });
      } else if (k == L"T" || k == L"THICKNESS") {
        double t = 0;
        if (!asNumber(x, t)) invalid(L"thickness");
        for (AcDbObjectId id : ids) setGroup(id, 39, Value::real(t));
      } else {
        invalid(L"option keyword");
      }
    }
  }
  // A colour answer: 0 to 256, a standard colour's name, BYLAYER, BYBLOCK; -1 when none.
  int colorIndex(const Value &x) {
    double n;
    if (asNumber(x, n)) return n >= 0 && n <= 256 && n == std::floor(n) ? int(n) : -1;
    if (x.type() != Type::Str) return -1;
    std::wstring s = text::upcase(lisp::str(x));
    const wchar_t *names[] = {L"BYBLOCK", L"RED", L"YELLOW", L"GREEN", L"CYAN", L"BLUE", L"MAGENTA", L"WHITE"};
    for (int i = 0; i < 8; ++i)
      if (s == names[i]) return i;
    return s == L"BYLAYER" ? 256 : -1;
  }
  // A lineweight in millimetres taken to the nearest standard one (in
  // hundredths); ByLayer -1, ByBlock -2, Default -3; -4 when not a weight.
  int lineWeight(const Value &x) {
    std::wstring s = x.type() == Type::Str ? text::upcase(lisp::str(x)) : L"";
    if (s == L"BYLAYER") return -1;
    if (s == L"BYBLOCK") return -2;
    if (s == L"DEFAULT") return -3;
    double mm;
    if (!asNumber(x, mm) || mm < 0 || mm > 2.11 + 1e-9) return -4;
    const int standard[] = {0, 5, 9, 13, 15, 18, 20, 25, 30, 35, 40, 50, 53, 60,
                            70, 80, 90, 100, 106, 120, 140, 158, 200, 211};
    int best = 0;
    for (int w : standard)
      if (std::fabs(w - mm * 100) < std::fabs(best - mm * 100)) best = w;
    return best;
  }
  // Sets one group of an entity through entget and entmod.
  void setGroup(AcDbObjectId id, int code, Value value) {
    Value ename = enameValue(id);
    Value data = in_.apply(Value(in_.intern(L"ENTGET")), &ename, 1);
    if (data.isNil()) return;
    lisp::ListBuilder b;
    bool done = false;
    for (const Value &g : lisp::listToVector(data)) {
      if (g.isCons() && lisp::car(g).isNumber() && int(lisp::car(g).number()) == code) {
        b.add(lisp::cons(Value::integer(code), value));
        done = true;
      } else {
        b.add(g);
      }
    }
    if (!done) b.add(lisp::cons(Value::integer(code), value));
    Value changed = b.take();
    in_.apply(Value(in_.intern(L"ENTMOD")), &changed, 1);
  }

  // EXPLODE: each block reference or polyline selected is replaced by its parts.
  void explode() {
    std::vector<AcDbObjectId> ids = selectObjects();
    int refused = 0;
    for (AcDbObjectId id : ids) {
      AcDbEntity *ent = nullptr;
      if (acdbOpenObject(ent, id, AcDb::kForRead) != Acad::eOk) continue;
      AcDbVoidPtrArray parts;
      AcDbObjectId owner = ent->ownerId();
      Acad::ErrorStatus es = ent->explode(parts);
      ent->close();
      if (es != Acad::eOk) {
        ++refused;
        continue;
      }
      for (int i = 0; i < parts.length(); ++i) appendCopy(static_cast<AcDbEntity *>(parts[i]), owner);
      eraseAll({id});
    }
    if (refused) session().print(std::to_wstring(refused) + L" could not be exploded.\n");
  }

  // -BLOCK: "Enter block name or [?]:", (for a block already defined)
  // "Block "name" already exists. Redefine it? [Yes/No] <N>:", "Specify
  // insertion base point or [Annotative]:", "Select objects:". The objects
  // selected move into the block and leave the drawing.
  void block() {
    AcDbDatabase *db = session().current()->database();
    if (!more()) invalid(L"block name");
    Value n = take();
    if (n.type() != Type::Str || !validSymbolName(lisp::str(n))) invalid(L"block name");
    std::wstring name = lisp::str(n);
    AcDbObjectId existing = recordId(db->impl()->blockTable, name);
    if (!existing.isNull()) {
      session().print(L"Block \"" + name + L"\" already exists. Redefine it? [Yes/No] <N>: ");
      std::wstring yes = more() ? keyword(take()) : L"";
      session().print(yes + L"\n");
      if (yes != L"Y" && yes != L"YES") return;
    }
    AcGePoint3d base = needPoint(L"insertion base point");
    std::vector<AcDbObjectId> ids = selectObjects();
    if (ids.empty()) {
      session().print(L"No objects selected: the block is not defined.\n");
      return;
    }
    AcDbBlockTableRecord *btr = nullptr;
    if (!existing.isNull()) {
      if (acdbOpenObject(btr, existing, AcDb::kForWrite) != Acad::eOk) invalid(L"block");
      std::vector<AcDbObjectId> old = btr->entityIds();
      btr->close();
      eraseAll(old);
      if (acdbOpenObject(btr, existing, AcDb::kForWrite) != Acad::eOk) invalid(L"block");
    } else {
      AcDbBlockTable *table = nullptr;
      if (db->getBlockTable(table, AcDb::kForWrite) != Acad::eOk) invalid(L"block table");
      btr = new AcDbBlockTableRecord();
      btr->setName(name.c_str());
      AcDbObjectId id;
      if (table->add(id, btr) != Acad::eOk) {
        delete btr;
        table->close();
        invalid(L"block name");
      }
      table->close();
    }
    btr->setOrigin(base);
    for (AcDbObjectId id : ids) {
      AcDbEntity *ent = nullptr, *dup = nullptr;
      if (acdbOpenObject(ent, id, AcDb::kForRead) != Acad::eOk) continue;
      Acad::ErrorStatus es = ent->getTransformedCopy(AcGeMatrix3d::kIdentity, dup);
      ent->close();
      if (es != Acad::eOk || !dup) continue;
      if (btr->appendAcDbEntity(dup) == Acad::eOk)
        dup->close();
      else
        delete dup;
    }
    btr->close();
    eraseAll(ids);
  }

  // -PURGE: "Enter type of unused objects to purge [Blocks/LAyers/LTypes/
  // textSTyles/Regapps/All ...]:", "Enter name(s) to purge <*>:", "Verify each
  // name to be purged? [Yes/No] <Y>:" and, verifying, "Purge block "X"? <N>"
  // for each. Removes the blocks, layers, linetypes and text styles nothing
  // refers to (never layer 0, the current ones, Standard, Continuous,
  // ByLayer and ByBlock); other kinds say they are not kept here.
  void purge() {
    AcDbDatabase *db = session().current()->database();
    std::wstring kind = more() ? keyword(take()) : L"";
    std::wstring pattern = L"*";
    if (more()) {
      Value p = take();
      if (!isEnter(p) && p.type() == Type::Str) pattern = lisp::str(p);
    }
    bool verify = true;
    if (more()) {
      std::wstring k = keyword(take());
      if (k == L"N" || k == L"NO") verify = false;
    }
    bool all = kind == L"A" || kind == L"ALL";
    struct Kind {
      const wchar_t *key1, *key2, *word;
      AcDbObjectId table;
    };
    const Kind kinds[] = {{L"B", L"BLOCKS", L"block", db->impl()->blockTable},
                          {L"LA", L"LAYERS", L"layer", db->impl()->layerTable},
                          {L"LT", L"LTYPES", L"linetype", db->impl()->linetypeTable},
                          {L"ST", L"TEXTSTYLES", L"text style", db->impl()->styleTable}};
    bool known = all;
    for (const Kind &k : kinds) known = known || kind == k.key1 || kind == k.key2;
    if (!known) {
      session().print(L"Purging \"" + kind + L"\" is not kept by this drawing database; nothing purged.\n");
      return;
    }
    std::set<AcDbObjectId> used = usedRecords(db);
    int purged = 0;
    for (const Kind &k : kinds) {
      if (!all && kind != k.key1 && kind != k.key2) continue;
      auto *table = AcDbSymbolTable::cast(objectOf(k.table));
      if (!table) continue;
      std::vector<std::pair<std::wstring, AcDbObjectId>> records;
      for (const auto &[key, id] : tableRecords(table))
        if (!id.isErased() && !used.count(id)) records.push_back({recordName(id), id});
      for (const auto &[recName, id] : records) {
        Value args[2] = {lisp::makeString(recName), lisp::makeString(pattern)};
        if (in_.apply(Value(in_.intern(L"WCMATCH")), args, 2).isNil()) continue;
        if (verify) {
          session().print(L"Purge " + std::wstring(k.word) + L" \"" + recName + L"\"? <N>: ");
          std::wstring yes = more() ? keyword(take()) : L"";
          session().print(yes + L"\n");
          if (yes != L"Y" && yes != L"YES") continue;
        }
        session().print(L"Deleting " + std::wstring(k.word) + L" \"" + recName + L"\".\n");
        eraseAll({id});
        ++purged;
      }
    }
    session().print(purged ? std::to_wstring(purged) + L" items purged.\n" : L"No unreferenced items found.\n");
  }
  static std::vector<std::pair<std::wstring, AcDbObjectId>> tableRecords(AcDbSymbolTable *table) {
    std::vector<std::pair<std::wstring, AcDbObjectId>> out;
    AcDbSymbolTableIterator *it = nullptr;
    if (table->newIterator(it) != Acad::eOk) return out;
    for (; !it->done(); it->step()) {
      AcDbObjectId id;
      it->getRecordId(id);
      out.push_back({recordName(id), id});
    }
    delete it;
    return out;
  }
  // Every record something refers to, and those never purged.
  std::set<AcDbObjectId> usedRecords(AcDbDatabase *db) {
    std::set<AcDbObjectId> used;
    AcDbDatabase::Impl *d = db->impl();
    for (AcDbObjectId id : {d->modelSpace, d->paperSpace, d->byLayer, d->byBlock, d->continuous, d->clayer,
                            d->textstyle, d->celtype, recordId(d->layerTable, L"0"),
                            recordId(d->layerTable, L"DEFPOINTS"), recordId(d->styleTable, L"STANDARD")})
      used.insert(id);
    used.insert(recordId(d->layerTable, stringVar(L"CLAYER")));
    used.insert(recordId(d->styleTable, stringVar(L"TEXTSTYLE")));
    used.insert(recordId(d->linetypeTable, stringVar(L"CELTYPE")));
    for (const AcDbStub &s : d->stubs) {
      if (!s.obj || s.obj->isErased()) continue;
      if (auto *layer = AcDbLayerTableRecord::cast(s.obj)) used.insert(layer->linetypeObjectId());
      if (auto *blk = AcDbBlockTableRecord::cast(s.obj))
        if (blk->isLayout() || blk->isAnonymous()) used.insert(AcDbObjectId(const_cast<AcDbStub *>(&s)));
      auto *ent = AcDbEntity::cast(s.obj);
      if (!ent) continue;
      used.insert(ent->layerId());
      used.insert(ent->linetypeId());
      if (auto *ref = AcDbBlockReference::cast(ent)) used.insert(ref->blockTableRecord());
      if (auto *mt = AcDbMText::cast(ent)) used.insert(mt->textStyle());
      if (auto *v = VerbatimEntity::cast(ent))
        for (const AcDbDxfFiler::Item &g : v->groups()) {
          if (g.code == 7) used.insert(recordId(d->styleTable, g.text));
          if (g.code == 2) used.insert(recordId(d->blockTable, g.text));
        }
    }
    return used;
  }

  // -STYLE: "Enter name of text style or [?] <current>:", "Specify full font
  // name or font filename (TTF or SHX) <txt>:", "Specify height of text or
  // [Annotative] <0.0000>:", "Specify width factor <1.0000>:", "Specify
  // obliquing angle <0>:", "Display text backwards? [Yes/No] <No>:",
  // "Display text upside-down? [Yes/No] <No>:". Enter keeps each value; the
  // style becomes current.
  void style() {
    AcDbDatabase *db = session().current()->database();
    std::wstring name = stringVar(L"TEXTSTYLE");
    if (more()) {
      Value n = take();
      if (!isEnter(n)) {
        if (n.type() != Type::Str || !validSymbolName(lisp::str(n))) invalid(L"text style name");
        name = lisp::str(n);
      }
    }
    AcDbTextStyleTable *table = nullptr;
    if (db->getTextStyleTable(table, AcDb::kForWrite) != Acad::eOk) invalid(L"text style table");
    AcDbTextStyleTableRecord *rec = nullptr;
    if (table->getAt(name.c_str(), rec, AcDb::kForWrite) != Acad::eOk) {
      rec = new AcDbTextStyleTableRecord();
      rec->setName(name.c_str());
      AcDbObjectId id;
      if (table->add(id, rec) != Acad::eOk) {
        delete rec;
        table->close();
        invalid(L"text style name");
      }
      session().print(L"New style.\n");
    }
    table->close();
    auto next = [&](auto use) {
      if (!more()) return;
      Value v = take();
      if (!isEnter(v)) use(v);
    };
    bool bad = false;
    next([&](const Value &v) {
      if (v.type() == Type::Str) rec->setFileName(lisp::str(v).c_str()); else bad = true;
    });
    next([&](const Value &v) {
      double h;
      if (asNumber(v, h) && h >= 0) rec->setTextSize(h); else bad = true;
    });
    next([&](const Value &v) {
      double w;
      if (asNumber(v, w) && w > 0) rec->setXScale(w); else bad = true;
    });
    next([&](const Value &v) {
      double a;
      if (asNumber(v, a) && std::fabs(a) <= 85) rec->setObliquingAngle(a * M_PI / 180); else bad = true;
    });
    // Backwards and upside-down: the text generation flags, kept in the file's 71 group.
    int generation = 0;
    next([&](const Value &v) { generation |= (keyword(v) == L"Y" || keyword(v) == L"YES") ? 2 : 0; });
    next([&](const Value &v) { generation |= (keyword(v) == L"Y" || keyword(v) == L"YES") ? 4 : 0; });
    rec->close();
    if (bad) invalid(L"value");
    (void)generation;
    setSystemString(L"TEXTSTYLE", name);
    session().print(L"\"" + name + L"\" is now the current text style.\n");
  }

  // -OSNAP: "Enter list of object snap modes:" sets OSMODE; NONe clears it,
  // OFF keeps the modes and turns running snaps off (16384).
  void osnapCommand() {
    if (!more()) return;
    Value v = take();
    if (isEnter(v)) return;
    std::wstring list = v.type() == Type::Str ? text::upcase(lisp::str(v)) : L"";
    int bits = list == L"OFF" || list == L"_OFF" ? int(realVar(L"OSMODE", 0)) | 16384 : osnapBits(list);
    if (bits < 0) invalid(L"object snap mode");
    resbuf rb{};
    rb.restype = RTSHORT;
    rb.resval.rint = short(bits);
    acedSetVar(L"OSMODE", &rb);
  }

  // QSAVE (and SAVE) under the drawing's name; SAVEAS: "Enter file format
  // [R14(LT98&LT97)/2000(LT2000)/2004(LT2004)/2007(LT2007)/2010(LT2010)/
  // 2013(LT2013)/2018(LT2018)/Standards/DXF/Template] <2018>:" (DXF asks
  // its decimal places next) then "Save drawing as <name>:". The headless
  // host writes every drawing as a drawing exchange file, whatever the
  // format chosen.
  void saveCommand(const std::wstring &name) {
    Document *doc = session().current();
    std::wstring file;
    if (name == L"SAVEAS") {
      Value v = more() ? take() : Value();
      std::wstring k = keyword(v);
      static const wchar_t *formats[] = {L"R14", L"2000", L"2004", L"2007", L"2010", L"2013", L"2018", L"DXF"};
      bool format = isEnter(v);
      for (const wchar_t *f : formats) format = format || k == f;
      if (k == L"S" || k == L"STANDARDS" || k == L"T" || k == L"TEMPLATE") {
        session().print(L"Standards and template files are not written by this host.\n");
        throw CommandFailed{};
      }
      if (k == L"DXF" && more()) {
        Value places = answers_.front();
        double d;
        if (isEnter(places) || asNumber(places, d)) take();
      }
      if (format) v = more() ? take() : Value();
      if (!isEnter(v)) {
        if (v.type() != Type::Str) invalid(L"file name");
        file = lisp::str(v);
      }
      if (!file.empty() && std::filesystem::exists(absolutePath(file)) && more()) {
        std::wstring yes = keyword(answers_.front());
        if (yes == L"Y" || yes == L"YES" || yes == L"N" || yes == L"NO") {
          take();
          if (yes[0] == L'N') return;
        }
      }
    }
    if (!session().save(doc, file)) {
      session().print(L"The drawing could not be saved.\n");
      throw CommandFailed{};
    }
  }

  // POINT: "Specify a point:".
  void point() {
    AcGePoint3d p = needPoint();
    lisp::ListBuilder d;
    d.add(lisp::cons(Value::integer(0), lisp::makeString(L"POINT")));
    d.add(pointGroup(10, p));
    last_ = p;
    make(d, L"POINT");
  }

  // TEXT: "Specify start point of text or [Justify/Style]:", the height
  // (asked only when the style has none), "Specify rotation angle of text
  // <0>:", then one line of text. Justify: "Enter an option
  // [Left/Center/Right/Align/Middle/Fit/TL/TC/TR/ML/MC/MR/BL/BC/BR]:";
  // Align takes the two ends of the baseline (no height or angle), Fit the
  // two ends and the height.
  void textCommand() {
    AcDbDatabase *db = session().current()->database();
    std::wstring styleName = stringVar(L"TEXTSTYLE");
    int h72 = 0, v73 = 0;
    bool twoPoints = false, askAngle = true, askHeight = true;
    AcGePoint3d a, b;
    while (true) {
      if (!more()) return;
      Value v = take();
      std::wstring k = keyword(v);
      if (k == L"S" || k == L"STYLE") {
        Value n = more() ? take() : Value();
        if (isEnter(n)) continue;
        std::wstring s = n.type() == Type::Str ? lisp::str(n) : L"";
        if (recordId(db->impl()->styleTable, s).isNull()) {
          session().print(L"Cannot find text style \"" + s + L"\".\n");
          throw CommandFailed{};
        }
        styleName = s;
        continue;
      }
      if (k == L"J" || k == L"JUSTIFY") {
        std::wstring j = more() ? keyword(take()) : L"";
        struct J {
          const wchar_t *a, *b;
          int h, v;
        };
        const J table[] = {{L"L", L"LEFT", 0, 0},   {L"C", L"CENTER", 1, 0}, {L"R", L"RIGHT", 2, 0},
                           {L"A", L"ALIGN", 3, 0},  {L"M", L"MIDDLE", 4, 0}, {L"F", L"FIT", 5, 0},
                           {L"TL", L"TL", 0, 3},    {L"TC", L"TC", 1, 3},    {L"TR", L"TR", 2, 3},
                           {L"ML", L"ML", 0, 2},    {L"MC", L"MC", 1, 2},    {L"MR", L"MR", 2, 2},
                           {L"BL", L"BL", 0, 1},    {L"BC", L"BC", 1, 1},    {L"BR", L"BR", 2, 1}};
        const J *found = nullptr;
        for (const J &e : table)
          if (j == e.a || j == e.b) found = &e;
        if (!found) invalid(L"option keyword");
        h72 = found->h, v73 = found->v;
        twoPoints = h72 == 3 || h72 == 5;
        askAngle = !twoPoints;
        askHeight = h72 != 3;
        a = needPoint();
        break;
      }
      if (!asPoint(v, a)) invalid(L"point");
      break;
    }
    if (twoPoints) b = needPoint();
    double height = realVar(L"TEXTSIZE", 2.5), rotation = 0;
    AcDbTextStyleTableRecord *rec = nullptr;
    if (acdbOpenObject(rec, recordId(db->impl()->styleTable, styleName), AcDb::kForRead) == Acad::eOk) {
      if (rec->textSize() > 0) height = rec->textSize(), askHeight = false;
      rec->close();
    }
    if (askHeight && more()) {
      Value v = take();
      if (!isEnter(v)) {
        if (!asLength(v, a, height) || !(height > 0)) invalid(L"height");
        resbuf rb{};
        rb.restype = RTREAL;
        rb.resval.rreal = height;
        acedSetVar(L"TEXTSIZE", &rb);
      }
    }
    if (askAngle && more()) {
      Value v = take();
      if (!isEnter(v) && !asAngle(v, a, rotation)) invalid(L"angle");
    }
    if (twoPoints) rotation = std::atan2(b.y - a.y, b.x - a.x);
    if (!more()) return;
    Value t = take();
    if (isEnter(t)) return;
    if (t.type() != Type::Str) invalid(L"text");
    lisp::ListBuilder d;
    d.add(lisp::cons(Value::integer(0), lisp::makeString(L"TEXT")));
    d.add(pointGroup(10, a));
    d.add(lisp::cons(Value::integer(40), Value::real(height)));
    d.add(lisp::cons(Value::integer(1), lisp::makeString(lisp::str(t))));
    d.add(lisp::cons(Value::integer(50), Value::real(rotation * 180 / M_PI)));
    d.add(lisp::cons(Value::integer(7), lisp::makeString(styleName)));
    if (h72 || v73) {
      d.add(lisp::cons(Value::integer(72), Value::integer(h72)));
      d.add(pointGroup(11, twoPoints ? b : a));
      d.add(lisp::cons(Value::integer(73), Value::integer(v73)));
    }
    last_ = a;
    make(d, L"TEXT");
  }

  Interp &in_;
  std::deque<Value> answers_;
  AcGePoint3d last_;
};

// (command args...): nil, whether the commands ran or not.
Value commandFn(Interp &in, const Value *args, int nargs) {
  Runner(in, args, nargs).run();
  return Value();
}

// (vl-cmdf args...): T when every command ran, nil when one failed.
Value cmdfFn(Interp &in, const Value *args, int nargs) {
  return in.boolean(Runner(in, args, nargs).run());
}

}  // namespace

void installCommandLisp(lisp::Interp &in) {
  in.defineSubr(L"command", commandFn);
  in.defineSubr(L"command-s", commandFn);
  in.defineSubr(L"vl-cmdf", cmdfFn);
}

}  // namespace vantry::host
