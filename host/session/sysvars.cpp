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
    if (descriptors().count(key)) continue;
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
  define(L"CLAYER", stringValue(L"0"), {});
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
  define(L"TEXTSTYLE", stringValue(L"Standard"), {});
  for (int i = 1; i <= 5; ++i) {
    define(L"USERI" + std::to_wstring(i), shortValue(0), {});
    define(L"USERR" + std::to_wstring(i), realValue(0.0), {});
    define(L"USERS" + std::to_wstring(i), stringValue(L""), {});
  }
  defineDocumented();
}

void setSystemValue(const std::wstring &name, const resbuf &value) {
  std::wstring key = text::upcase(name);
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
  if (vantry::host::isClock(name)) vantry::host::readClock(name, value);
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
