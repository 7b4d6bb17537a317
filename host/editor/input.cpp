// Editor input over the scripted person: the request loop of
// host/editor/editor.h (its conversions are in (parse.cpp)), the session's
// input and dialog queues, and the
// LISP built-ins initget, getpoint, getcorner, getstring, getint, getreal,
// getkword, getdist, getangle and getorient.
//
// Transcript of one request: the prompt as given, the answer as the person
// gave it ("1,2,0" for a point, the text typed, "*Cancel*" for Esc, nothing
// for Enter) and a line break; an answer that does not fit is followed by the
// host's message on its own line and the prompt again.
//
// Angles: typed angles and angles between two points are measured from the
// east, counterclockwise, in radians in [0, 2*pi). ANGBASE and ANGDIR are
// not applied (they are at their defaults, which make getangle and getorient
// agree).
#include <cmath>
#include <cwctype>

#include "editor/editor.h"
#include "session/session.h"
#include "session/internal.h"

namespace vantry::host {

InputItem Session::nextInput() {
  if (input.empty()) {
    print(L"[no input queued] ");
    InputItem cancel;
    cancel.kind = InputItem::Cancel;
    return cancel;
  }
  InputItem item = input.front();
  input.pop_front();
  return item;
}

std::optional<std::wstring> Session::nextDialogAnswer() {
  if (dialogAnswers.empty()) return std::nullopt;
  std::wstring answer = dialogAnswers.front();
  dialogAnswers.pop_front();
  return answer;
}

namespace editor {
namespace {

constexpr double kPi = 3.14159265358979323846;

struct Pending {
  int bits = 0;
  std::wstring keywords;
};
Pending pending;
std::wstring lastText;

std::wstring number(double v) {
  if (v == 0) v = 0;  // no "-0"
  wchar_t buf[64];
  swprintf(buf, 64, L"%.10g", v);
  return buf;
}


int shortVar(const wchar_t *name, int fallback) {
  resbuf rb{};
  return acedGetVar(name, &rb) == RTNORM && rb.restype == RTSHORT ? rb.resval.rint : fallback;
}

Point lastPoint() {
  auto &vars = Session::get().sysvars;
  auto it = vars.find(L"LASTPOINT");
  if (it == vars.end() || it->second.restype != RT3DPOINT) return {0, 0, 0};
  const double *p = it->second.resval.rpoint;
  return {p[0], p[1], p[2]};
}

void setLastPoint(const Point &p) {
  resbuf rb{};
  rb.restype = RT3DPOINT;
  for (int i = 0; i < 3; ++i) rb.resval.rpoint[i] = p[i];
  setSystemValue(L"LASTPOINT", rb);
}

double normalize(double a) {
  a = std::fmod(a, 2 * kPi);
  return a < 0 ? a + 2 * kPi : a;
}

double angleBetween(const Point &a, const Point &b) {
  return normalize(std::atan2(b[1] - a[1], b[0] - a[0]));
}

}  // namespace

std::wstring echoOf(const InputItem &item) {
  switch (item.kind) {
    case InputItem::Point:
    case InputItem::Pick:
      return number(item.pt[0]) + L"," + number(item.pt[1]) + L"," + number(item.pt[2]);
    case InputItem::Text:
      return item.text;
    case InputItem::Cancel:
      return L"*Cancel*";
    case InputItem::Empty:
      break;
  }
  return L"";
}

// --- Requests --------------------------------------------------------------------------

void initGet(int bits, std::wstring_view keywords) {
  pending.bits = bits;
  pending.keywords = std::wstring(keywords);
}

const std::wstring &lastInput() {
  return lastText;
}

namespace {

const wchar_t *mismatchMessage(Kind kind, bool haveKeywords) {
  switch (kind) {
    case Kind::Int:
      return L"Requires an integer value.";
    case Kind::Real:
      return L"Requires numeric value.";
    case Kind::Dist:
      return L"Requires numeric distance or second point.";
    case Kind::Angle:
    case Kind::Orient:
      return L"Requires valid numeric angle or second point.";
    case Kind::Kword:
      return L"Invalid option keyword.";
    default:
      return haveKeywords ? L"Point or option keyword required." : L"Invalid point.";
  }
}

// The second point of a distance or an angle given by two points.
std::optional<Point> secondPoint(const Point &first, int aunits, bool &cancelled) {
  Session &s = Session::get();
  for (;;) {
    s.print(L"Specify second point: ");
    InputItem item = s.nextInput();
    s.print(echoOf(item) + L"\n");
    if (item.kind == InputItem::Cancel) {
      cancelled = true;
      return std::nullopt;
    }
    if (item.kind == InputItem::Point || item.kind == InputItem::Pick)
      return Point{item.pt[0], item.pt[1], item.pt[2]};
    if (item.kind == InputItem::Text)
      if (auto p = parsePoint(item.text, first, aunits)) return p;
    s.print(L"Invalid point.\n");
  }
}

}  // namespace

Reply ask(const Query &query) {
  Session &s = Session::get();
  Pending opts = pending;
  pending = Pending{};
  if (query.kind == Kind::String) opts = Pending{};
  const std::vector<Keyword> keywords = parseKeywords(opts.keywords);
  const int aunits = shortVar(L"AUNITS", 0);
  const bool numeric = query.kind == Kind::Int || query.kind == Kind::Real || query.kind == Kind::Dist ||
                       query.kind == Kind::Angle || query.kind == Kind::Orient;
  Reply r;
  for (;;) {
    s.print(query.prompt);
    InputItem item = s.nextInput();
    s.print(echoOf(item) + L"\n");
    auto retry = [&](const wchar_t *message) { s.print(std::wstring(message) + L"\n"); };

    if (item.kind == InputItem::Cancel) {
      r.status = RTCAN;
      return r;
    }
    if (item.kind == InputItem::Empty) {
      if (query.kind == Kind::String) {
        r.status = RTNORM;
        return r;
      }
      if ((opts.bits & kArbitrary) && (opts.bits & kNoNull)) {
        lastText.clear();
        r.status = RTKWORD;
        return r;
      }
      if (opts.bits & kNoNull) continue;
      r.status = RTNONE;
      return r;
    }
    if (query.kind == Kind::String) {
      r.status = RTNORM;
      r.text = echoOf(item);
      if (!query.spaces) r.text = r.text.substr(0, r.text.find(L' '));
      return r;
    }

    std::optional<Point> point;
    std::optional<double> value;
    if (item.kind != InputItem::Text) {
      point = Point{item.pt[0], item.pt[1], item.pt[2]};
    } else {
      switch (query.kind) {
        case Kind::Int:
          if (auto i = parseInteger(item.text)) {
            if (*i < -32768 || *i > 32767) {
              retry(L"Requires an integer between -32768 and 32767.");
              continue;
            }
            value = double(*i);
          }
          break;
        case Kind::Real:
        case Kind::Dist:
          value = parseReal(item.text);
          break;
        case Kind::Angle:
        case Kind::Orient:
          value = parseAngle(item.text, aunits);
          if (value) value = normalize(*value);
          break;
        default:
          break;
      }
      if (!value && query.kind != Kind::Int && query.kind != Kind::Real && query.kind != Kind::Kword)
        point = parsePoint(item.text, lastPoint(), aunits);
      if (!value && !point) {
        if (const Keyword *k = matchKeyword(keywords, item.text)) {
          lastText = k->global;
          r.text = k->global;
          r.status = query.kind == Kind::Kword ? RTNORM : RTKWORD;
          return r;
        }
        if (opts.bits & kArbitrary) {
          lastText = item.text;
          r.text = item.text;
          r.status = query.kind == Kind::Kword ? RTNORM : RTKWORD;
          return r;
        }
      }
    }

    // A point answers a point, or gives a distance or an angle from the base.
    if (point && !value) {
      if (query.kind == Kind::Point || query.kind == Kind::Corner) {
        setLastPoint(*point);
        r.point = *point;
        r.status = RTNORM;
        return r;
      }
      if (query.kind == Kind::Dist || query.kind == Kind::Angle || query.kind == Kind::Orient) {
        Point from = *point, to;
        if (query.base) {
          from = *query.base;
          to = *point;
        } else {
          bool cancelled = false;
          auto second = secondPoint(from, aunits, cancelled);
          if (cancelled) {
            r.status = RTCAN;
            return r;
          }
          to = *second;
        }
        setLastPoint(to);
        if (query.kind == Kind::Dist) {
          double dz = (opts.bits & kNoZDist) ? 0 : to[2] - from[2];
          value = std::sqrt(std::pow(to[0] - from[0], 2) + std::pow(to[1] - from[1], 2) + dz * dz);
        } else {
          value = angleBetween(from, to);
        }
      }
    }
    if (!value) {
      retry(mismatchMessage(query.kind, !keywords.empty()));
      continue;
    }
    if (numeric && (opts.bits & kNoZero) && *value == 0) {
      retry(L"Value must be nonzero.");
      continue;
    }
    if (numeric && (opts.bits & kNoNegative) && *value < 0) {
      retry(L"Value must be positive.");
      continue;
    }
    r.status = RTNORM;
    r.real = *value;
    r.integer = (long long)(*value);
    return r;
  }
}

}  // namespace editor

void resetEditorInput() {
  editor::pending = {};
  editor::lastText.clear();
}

}  // namespace vantry::host

// --- The LISP built-ins ----------------------------------------------------------------

namespace vantry::host {
namespace {

using lisp::Interp;
using lisp::Value;

std::optional<editor::Point> pointOf(const Value &v) {
  int n = lisp::listLength(v);
  if (!v.isCons() || n < 2 || n > 3) return std::nullopt;
  editor::Point p{0, 0, 0};
  int i = 0;
  for (const Value &x : lisp::listToVector(v)) {
    if (!x.isNumber()) return std::nullopt;
    p[i++] = x.number();
  }
  return p;
}

Value pointValue(const editor::Point &p) {
  lisp::ListBuilder b;
  for (double c : p) b.add(Value::real(c));
  return b.take();
}

// What the LISP caller gets: the value, a keyword string, nil for Enter; Esc
// is the error "Function cancelled".
Value answer(Interp &in, const editor::Query &q) {
  editor::Reply r = editor::ask(q);
  switch (r.status) {
    case RTCAN:
      in.error(L"Function cancelled");
    case RTNONE:
      return Value();
    case RTKWORD:
      return lisp::makeString(r.text);
  }
  switch (q.kind) {
    case editor::Kind::Point:
    case editor::Kind::Corner:
      return pointValue(r.point);
    case editor::Kind::Int:
      return Value::integer(int32_t(r.integer));
    case editor::Kind::String:
    case editor::Kind::Kword:
      return lisp::makeString(r.text);
    default:
      return Value::real(r.real);
  }
}

// [point] [prompt] in either order, as getpoint, getdist, getangle and
// getorient take them; nil stands for an absent point.
Value askWithBase(Interp &in, const Value *args, int nargs, editor::Kind kind) {
  lisp::needArgs(in, nargs, 0, 2);
  editor::Query q;
  q.kind = kind;
  for (int i = 0; i < nargs; ++i) {
    if (args[i].type() == lisp::Type::Str) {
      q.prompt = lisp::str(args[i]);
    } else if (!args[i].isNil()) {
      auto p = pointOf(args[i]);
      if (!p) in.badArgType(L"2D/3D point", args[i]);
      q.base = p;
    }
  }
  return answer(in, q);
}

Value askPlain(Interp &in, const Value *args, int nargs, editor::Kind kind) {
  lisp::needArgs(in, nargs, 0, 1);
  editor::Query q;
  q.kind = kind;
  if (nargs == 1) q.prompt = lisp::strArg(in, args[0]);
  return answer(in, q);
}

// (initget [bits] [keywords]): nil.
Value initgetFn(Interp &in, const Value *args, int nargs) {
  lisp::needArgs(in, nargs, 0, 2);
  int bits = 0;
  std::wstring keywords;
  for (int i = 0; i < nargs; ++i) {
    if (i == 0 && args[i].type() != lisp::Type::Str)
      bits = lisp::intArg(in, args[i]);
    else
      keywords = lisp::strArg(in, args[i]);
  }
  editor::initGet(bits, keywords);
  return Value();
}

Value getpointFn(Interp &in, const Value *a, int n) {
  return askWithBase(in, a, n, editor::Kind::Point);
}
Value getdistFn(Interp &in, const Value *a, int n) {
  return askWithBase(in, a, n, editor::Kind::Dist);
}
Value getangleFn(Interp &in, const Value *a, int n) {
  return askWithBase(in, a, n, editor::Kind::Angle);
}
Value getorientFn(Interp &in, const Value *a, int n) {
  return askWithBase(in, a, n, editor::Kind::Orient);
}
Value getintFn(Interp &in, const Value *a, int n) {
  return askPlain(in, a, n, editor::Kind::Int);
}
Value getrealFn(Interp &in, const Value *a, int n) {
  return askPlain(in, a, n, editor::Kind::Real);
}
Value getkwordFn(Interp &in, const Value *a, int n) {
  return askPlain(in, a, n, editor::Kind::Kword);
}

// (getcorner point [prompt]): the base point is required.
Value getcornerFn(Interp &in, const Value *args, int nargs) {
  lisp::needArgs(in, nargs, 1, 2);
  editor::Query q;
  q.kind = editor::Kind::Corner;
  q.base = pointOf(args[0]);
  if (!q.base) in.badArgType(L"2D/3D point", args[0]);
  if (nargs == 2) q.prompt = lisp::strArg(in, args[1]);
  return answer(in, q);
}

// (getstring [cr] [prompt]): a non-nil cr lets the answer hold blanks.
Value getstringFn(Interp &in, const Value *args, int nargs) {
  lisp::needArgs(in, nargs, 0, 2);
  editor::Query q;
  q.kind = editor::Kind::String;
  if (nargs == 2) {
    q.spaces = !args[0].isNil();
    q.prompt = lisp::strArg(in, args[1]);
  } else if (nargs == 1) {
    if (args[0].type() == lisp::Type::Str)
      q.prompt = lisp::str(args[0]);
    else
      q.spaces = !args[0].isNil();
  }
  return answer(in, q);
}

}  // namespace

void installEditorInput(lisp::Interp &in) {
  static const struct {
    const wchar_t *name;
    lisp::SubrFn fn;
  } table[] = {
      {L"initget", initgetFn},     {L"getpoint", getpointFn}, {L"getcorner", getcornerFn},
      {L"getstring", getstringFn}, {L"getint", getintFn},     {L"getreal", getrealFn},
      {L"getkword", getkwordFn},   {L"getdist", getdistFn},   {L"getangle", getangleFn},
      {L"getorient", getorientFn},
  };
  for (const auto &e : table) in.defineSubr(e.name, e.fn);
}

}  // namespace vantry::host
