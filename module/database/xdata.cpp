// Extended entity data under the product's application names.
//
//   (vt_xdput-list ename app values)  puts the list of values on the entity
//       under app, registering app when needed, replacing what app held
//       there; an empty list removes app's data. Strings travel as 1000,
//       reals as 1040, integers as 1070 (16 bits) or 1071, points as 1010
//       (a list of three numbers arrives as a point), nested lists between
//       1002 "{" and "}". T.
//   (vt_xdget ename app)              the first value app holds, or nil
//   (vt_xdget-list ename app)         every value app holds, as put, or nil
//   (vt_xdget-all ename)              ((app values...) ...) for every app
// A missing or bad entity name or application name is a wrong type; a value
// that xdata cannot hold (T, nil, an entity name) is bad data.
#include "frame/implementations.h"
#include "frame/value_list.h"

namespace vantry::lispfn {
namespace {

using frame::ArgList;

using frame::ResultChain;

bool readEntity(resbuf *&cur, AcDbObjectId &id) {
  ads_name name;
  return frame::readEntityName(cur, name) && acdbGetObjectId(id, name) == Acad::eOk;
}

// LISP values (the argument chain from `cur` up to the list's end) to xdata
// items. Returns 3 for a value xdata cannot hold, else 0.
int toXData(resbuf *&cur, ResultChain &out, bool inList) {
  while (cur) {
    switch (cur->restype) {
      case RTLE:
        if (inList) {
          cur = cur->rbnext;
          return 0;
        }
        return 3;
      case RTLB: {
        cur = cur->rbnext;
        out.append(acutBuildList(1002, L"{", 0));
        if (int st = toXData(cur, out, true)) return st;
        out.append(acutBuildList(1002, L"}", 0));
        continue;
      }
      case RTSTR:
        out.append(acutBuildList(1000, cur->resval.rstring, 0));
        break;
      case RTREAL:
        out.append(acutBuildList(1040, cur->resval.rreal, 0));
        break;
      case RTSHORT:
        out.append(acutBuildList(1070, int(cur->resval.rint), 0));
        break;
      case RTLONG:
        out.append(acutBuildList(1071, cur->resval.rlong, 0));
        break;
      case RTPOINT:
      case RT3DPOINT: {
        ads_point p = {cur->resval.rpoint[0], cur->resval.rpoint[1],
                       cur->restype == RTPOINT ? 0.0 : cur->resval.rpoint[2]};
        out.append(acutBuildList(1010, p, 0));
        break;
      }
      default:
        return 3;
    }
    cur = cur->rbnext;
  }
  return inList ? 3 : 0;
}

// One application's items (after its 1001) as LISP nodes, nested lists
// restored from the braces.
void toLisp(const resbuf *items, ResultChain &out) {
  for (const resbuf *p = items; p; p = p->rbnext) {
    int t = p->restype;
    if (t == 1001) break;  // the next application
    if (t == 1002) {
      bool open = p->resval.rstring && p->resval.rstring[0] == L'{';
      out.append(acutBuildList(open ? RTLB : RTLE, 0));
    } else if (t == 1000 || t == 1003 || t == 1005) {
      out.append(acutBuildList(RTSTR, p->resval.rstring ? p->resval.rstring : L"", 0));
    } else if (t >= 1010 && t <= 1013) {
      out.append(acutBuildList(RT3DPOINT, p->resval.rpoint, 0));
    } else if (t >= 1040 && t <= 1042) {
      out.append(acutBuildList(RTREAL, p->resval.rreal, 0));
    } else if (t == 1070) {
      out.append(acutBuildList(RTSHORT, int(p->resval.rint), 0));
    } else if (t == 1071) {
      out.append(acutBuildList(RTLONG, p->resval.rlong, 0));
    }
  }
}

bool registerApplication(AcDbDatabase *db, const std::wstring &app) {
  AcDbRegAppTable *table = nullptr;
  if (!db || db->getRegAppTable(table, AcDb::kForRead) != Acad::eOk) return false;
  bool ok = table->has(app.c_str());
  if (!ok && table->upgradeOpen() == Acad::eOk) {
    auto *rec = new AcDbRegAppTableRecord();
    rec->setName(app.c_str());
    ok = table->add(rec) == Acad::eOk;
    if (ok)
      rec->close();
    else
      delete rec;
  }
  table->close();
  return ok;
}

// Reads (ename app): 0 with both, else the status.
int readTarget(ArgList &args, AcDbObjectId &id, std::wstring &app) {
  if (!readEntity(args.cursor(), id)) return 2;
  if (!frame::readString(args.cursor(), app) || app.empty()) return 2;
  return 0;
}

}  // namespace

int vt_xdput_list() {
  acedRetNil();
  ArgList args;
  AcDbObjectId id;
  std::wstring app;
  if (int st = readTarget(args, id, app)) return st;
  resbuf *&cur = args.cursor();
  if (!cur) return 2;
  ResultChain items;
  items.append(acutBuildList(1001, app.c_str(), 0));
  if (cur->restype == RTLB) {
    cur = cur->rbnext;
    if (int st = toXData(cur, items, true)) return st;
  } else if (cur->restype == RTNIL) {
    // The empty list: app's data goes.
  } else {
    resbuf *single = cur;
    resbuf *next = single->rbnext;
    single->rbnext = nullptr;  // one point or value stands for the list
    int st = toXData(single, items, false);
    cur = next;
    args.cursor() = next;
    if (st) return st;
  }
  AcDbObjectPointer<AcDbEntity> ent(id, AcDb::kForWrite);
  if (ent.openStatus() != Acad::eOk) return 3;
  if (!registerApplication(ent->database(), app)) return 3;
  if (ent->setXData(items.head()) != Acad::eOk) return 3;
  acedRetT();
  return 0;
}

namespace {

// The LISP list of app's values on an entity (nodes after an RTLB).
int appValues(bool firstOnly) {
  ArgList args;
  AcDbObjectId id;
  std::wstring app;
  if (int st = readTarget(args, id, app)) return st;
  AcDbObjectPointer<AcDbEntity> ent(id, AcDb::kForRead);
  if (ent.openStatus() != Acad::eOk) return 3;
  resbuf *xd = ent->xData(app.c_str());
  if (!xd) return 0;
  ResultChain values;
  toLisp(xd->rbnext, values);
  acutRelRb(xd);
  if (!values.head()) return 0;
  if (firstOnly) {
    // The first value: one node, or a whole nested list.
    resbuf *first = values.head();
    if (first->restype != RTLB) {
      acedRetVal(first);
    } else {
      int depth = 0;
      resbuf *end = first;
      for (; end; end = end->rbnext) {
        depth += end->restype == RTLB ? 1 : end->restype == RTLE ? -1 : 0;
        if (depth == 0) break;
      }
      resbuf *rest = end ? end->rbnext : nullptr;
      if (end) end->rbnext = nullptr;
      acedRetList(first);
      if (end) end->rbnext = rest;
    }
    return 0;
  }
  ResultChain list;
  list.append(acutBuildList(RTLB, 0));
  list.append(values.release());
  list.append(acutBuildList(RTLE, 0));
  list.returnToHost();
  return 0;
}

}  // namespace

int vt_xdget() {
  acedRetNil();
  return appValues(true);
}

int vt_xdget_list() {
  acedRetNil();
  return appValues(false);
}

int vt_xdget_all() {
  acedRetNil();
  ArgList args;
  AcDbObjectId id;
  if (!readEntity(args.cursor(), id)) return 2;
  AcDbObjectPointer<AcDbEntity> ent(id, AcDb::kForRead);
  if (ent.openStatus() != Acad::eOk) return 3;
  ResultChain list;
  list.append(acutBuildList(RTLB, 0));
  for (const std::wstring &app : ent->xDataApplications()) {
    resbuf *xd = ent->xData(app.c_str());
    list.append(acutBuildList(RTLB, RTSTR, app.c_str(), 0));
    if (xd) {
      ResultChain values;
      toLisp(xd->rbnext, values);
      list.append(values.release());
      acutRelRb(xd);
    }
    list.append(acutBuildList(RTLE, 0));
  }
  list.append(acutBuildList(RTLE, 0));
  list.returnToHost();
  return 0;
}

}  // namespace vantry::lispfn
