// Selection filters: which entities a selection keeps.
//
// A filter is a run of (code . value) tests, all of which must hold (an
// implicit AND). It arrives as group-code nodes (restype = the code), or as a
// LISP filter list arrives as an external function's argument: RTLB, the
// group-code nodes, RTLE; an element that could not travel as a group-code
// node comes as its own list (RTLB RTSHORT code RTDOTE value RTLE). Both may
// be mixed and nested; RTNIL stands for an empty filter.
//
// Tests: strings (0 type, 8 layer, 2 block name, 6 linetype, 7 text style,
// 410 layout ...) are wild-card patterns as wcmatch reads them, compared
// without regard to case; numbers and points are equal (within 1e-10) unless
// a relational test precedes them: (-4 . "op") with op one of < > <= >= =
// != /= <> * (anything) & (some bit of the value) &= (all bits of the value);
// for a point the operator is one per coordinate ("<,>,*") or one for all.
// -3 with application names: the entity has extended data of each.
// Groupings: (-4 . "<AND") tests... (-4 . "AND>"), "<OR" "OR>" (one test at
// least), "<XOR" "XOR>" (exactly two), "<NOT" "NOT>" (exactly one). A group
// the entity lacks fails its test (also !=).
#include <cmath>
#include <cwctype>

#include "lisp/lisp.h"
#include "session/session.h"
#include "select/select.h"

namespace vantry::host::select {

struct Filter::Node {
  enum Kind { And, Or, Xor, Not, Test } kind = Test;
  std::vector<Node *> kids;
  // A test.
  int code = 0;
  std::wstring op;  // empty: the default test
  enum Value { Str, Num, Point, Apps } value = Str;
  std::wstring text;
  double num = 0;
  bool integral = false;
  double pt[3] = {0, 0, 0};
  std::vector<std::wstring> apps;
  ~Node() {
    for (Node *k : kids) delete k;
  }
};

namespace {

using Node = Filter::Node;

bool isGroupCode(int t) {
  return t >= -5 && t <= 1071;
}

bool numeric(const resbuf *rb) {
  return rb && (rb->restype == RTSHORT || rb->restype == RTLONG || rb->restype == RTREAL ||
                rb->restype == RTINT64 || rb->restype == RTANG);
}

double numberOf(const resbuf *rb) {
  switch (rb->restype) {
    case RTSHORT:
      return rb->resval.rint;
    case RTLONG:
      return rb->resval.rlong;
    case RTINT64:
      return double(rb->resval.mnInt64);
    default:
      return rb->resval.rreal;
  }
}

// One (code . value) of the filter, before groupings are read.
struct Item {
  int code = 0;
  Node::Value value = Node::Str;
  std::wstring text;
  double num = 0;
  bool integral = false;
  double pt[3] = {0, 0, 0};
  std::vector<std::wstring> apps;
};

// Lists and groupings nested deeper than this make a malformed filter: the
// reader, the grouping builder and the matcher recurse once per level.
constexpr int kMaxNesting = 256;

class Reader {
 public:
  std::vector<Item> items;
  bool ok = true;
  int depth = 0;

  // Reads nodes from rb up to the end of the chain or an RTLE (left unread).
  const resbuf *run(const resbuf *rb) {
    while (rb && ok && rb->restype != RTLE) rb = one(rb);
    return rb;
  }

 private:
  const resbuf *fail() {
    ok = false;
    return nullptr;
  }

  // Application names after -3: RTLB strings RTLE lists or 1001 nodes.
  const resbuf *apps(const resbuf *rb, Item &it) {
    for (;;) {
      if (rb && rb->restype == 1001 && rb->resval.rstring) {
        it.apps.push_back(rb->resval.rstring);
        rb = rb->rbnext;
      } else if (rb && rb->restype == RTLB && rb->rbnext && rb->rbnext->restype == RTSTR) {
        // The list's first string names the application; what follows it
        // (data, as entity data lists carry it) is not tested.
        rb = rb->rbnext;
        if (!rb->resval.rstring) return fail();
        it.apps.push_back(rb->resval.rstring);
        while (rb && rb->restype != RTLE) rb = rb->rbnext;
        if (!rb) return fail();
        rb = rb->rbnext;
      } else {
        return rb;
      }
    }
  }

  bool setValue(Item &it, const resbuf *rb) {
    switch (rbKind(it.code)) {
      case RbKind::String:
        if (rb->restype != RTSTR && rb->restype != it.code) return false;
        it.value = Node::Str;
        it.text = rb->resval.rstring ? rb->resval.rstring : L"";
        return true;
      case RbKind::Point:
        if (rb->restype != RTPOINT && rb->restype != RT3DPOINT && rb->restype != it.code) return false;
        it.value = Node::Point;
        for (int i = 0; i < 3; ++i) it.pt[i] = rb->resval.rpoint[i];
        if (rb->restype == RTPOINT) it.pt[2] = 0;
        return true;
      default:
        break;
    }
    it.value = Node::Num;
    if (rb->restype == it.code) {
      switch (rbKind(it.code)) {
        case RbKind::Real:
          it.num = rb->resval.rreal;
          return true;
        case RbKind::Short:
          it.num = rb->resval.rint, it.integral = true;
          return true;
        case RbKind::Long:
          it.num = rb->resval.rlong, it.integral = true;
          return true;
        case RbKind::Int64:
          it.num = double(rb->resval.mnInt64), it.integral = true;
          return true;
        default:
          return false;
      }
    }
    if (!numeric(rb)) return false;
    it.num = numberOf(rb);
    it.integral = rb->restype != RTREAL && rb->restype != RTANG;
    return true;
  }

  // (code . value) as a list of its own: RTLB code [RTDOTE] value... RTLE.
  const resbuf *pair(const resbuf *rb) {
    Item it;
    it.code = int(numberOf(rb));
    rb = rb->rbnext;
    if (it.code == -3) {
      rb = apps(rb, it);
      if (!ok || !rb || rb->restype != RTLE || it.apps.empty()) return fail();
      items.push_back(std::move(it));
      return rb->rbnext;
    }
    if (rb && rb->restype == RTDOTE) rb = rb->rbnext;
    std::vector<const resbuf *> vals;
    for (; rb && rb->restype != RTLE; rb = rb->rbnext) vals.push_back(rb);
    if (!rb || vals.empty()) return fail();
    if (vals.size() == 1) {
      if (!setValue(it, vals[0])) return fail();
    } else {
      if (vals.size() > 3 || rbKind(it.code) != RbKind::Point) return fail();
      it.value = Node::Point;
      for (size_t i = 0; i < vals.size(); ++i) {
        if (!numeric(vals[i])) return fail();
        it.pt[i] = numberOf(vals[i]);
      }
    }
    items.push_back(std::move(it));
    return rb->rbnext;
  }

  const resbuf *one(const resbuf *rb) {
    int t = rb->restype;
    if (t == RTNIL) return rb->rbnext;
    if (t == RTLB) {
      const resbuf *n = rb->rbnext;
      if (n && (n->restype == RTSHORT || n->restype == RTLONG)) return pair(n);
      if (++depth > kMaxNesting) return fail();
      n = run(n);
      --depth;
      if (!ok || !n) return fail();  // no RTLE
      return n->rbnext;
    }
    if (t == RTDXF0) t = 0;  // code 0 as acutBuildList spells it
    if (!isGroupCode(t)) return fail();
    Item it;
    it.code = t;
    if (t == -3) {
      rb = apps(rb->rbnext, it);
      if (!ok || it.apps.empty()) return fail();
      items.push_back(std::move(it));
      return rb;
    }
    if (t == -4 || rbKind(t) == RbKind::String) {
      it.value = Node::Str;
      it.text = rb->resval.rstring ? rb->resval.rstring : L"";
    } else if (!setValue(it, rb)) {
      return fail();
    }
    items.push_back(std::move(it));
    return rb->rbnext;
  }
};

const wchar_t *const kRelational[] = {L"<", L">", L"<=", L">=", L"=", L"!=", L"/=", L"<>", L"*", L"&", L"&="};

bool isRelational(const std::wstring &op) {
  size_t start = 0;
  for (;;) {
    size_t comma = op.find(L',', start);
    std::wstring part = op.substr(start, comma == std::wstring::npos ? std::wstring::npos : comma - start);
    bool known = false;
    for (const wchar_t *r : kRelational) known = known || part == r;
    if (!known) return false;
    if (comma == std::wstring::npos) return true;
    start = comma + 1;
  }
}

Node *testNode(Item &it, std::wstring op) {
  auto *n = new Node;
  n->code = it.code;
  n->op = std::move(op);
  n->value = it.value;
  n->text = text::upcase(it.text);
  n->num = it.num;
  n->integral = it.integral;
  for (int i = 0; i < 3; ++i) n->pt[i] = it.pt[i];
  for (auto &a : it.apps) n->apps.push_back(text::upcase(a));
  return n;
}

// Builds nodes from items[i...] until the closer (empty at the top level).
bool build(std::vector<Item> &items, size_t &i, const std::wstring &closer, std::vector<Node *> &out,
           int depth = 0) {
  if (depth > kMaxNesting) return false;
  while (i < items.size()) {
    Item &it = items[i++];
    if (it.code != -4) {
      out.push_back(testNode(it, L""));
      continue;
    }
    std::wstring op = text::upcase(it.text);
    if (op == closer && !closer.empty()) return true;
    Node::Kind kind;
    if (op == L"<AND")
      kind = Node::And;
    else if (op == L"<OR")
      kind = Node::Or;
    else if (op == L"<XOR")
      kind = Node::Xor;
    else if (op == L"<NOT")
      kind = Node::Not;
    else if (isRelational(op)) {
      if (i >= items.size() || items[i].code == -4 || items[i].code == -3) return false;
      out.push_back(testNode(items[i++], op));
      continue;
    } else {
      return false;  // an unknown operator or a closer out of place
    }
    auto *g = new Node;
    g->kind = kind;
    out.push_back(g);
    if (!build(items, i, op.substr(1) + L">", g->kids, depth + 1)) return false;
    size_t n = g->kids.size();
    if (n == 0 || (kind == Node::Xor && n != 2) || (kind == Node::Not && n != 1)) return false;
  }
  return closer.empty();
}

// --- Matching -------------------------------------------------------------------------------

// What an entity holds, gathered as tests ask for it.
struct Subject {
  const AcDbEntity &ent;
  mutable std::unique_ptr<AcDbDxfFiler> fields;
  const AcDbDxfFiler &filer() const {
    if (!fields) {
      fields = std::make_unique<AcDbDxfFiler>(false);
      ent.dxfOutFields(fields.get());
    }
    return *fields;
  }
};

bool compare(const std::wstring &op, double v, double f, bool integral) {
  double tol = 1e-10 * std::max(1.0, std::fabs(f));
  if (op.empty() || op == L"=") return std::fabs(v - f) <= tol;
  if (op == L"!=" || op == L"/=" || op == L"<>") return std::fabs(v - f) > tol;
  if (op == L"<") return v < f;
  if (op == L">") return v > f;
  if (op == L"<=") return v <= f + tol;
  if (op == L">=") return v >= f - tol;
  if (op == L"*") return true;
  if (!integral) return false;
  long long a = (long long)v, b = (long long)f;
  if (op == L"&") return (a & b) != 0;
  if (op == L"&=") return (a & b) == b;
  return false;
}

bool comparePoint(const std::wstring &op, const double *v, const double *f) {
  std::vector<std::wstring> ops;
  size_t start = 0;
  for (;;) {
    size_t comma = op.find(L',', start);
    ops.push_back(op.substr(start, comma == std::wstring::npos ? std::wstring::npos : comma - start));
    if (comma == std::wstring::npos) break;
    start = comma + 1;
  }
  for (int i = 0; i < 3; ++i) {
    const std::wstring &o = ops.size() == 3 ? ops[i] : ops[0];
    if (!compare(o, v[i], f[i], false)) return false;
  }
  return true;
}

bool compareText(const std::wstring &op, const std::wstring &v, const std::wstring &pattern) {
  std::wstring value = text::upcase(v);
  if (op.empty() || op == L"=") return lisp::wcmatch(value, pattern);
  if (op == L"!=" || op == L"/=" || op == L"<>") return !lisp::wcmatch(value, pattern);
  if (op == L"*") return true;
  if (op == L"<") return value < pattern;
  if (op == L">") return value > pattern;
  if (op == L"<=") return value <= pattern;
  if (op == L">=") return value >= pattern;
  return false;
}

std::wstring takeString(ACHAR *s) {
  std::wstring out = s ? s : L"";
  acutDelString(s);
  return out;
}

bool spaceOf(const AcDbEntity &ent, bool &paper, std::wstring &layout) {
  AcDbDatabase *db = ent.database();
  if (!db) return false;
  AcDbObjectId owner = ent.ownerId();
  if (owner == db->impl()->modelSpace) {
    paper = false, layout = L"Model";
    return true;
  }
  if (owner == db->impl()->paperSpace) {
    paper = true, layout = L"Layout1";
    return true;
  }
  return false;
}

bool testItem(const Node &n, const Subject &s) {
  const AcDbEntity &ent = s.ent;
  switch (n.code) {
    case 0:
      return compareText(n.op, dxfTypeOf(&ent) ? dxfTypeOf(&ent) : L"", n.text);
    case 8:
      return compareText(n.op, takeString(ent.layer()), n.text);
    case 6:
      return compareText(n.op, takeString(ent.linetype()), n.text);
    case 62:
      return compare(n.op, ent.colorIndex(), n.num, true);
    case 2:
      if (auto *ref = AcDbBlockReference::cast(&ent))
        return compareText(n.op, recordName(ref->blockTableRecord()), n.text);
      break;
    case 67:
    case 410: {
      bool paper = false;
      std::wstring layout;
      if (!spaceOf(ent, paper, layout)) return false;
      return n.code == 67 ? compare(n.op, paper ? 1 : 0, n.num, true) : compareText(n.op, layout, n.text);
    }
    case -3: {
      std::vector<std::wstring> have = ent.xDataApplications();
      for (const std::wstring &want : n.apps) {
        bool found = false;
        for (const std::wstring &a : have) found = found || lisp::wcmatch(text::upcase(a), want);
        if (!found) return false;
      }
      return true;
    }
    default:
      break;
  }
  // Any other code: the entity's own groups; a test holds when one of the
  // groups with that code passes it.
  for (const AcDbDxfFiler::Item &it : s.filer().items()) {
    if (it.code != n.code) continue;
    bool pass = false;
    switch (n.value) {
      case Node::Str:
        pass = compareText(n.op, it.id.isNull() ? it.text : it.id.handle().toString(), n.text);
        break;
      case Node::Point: {
        double v[3] = {it.real[0], it.real[1], it.dims == 3 ? it.real[2] : 0};
        pass = it.dims && comparePoint(n.op.empty() ? L"=" : n.op, v, n.pt);
        break;
      }
      case Node::Num: {
        RbKind k = rbKind(n.code);
        double v = k == RbKind::Real ? it.real[0] : double(it.integer);
        pass = compare(n.op, v, n.num, k != RbKind::Real);
        break;
      }
      case Node::Apps:
        break;
    }
    if (pass) return true;
  }
  return false;
}

bool eval(const Node &n, const Subject &s) {
  switch (n.kind) {
    case Node::Test:
      return testItem(n, s);
    case Node::And:
      for (Node *k : n.kids)
        if (!eval(*k, s)) return false;
      return true;
    case Node::Or:
      for (Node *k : n.kids)
        if (eval(*k, s)) return true;
      return false;
    case Node::Xor:
      return eval(*n.kids[0], s) != eval(*n.kids[1], s);
    case Node::Not:
      return !eval(*n.kids[0], s);
  }
  return false;
}

}  // namespace

Filter::~Filter() {
  for (Node *n : nodes_) delete n;
}

bool Filter::parse(const resbuf *rb) {
  for (Node *n : nodes_) delete n;
  nodes_.clear();
  Reader r;
  const resbuf *end = r.run(rb);
  if (!r.ok || end) return false;  // a stray RTLE
  for (Item &it : r.items)
    if (it.code == -3) it.value = Node::Apps;
  size_t i = 0;
  if (!build(r.items, i, L"", nodes_)) {
    for (Node *n : nodes_) delete n;
    nodes_.clear();
    return false;
  }
  return true;
}

bool Filter::matches(const AcDbEntity &ent) const {
  Subject s{ent, nullptr};
  for (const Node *n : nodes_)
    if (!eval(*n, s)) return false;
  return true;
}

}  // namespace vantry::host::select
