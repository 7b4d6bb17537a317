// command, command-s and vl-cmdf: the host's commands driven from LISP.
//
// The arguments are read as the command line would take them, one answer
// each: a string (a command name, an option, a number or point as typed),
// a number, a point list, an entity name or a selection set; nil and ""
// are Enter. pause hands that answer to the person (the next queued
// input). A command that runs out of answers ends as Enter would end it.
//
// A headless host has a small command set: LINE, CIRCLE, ARC, PLINE, MTEXT,
// -LAYER, -INSERT, ERASE, UNDO (its marks and groups are accepted; nothing is undone),
// ZOOM, REGEN, REDRAW (nothing to show). The leading "_" and "." are
// accepted. Any other name is an unknown command, as the host answers it.
// Entities take the current layer (CLAYER), colour (CECOLOR), linetype
// (CELTYPE) and text style and size (TEXTSTYLE, TEXTSIZE) and are made
// through entmake, as a LISP program would make them.
#include <cmath>
#include <deque>

#include "db/lisp_data.h"
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
      try {
        if (!dispatch(name)) {
          session().print(L"Unknown command \"" + name + L"\".  Press F1 for help.\n");
          return false;
        }
      } catch (const CommandFailed &) {
        return false;
      }
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

  // A point answer: a list of 2 or 3 numbers, or "x,y[,z]" typed.
  bool asPoint(const Value &v, AcGePoint3d &p) {
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

  Value props(lisp::ListBuilder &b) {
    b.add(lisp::cons(Value::integer(8), lisp::makeString(stringVar(L"CLAYER"))));
    std::wstring color = text::upcase(stringVar(L"CECOLOR"));
    if (color == L"BYBLOCK")
      b.add(lisp::cons(Value::integer(62), Value::integer(0)));
    else if (!color.empty() && color != L"BYLAYER")
      b.add(lisp::cons(Value::integer(62), Value::integer(int32_t(std::wcstol(color.c_str(), nullptr, 10)))));
    std::wstring ltype = stringVar(L"CELTYPE");
    if (!ltype.empty() && text::upcase(ltype) != L"BYLAYER")
      b.add(lisp::cons(Value::integer(6), lisp::makeString(ltype)));
    return Value();
  }
  static Value pointGroup(int code, const AcGePoint3d &p) {
    lisp::ListBuilder b;
    b.add(Value::real(p.x));
    b.add(Value::real(p.y));
    b.add(Value::real(p.z));
    return lisp::cons(Value::integer(code), b.take());
  }
  void make(lisp::ListBuilder &data) {
    Value list = data.take();
    Value made = in_.apply(Value(in_.intern(L"ENTMAKE")), &list, 1);
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
    props(d);
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
    props(d);
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
    props(d);
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
    props(d);
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
    props(d);
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
    props(d);
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

  void erase() {
    while (more()) {
      Value v = take();
      if (isEnter(v)) break;
      std::vector<Value> victims;
      if (v.type() == Type::Ename) {
        victims.push_back(v);
      } else if (v.type() == Type::Pickset) {
        Value n = in_.apply(Value(in_.intern(L"SSLENGTH")), &v, 1);
        for (int32_t i = 0; i < (n.isNumber() ? int32_t(n.number()) : 0); ++i) {
          Value args[2] = {v, Value::integer(i)};
          victims.push_back(in_.apply(Value(in_.intern(L"SSNAME")), args, 2));
        }
      } else {
        invalid(L"selection");
      }
      for (const Value &e : victims) in_.apply(Value(in_.intern(L"ENTDEL")), &e, 1);
    }
  }

  // UNDO: Mark, BEgin, End, Auto, Control and a count are accepted; nothing
  // is kept to undo, so Back and a count undo nothing and say so.
  void undo() {
    if (!more()) return;
    Value v = take();
    std::wstring k = keyword(v);
    double count;
    if (k == L"M" || k == L"MARK" || k == L"BE" || k == L"BEGIN" || k == L"E" || k == L"END") return;
    if (k == L"A" || k == L"AUTO" || k == L"C" || k == L"CONTROL") {
      if (more()) take();
      return;
    }
    if (k == L"B" || k == L"BACK" || asNumber(v, count)) {
      session().print(L"Nothing to undo: this host keeps no undo record.\n");
      return;
    }
    invalid(L"option keyword");
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
