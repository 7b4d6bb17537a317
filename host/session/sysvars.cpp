// System variables: acedGetVar/acedSetVar and the LISP getvar/setvar.
//
// Values live in Session::sysvars under upper-case names; an RTSTR value owns
// its string (allocated with new[] here and freed here). Each known variable
// has a descriptor giving its type, whether scripts may set it and, for
// integers, the range the host accepts. CDATE, DATE and MILLISECS are read
// from the clock whenever they are asked for.
//
// ACADPREFIX holds the support directories in this machine's own form: each
// directory ends in "/" and they are joined with ";". Callers that append
// "\\" and a file name get "dir/\\name", which nativePath turns into a path
// that opens (a doubled separator is harmless), as a doubled "\\" is on the
// host's platform. The default is the runner's directory, then the current
// directory.
//
// Status codes: an unknown or read-only variable answers RTERROR; a value of
// the wrong type or out of range answers RTREJ.
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <sstream>
#include <algorithm>

#include "session/session.h"
#include "session/internal.h"

namespace vantry::host {
namespace {

struct VarInfo {
  bool readOnly = false;
  int min = -32768, max = 32767;  // for RTSHORT and RTLONG values
  std::vector<int> allowed;       // when not empty, the only integers accepted
  char where = 's';               // d the drawing, r the settings, s the session
};

std::map<std::wstring, VarInfo> &descriptors() {
  static std::map<std::wstring, VarInfo> table;
  return table;
}

void freeValue(resbuf &rb) {
  if (rb.restype == RTSTR) delete[] rb.resval.rstring;
  rb.resval.rstring = nullptr;
}

ACHAR *copyString(std::wstring_view s) {
  ACHAR *p = new ACHAR[s.size() + 1];
  std::copy(s.begin(), s.end(), p);
  p[s.size()] = 0;
  return p;
}

void store(const std::wstring &name, const resbuf &value) {
  auto &vars = Session::get().sysvars;
  auto it = vars.find(name);
  if (it != vars.end()) freeValue(it->second);
  resbuf &rb = vars[name];
  rb = value;
  rb.rbnext = nullptr;
  if (value.restype == RTSTR)
    rb.resval.rstring = copyString(value.resval.rstring ? value.resval.rstring : L"");
}

void define(const std::wstring &name, const resbuf &value, VarInfo info) {
  descriptors()[name] = info;
  store(name, value);
}

resbuf shortValue(int v) {
  resbuf rb{};
  rb.restype = RTSHORT;
  rb.resval.rint = short(v);
  return rb;
}
resbuf realValue(double v) {
  resbuf rb{};
  rb.restype = RTREAL;
  rb.resval.rreal = v;
  return rb;
}
resbuf stringValue(const ACHAR *s) {
  resbuf rb{};
  rb.restype = RTSTR;
  rb.resval.rstring = const_cast<ACHAR *>(s);
  return rb;
}

std::string runnerDirectory() {
  std::error_code ec;
  std::filesystem::path exe = std::filesystem::read_symlink("/proc/self/exe", ec);
  return ec ? std::string() : exe.parent_path().string();
}

std::wstring defaultSupportPath() {
  std::vector<std::string> dirs;
  std::string runner = runnerDirectory();
  if (!runner.empty()) dirs.push_back(runner);
  std::error_code ec;
  std::string cwd = std::filesystem::current_path(ec).string();
  if (!ec && cwd != runner) dirs.push_back(cwd);
  std::wstring joined;
  for (const std::string &d : dirs) {
    if (!joined.empty()) joined += L';';
    joined += text::fromUtf8(d);
    if (joined.back() != L'/') joined += L'/';
  }
  return joined;
}

// The clock variables, computed in local time as the host does.
void readClock(const std::wstring &name, resbuf &out) {
  using namespace std::chrono;
  auto now = system_clock::now();
  time_t t = system_clock::to_time_t(now);
  int ms = int(duration_cast<milliseconds>(now.time_since_epoch()).count() % 1000);
  struct tm local {};
  localtime_r(&t, &local);
  if (name == L"CDATE") {
    // YYYYMMDD.HHMMSSmmm
    double date = (local.tm_year + 1900) * 10000.0 + (local.tm_mon + 1) * 100.0 + local.tm_mday;
    double time = local.tm_hour * 1e7 + local.tm_min * 1e5 + local.tm_sec * 1e3 + ms;
    out = realValue(date + time / 1e9);
  } else if (name == L"DATE") {
    // Julian day: the Unix epoch is day 2440587.5.
    double seconds = double(t + local.tm_gmtoff) + ms / 1000.0;
    out = realValue(2440587.5 + seconds / 86400.0);
  } else {  // MILLISECS: milliseconds on the monotonic clock, in 32 bits
    out.restype = RTLONG;
    out.resval.rlong =
        int32_t(duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count() & 0x7fffffff);
  }
}

bool isClock(const std::wstring &name) {
  return name == L"CDATE" || name == L"DATE" || name == L"MILLISECS";
}

// Defines every variable of the documented table that the session has not
// defined itself. A malformed row is a fault of this program: it stops the
// seeding loudly rather than leave a variable half made.
void defineDocumented() {
  std::istringstream rows(kSystemVariableTable);
  std::string line;
  while (std::getline(rows, line)) {
    if (line.empty()) continue;
    std::istringstream cols(line);
    std::string name, type, def, accepts, flags, where;
    cols >> name >> type;
    if (type == "s") {
      // The default is quoted and may be empty.
      cols >> std::ws;
      std::getline(cols, def, '"');
      std::getline(cols, def, '"');
    } else {
      cols >> def;
    }
    cols >> accepts >> flags >> where;
    if (name.empty() || where.empty()) {
      fprintf(stderr, "system variable table: bad row: %s\n", line.c_str());
      abort();
    }
    std::wstring key = text::fromUtf8(name);
    if (auto known = descriptors().find(key); known != descriptors().end()) {
      // Defined by the session: the table still says where it is kept.
      known->second.where = where[0];
      continue;
    }
    VarInfo info;
    info.readOnly = flags == "ro";
    info.where = where[0];
    if (accepts.find("..") != std::string::npos) {
      info.min = std::stoi(accepts.substr(0, accepts.find("..")));
      info.max = std::stoi(accepts.substr(accepts.find("..") + 2));
    } else if (accepts != "-") {
      std::istringstream list(accepts);
      std::string v;
      while (std::getline(list, v, '|')) info.allowed.push_back(std::stoi(v));
    }
    if (type == "l") info.min = INT32_MIN, info.max = INT32_MAX;
    resbuf rb{};
    std::wstring text = text::fromUtf8(def);
    if (type == "i") {
      rb = shortValue(std::stoi(def));
    } else if (type == "l") {
      rb.restype = RTLONG;
      rb.resval.rlong = std::stoi(def);
    } else if (type == "r") {
      rb = realValue(std::stod(def));
    } else if (type == "s") {
      rb = stringValue(text.c_str());
    } else {
      rb.restype = type == "p" ? RTPOINT : RT3DPOINT;
      std::istringstream xyz(def);
      std::string c;
      for (int k = 0; k < 3 && std::getline(xyz, c, ','); ++k) rb.resval.rpoint[k] = std::stod(c);
    }
    define(key, rb, info);
  }
}

// --- Variables the drawing keeps -------------------------------------------------------------

// The drawing a variable lives in: the working drawing for a drawing
// variable, else none (the session keeps it).
AcDbDatabase *drawingOf(const std::wstring &name) {
  auto d = descriptors().find(name);
  return d != descriptors().end() && d->second.where == 'd' ? workingDatabase() : nullptr;
}

// The current colour as the variable shows it: BYLAYER, BYBLOCK, an index
// or RGB:r,g,b.
std::wstring colorText(const AcCmColor &c) {
  if (c.isByLayer()) return L"BYLAYER";
  if (c.isByBlock()) return L"BYBLOCK";
  if (c.isByColor())
    return L"RGB:" + std::to_wstring(c.red()) + L"," + std::to_wstring(c.green()) + L"," + std::to_wstring(c.blue());
  return std::to_wstring(c.colorIndex());
}

bool parseColor(std::wstring text, AcCmColor &c) {
  text = text::upcase(text);
  if (text == L"BYLAYER") return c.setColorIndex(256) == Acad::eOk;
  if (text == L"BYBLOCK") return c.setColorIndex(0) == Acad::eOk;
  unsigned r, g, b;
  if (swscanf(text.c_str(), L"RGB:%u,%u,%u", &r, &g, &b) == 3 && r < 256 && g < 256 && b < 256)
    return c.setRGB(Adesk::UInt8(r), Adesk::UInt8(g), Adesk::UInt8(b)) == Acad::eOk;
  wchar_t *end = nullptr;
  long i = std::wcstol(text.c_str(), &end, 10);
  return !text.empty() && end && !*end && i >= 1 && i <= 255 && c.setColorIndex(Adesk::UInt16(i)) == Acad::eOk;
}

// The header group a variable is written with: its own where the file
// format fixes one, else one for its kind of value.
int headerCode(const std::wstring &name, short restype) {
  if (name == L"CELWEIGHT") return 370;
  if (name == L"DIMSTYLE") return 2;
  switch (restype) {
    case RTREAL:
    case RTANG:
      return 40;
    case RTLONG:
      return 90;
    case RTSTR:
      return 1;
    case RTPOINT:
    case RT3DPOINT:
      return 10;
    default:
      return 70;
  }
}

// Fills a value (of the type of the session's default in `value`) from the
// drawing: its current settings, else what it keeps, else the default.
void readFromDrawing(AcDbDatabase *db, const std::wstring &name, resbuf &value, std::wstring &text) {
  auto symbol = [&](AcDbObjectId id) {
    text = recordName(id);
    value.resval.rstring = const_cast<ACHAR *>(text.c_str());
  };
  if (name == L"CLAYER") return symbol(db->clayer());
  if (name == L"TEXTSTYLE") return symbol(db->textstyle());
  if (name == L"CELTYPE") return symbol(db->celtype());
  if (name == L"CECOLOR") {
    text = colorText(db->cecolor());
    value.resval.rstring = const_cast<ACHAR *>(text.c_str());
    return;
  }
  if (name == L"TEXTSIZE") {
    value.resval.rreal = db->textsize();
    return;
  }
  const AcDbDxfFiler::Item *kept = drawingVar(db, name);
  if (!kept) return;
  switch (value.restype) {
    case RTSHORT:
      value.resval.rint = short(kept->integer);
      break;
    case RTLONG:
      value.resval.rlong = int32_t(kept->integer);
      break;
    case RTREAL:
    case RTANG:
      value.resval.rreal = kept->real[0];
      break;
    case RTSTR:
      text = kept->text;
      value.resval.rstring = const_cast<ACHAR *>(text.c_str());
      break;
    case RTPOINT:
    case RT3DPOINT:
      for (int k = 0; k < 3; ++k) value.resval.rpoint[k] = kept->real[k];
      break;
  }
}

// Stores a checked value in the drawing. The current layer, text style and
// linetype must name records of the drawing (a frozen layer cannot be
// current); the colour must read as one. RTREJ when refused.
int writeToDrawing(AcDbDatabase *db, const std::wstring &name, const resbuf &value) {
  if (name == L"CLAYER" || name == L"TEXTSTYLE" || name == L"CELTYPE") {
    AcDbObjectId table = name == L"CLAYER"      ? db->layerTableId()
                         : name == L"TEXTSTYLE" ? db->textStyleTableId()
                                                : db->linetypeTableId();
    AcDbObjectId id = recordId(table, value.resval.rstring);
    if (id.isNull() || id.isErased()) return RTREJ;
    if (auto *layer = AcDbLayerTableRecord::cast(objectOf(id)); layer && layer->isFrozen()) return RTREJ;
    Acad::ErrorStatus es = name == L"CLAYER"      ? db->setClayer(id)
                           : name == L"TEXTSTYLE" ? db->setTextstyle(id)
                                                  : db->setCeltype(id);
    return es == Acad::eOk ? RTNORM : RTREJ;
  }
  if (name == L"CECOLOR") {
    AcCmColor c;
    if (!parseColor(value.resval.rstring, c)) return RTREJ;
    return db->setCecolor(c) == Acad::eOk ? RTNORM : RTREJ;
  }
  if (name == L"TEXTSIZE") return db->setTextsize(value.resval.rreal) == Acad::eOk ? RTNORM : RTREJ;
  AcDbDxfFiler::Item it;
  if (const AcDbDxfFiler::Item *kept = drawingVar(db, name)) it = *kept;
  else it.code = headerCode(name, value.restype);
  switch (value.restype) {
    case RTSHORT:
      it.integer = value.resval.rint;
      break;
    case RTLONG:
      it.integer = value.resval.rlong;
      break;
    case RTREAL:
    case RTANG:
      it.real[0] = value.resval.rreal;
      break;
    case RTSTR:
      it.text = value.resval.rstring;
      break;
    case RTPOINT:
    case RT3DPOINT:
      it.dims = value.restype == RTPOINT ? 2 : 3;
      for (int k = 0; k < 3; ++k) it.real[k] = value.resval.rpoint[k];
      break;
  }
  db->impl()->vars[name] = it;
  return RTNORM;
}

}  // namespace

// The command-line log of this process: <temp folder>/vantry-<pid>.log.
std::wstring defaultLogFile() {
  std::string dir = "/tmp";
  for (const char *var : {"TMP", "TEMP", "TMPDIR"})
    if (const char *v = getenv(var); v && *v) {
      dir = v;
      break;
    }
  return text::fromUtf8(dir + "/vantry-" + std::to_string(getpid()) + ".log");
}

// While LOGFILEON is 1, everything the command line shows is appended to
// LOGFILENAME, as the host keeps its log file.
void appendToCommandLog(std::wstring_view text) {
  static std::FILE *log = nullptr;
  static std::wstring logName;
  auto &vars = Session::get().sysvars;
  auto on = vars.find(L"LOGFILEON");
  auto name = vars.find(L"LOGFILENAME");
  bool wanted = on != vars.end() && on->second.restype == RTSHORT && on->second.resval.rint == 1 &&
                name != vars.end() && name->second.restype == RTSTR;
  if (log && (!wanted || logName != name->second.resval.rstring)) {
    std::fclose(log);
    log = nullptr;
  }
  if (!wanted) return;
  if (!log) {
    logName = name->second.resval.rstring;
    log = std::fopen(text::nativePath(logName).c_str(), "a");
    if (!log) return;
  }
  std::string bytes = text::toUtf8(text);
  std::fwrite(bytes.data(), 1, bytes.size(), log);
  std::fflush(log);
}

void seedSystemVariables() {
  for (auto &[name, rb] : Session::get().sysvars) freeValue(rb);
  Session::get().sysvars.clear();
  descriptors().clear();
  VarInfo ro;
  ro.readOnly = true;
  auto range = [](int lo, int hi) {
    VarInfo v;
    v.min = lo;
    v.max = hi;
    return v;
  };

  define(L"ACADPREFIX", stringValue(defaultSupportPath().c_str()), ro);
  define(L"ACADVER", stringValue(L"25.0"), ro);
  define(L"ANGBASE", realValue(0.0), {});
  define(L"ANGDIR", shortValue(0), range(0, 1));
  define(L"AUNITS", shortValue(0), range(0, 4));
  define(L"AUPREC", shortValue(0), range(0, 8));
  define(L"CDATE", realValue(0.0), ro);
  define(L"CMDACTIVE", shortValue(0), ro);
  define(L"CMDECHO", shortValue(1), range(0, 1));
  define(L"DATE", realValue(0.0), ro);
  define(L"DWGNAME", stringValue(L""), ro);
  define(L"DWGPREFIX", stringValue(L""), ro);
  define(L"ERRNO", shortValue(0), {});
  define(L"FILEDIA", shortValue(1), range(0, 1));
  resbuf last{};
  last.restype = RT3DPOINT;
  define(L"LASTPOINT", last, {});
  const char *user = getenv("USER");
  define(L"LOGFILEON", shortValue(0), range(0, 1));
  define(L"LOGFILENAME", stringValue(defaultLogFile().c_str()), ro);
  define(L"LOGINNAME", stringValue(text::fromUtf8(user ? user : "").c_str()), ro);
  define(L"LUNITS", shortValue(2), range(1, 5));
  define(L"LUPREC", shortValue(4), range(0, 8));
  resbuf ms{};
  ms.restype = RTLONG;
  VarInfo anyLong = range(INT32_MIN, INT32_MAX);
  anyLong.readOnly = true;
  define(L"MILLISECS", ms, anyLong);
  define(L"OSMODE", shortValue(4133), range(0, 32767));
  define(L"PICKBOX", shortValue(3), range(0, 50));
  define(L"SDI", shortValue(0), range(0, 3));
  for (int i = 1; i <= 5; ++i) {
    define(L"USERI" + std::to_wstring(i), shortValue(0), {});
    define(L"USERR" + std::to_wstring(i), realValue(0.0), {});
    define(L"USERS" + std::to_wstring(i), stringValue(L""), {});
  }
  defineDocumented();
}

void setSystemValue(const std::wstring &name, const resbuf &value) {
  std::wstring key = text::upcase(name);
  // A drawing variable has one home, the working drawing: the session's
  // copy is only the default a drawing without a value of its own shows.
  // The value must be of the variable's type (an integer is taken for a
  // real); a drawing refuses what it cannot hold, such as a current layer
  // it does not have.
  if (AcDbDatabase *db = drawingOf(key)) {
    auto &vars = Session::get().sysvars;
    auto known = vars.find(key);
    if (known == vars.end()) return;
    resbuf typed = value;
    short want = known->second.restype;
    if ((want == RTREAL || want == RTANG) && value.restype == RTSHORT) {
      typed.restype = want;
      typed.resval.rreal = value.resval.rint;
    } else if (want == RTLONG && value.restype == RTSHORT) {
      typed.restype = RTLONG;
      typed.resval.rlong = value.resval.rint;
    } else if (want == RT3DPOINT && value.restype == RTPOINT) {
      typed.restype = RT3DPOINT;
      typed.resval.rpoint[2] = 0.0;
    }
    if (typed.restype != want && !(want == RTANG && typed.restype == RTREAL)) return;
    if (want == RTSTR && !typed.resval.rstring) return;
    writeToDrawing(db, key, typed);
    return;
  }
  if (!descriptors().count(key)) descriptors()[key] = VarInfo{};
  store(key, value);
}

void setSystemString(const std::wstring &name, std::wstring_view value) {
  std::wstring copy(value);
  setSystemValue(name, stringValue(copy.c_str()));
}

std::vector<std::wstring> supportDirectories() {
  std::vector<std::wstring> dirs;
  auto it = Session::get().sysvars.find(L"ACADPREFIX");
  if (it == Session::get().sysvars.end() || it->second.restype != RTSTR) return dirs;
  std::wstring_view all = it->second.resval.rstring;
  size_t start = 0;
  while (start <= all.size()) {
    size_t end = all.find(L';', start);
    if (end == std::wstring_view::npos) end = all.size();
    if (end > start) dirs.emplace_back(all.substr(start, end - start));
    start = end + 1;
  }
  return dirs;
}

}  // namespace vantry::host

using vantry::host::Session;

// The result's string, if any, belongs to the caller (release it with
// acutDelString, or with acutRelRb when the node is part of a chain).
int acedGetVar(const ACHAR *sym, struct resbuf *result) {
  if (!sym || !result) return RTERROR;
  std::wstring name = vantry::text::upcase(sym);
  auto &vars = Session::get().sysvars;
  auto it = vars.find(name);
  if (it == vars.end()) return RTERROR;
  resbuf value = it->second;
  std::wstring text;
  if (vantry::host::isClock(name)) vantry::host::readClock(name, value);
  if (AcDbDatabase *db = vantry::host::drawingOf(name)) vantry::host::readFromDrawing(db, name, value, text);
  result->restype = value.restype;
  result->resval = value.resval;
  if (value.restype == RTSTR) {
    result->resval.rstring = nullptr;
    acutNewString(value.resval.rstring, result->resval.rstring);
  }
  return RTNORM;
}

int acedSetVar(const ACHAR *sym, const struct resbuf *val) {
  using namespace vantry::host;
  if (!sym || !val) return RTERROR;
  std::wstring name = vantry::text::upcase(sym);
  auto &vars = Session::get().sysvars;
  auto it = vars.find(name);
  if (it == vars.end()) return RTERROR;
  const VarInfo &info = descriptors()[name];
  if (info.readOnly) return RTERROR;

  resbuf next{};
  next.restype = it->second.restype;
  bool integer = val->restype == RTSHORT || val->restype == RTLONG;
  int64_t i = val->restype == RTSHORT ? val->resval.rint : val->restype == RTLONG ? val->resval.rlong : 0;
  switch (it->second.restype) {
    case RTSHORT:
    case RTLONG:
      if (!integer || i < info.min || i > info.max) return RTREJ;
      if (!info.allowed.empty() && std::find(info.allowed.begin(), info.allowed.end(), int(i)) == info.allowed.end())
        return RTREJ;
      if (next.restype == RTSHORT)
        next.resval.rint = short(i);
      else
        next.resval.rlong = int32_t(i);
      break;
    case RTREAL:
    case RTANG:
      if (integer)
        next.resval.rreal = double(i);
      else if (val->restype == RTREAL || val->restype == RTANG)
        next.resval.rreal = val->resval.rreal;
      else
        return RTREJ;
      if (!std::isfinite(next.resval.rreal)) return RTREJ;
      if (name == L"TEXTSIZE" && !(next.resval.rreal > 0)) return RTREJ;
      break;
    case RTSTR:
      if (val->restype != RTSTR || !val->resval.rstring) return RTREJ;
      // The current layer must name something.
      if (name == L"CLAYER" && !*val->resval.rstring) return RTREJ;
      next.resval.rstring = val->resval.rstring;
      break;
    case RTPOINT:
    case RT3DPOINT:
      if (val->restype != RTPOINT && val->restype != RT3DPOINT) return RTREJ;
      next.resval.rpoint[0] = val->resval.rpoint[0];
      next.resval.rpoint[1] = val->resval.rpoint[1];
      next.resval.rpoint[2] = val->restype == RT3DPOINT ? val->resval.rpoint[2] : 0.0;
      break;
    default:
      return RTREJ;
  }
  // A drawing variable is the working drawing's; the session keeps its default.
  if (AcDbDatabase *db = drawingOf(name)) return writeToDrawing(db, name, next);
  store(name, next);
  return RTNORM;
}

// --- getvar and setvar ---------------------------------------------------------------

namespace vantry::host {
namespace {

using lisp::Interp;
using lisp::Value;

Value fromResbuf(const resbuf &rb) {
  switch (rb.restype) {
    case RTSHORT:
      return Value::integer(rb.resval.rint);
    case RTLONG:
      return Value::integer(rb.resval.rlong);
    case RTREAL:
    case RTANG:
      return Value::real(rb.resval.rreal);
    case RTSTR:
      return lisp::makeString(rb.resval.rstring ? rb.resval.rstring : L"");
    case RTPOINT:
    case RT3DPOINT: {
      lisp::ListBuilder b;
      for (int k = 0; k < (rb.restype == RTPOINT ? 2 : 3); ++k) b.add(Value::real(rb.resval.rpoint[k]));
      return b.take();
    }
  }
  return Value();
}

// (getvar name): the value, or nil for a variable the host does not know.
Value getvarFn(Interp &in, const Value *args, int nargs) {
  lisp::needArgs(in, nargs, 1, 1);
  const std::wstring &name = lisp::strArg(in, args[0]);
  resbuf rb{};
  if (acedGetVar(name.c_str(), &rb) != RTNORM) return Value();
  Value v = fromResbuf(rb);
  if (rb.restype == RTSTR) acutDelString(rb.resval.rstring);
  return v;
}

// (setvar name value): the value now held; anything the host refuses is the
// error "AutoCAD variable setting rejected: "NAME" value".
Value setvarFn(Interp &in, const Value *args, int nargs) {
  lisp::needArgs(in, nargs, 2, 2);
  const std::wstring &name = lisp::strArg(in, args[0]);
  const Value &v = args[1];
  resbuf rb{};
  bool ok = true;
  if (v.type() == lisp::Type::Int) {
    int32_t i = v.asInt();
    if (i >= -32768 && i <= 32767) {
      rb.restype = RTSHORT;
      rb.resval.rint = short(i);
    } else {
      rb.restype = RTLONG;
      rb.resval.rlong = i;
    }
  } else if (v.type() == lisp::Type::Real) {
    rb.restype = RTREAL;
    rb.resval.rreal = v.asReal();
  } else if (v.type() == lisp::Type::Str) {
    rb.restype = RTSTR;
    rb.resval.rstring = const_cast<ACHAR *>(lisp::str(v).c_str());
  } else if (v.isCons()) {
    std::vector<Value> items = lisp::listToVector(v);
    int n = lisp::listLength(v);
    ok = (n == 2 || n == 3);
    for (const Value &x : items) ok = ok && x.isNumber();
    if (ok) {
      rb.restype = n == 2 ? RTPOINT : RT3DPOINT;
      for (int k = 0; k < n; ++k) rb.resval.rpoint[k] = items[k].number();
    }
  } else {
    ok = false;
  }
  if (!ok || acedSetVar(name.c_str(), &rb) != RTNORM)
    in.error(L"AutoCAD variable setting rejected: \"" + text::upcase(name) + L"\" " + in.toString(v, true));
  return getvarFn(in, args, 1);
}

}  // namespace

void installSystemVariableLisp(lisp::Interp &in) {
  in.defineSubr(L"getvar", getvarFn);
  in.defineSubr(L"setvar", setvarFn);
}

}  // namespace vantry::host
