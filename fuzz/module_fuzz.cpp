// libFuzzer target: the product module's functions with random arguments,
// called from LISP through the host's dispatch, in one headless session.
//
// The session loads the module (and the sibling solid module) as the runner
// does, in a temporary folder that is the current directory and the only
// support directory. Each input is decoded into a few calls: a byte picks the
// function among those the module registered, the next bytes its arguments,
// taken from a small grammar of values: nil, T, integers, reals (huge,
// tiny, infinite, NaN, or any eight bytes), texts (a pool of names and SQL,
// or bytes of the input with the path separators and ".." taken out, so no
// call reaches beyond the folder), 2D and 3D points, entity names of live
// and erased entities, selection sets, group-code lists, nested lists and
// lists nested thousands deep. Every call must end in a value or a LISP
// error; a crash, a sanitizer report, a leak or a hang is a fault.
//
// Before each input the drawing is closed and a new one opened (the module
// gets its unload and load messages), the folder is emptied, and the
// entities the arguments name are made anew. A call is interrupted after
// two seconds of CPU time, as the person's Esc would.
//
// The duct functions are left out unless VANTRY_FUZZ_DUCTS is set: with
// them an input takes the modeller a second or more (1-2 inputs a second
// against about 30 without), which a run of 45 seconds cannot afford; the
// modeller has its own hostile-input tests. DownloadFile and
// ol_ol-submitBug are always left out: they would go to the network.
#include <sys/time.h>
#include <unistd.h>

#include <cmath>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <limits>
#include <string>
#include <vector>

#include "lisp/lisp.h"
#include "session/session.h"

using namespace vantry;
using namespace vantry::host;
namespace fs = std::filesystem;

namespace {

std::string folder;
std::vector<std::wstring> functions;

// Reads the input front to back; past its end every read answers 0.
struct Bytes {
  const uint8_t *p;
  size_t n;
  uint8_t byte() {
    if (!n) return 0;
    --n;
    return *p++;
  }
  uint32_t u32() {
    uint32_t v = 0;
    for (int i = 0; i < 4; ++i) v = v << 8 | byte();
    return v;
  }
  double f64() {
    uint64_t bits = uint64_t(u32()) << 32 | u32();
    double d;
    std::memcpy(&d, &bits, sizeof d);
    return d;
  }
};

constexpr const wchar_t *kTexts[] = {
    L"",          L"fuzz.mdb",   L"fuzz.accdb", L"T1",        L"FIELD1",     L"LINE",      L"0",
    L"*",         L"Standard",   L"ByLayer",    L"x",         L"SELECT * FROM T1",
    L"CREATE TABLE T1 (FIELD1 TEXT(20), N LONG)", L"INSERT INTO T1 VALUES ('a', 1)",
    L"DROP TABLE T1", L"r",      L"w",          L"rw",        L"somedir\\", L"C",         L"1e308",
    L"\\P",       L"{\\fArial|b1;x}", L"%s%s%n", L"ACAD",     L"_X",        L"Layout1"};

constexpr double kReals[] = {0.0,  -0.0, 1.0,   -1.0,   0.5,     3.141592653589793, 1e-9, 1e-300,
                             1e308, -1e308, 1e18, 4e9, 2147483648.0, std::numeric_limits<double>::infinity(),
                             -std::numeric_limits<double>::infinity(), std::numeric_limits<double>::quiet_NaN(),
                             std::numeric_limits<double>::denorm_min(), 100.0, 250.0, 400.0};

// Global symbols that setUp binds to what the arguments may name.
constexpr const wchar_t *kNamed[] = {L"fz:line", L"fz:circle", L"fz:mtext", L"fz:insert", L"fz:erased",
                                     L"fz:all",  L"fz:empty",  L"fz:pline", L"fz:leader"};

// A text from the input, kept inside the folder: no separators, no "..".
std::wstring fuzzedText(Bytes &in) {
  size_t len = in.byte() % 40;
  std::wstring s;
  for (size_t i = 0; i < len; ++i) {
    wchar_t c = wchar_t(in.byte());
    if (c == L'/' || c == L'\\' || c == L':' || c == 0) c = L'_';
    if (c == L'.' && !s.empty() && s.back() == L'.') c = L'_';
    s += c;
  }
  return s;
}

lisp::Value quoted(lisp::Interp &interp, lisp::Value v) {
  return lisp::cons(lisp::Value(interp.symQuote), lisp::cons(std::move(v), lisp::Value()));
}

// One argument (a form whose value is the argument).
lisp::Value argument(lisp::Interp &interp, Bytes &in, int depth) {
  auto number = [&]() {
    return in.byte() & 1 ? lisp::Value::real(kReals[in.byte() % std::size(kReals)])
                         : lisp::Value::integer(int8_t(in.byte()));
  };
  auto point = [&](int dims) {
    lisp::ListBuilder b;
    for (int i = 0; i < dims; ++i) b.add(number());
    return quoted(interp, b.take());
  };
  switch (in.byte() % 18) {
    case 0: return lisp::Value();
    case 1: return lisp::Value(interp.symT);
    case 2: return lisp::Value::integer(int8_t(in.byte()));
    case 3: return lisp::Value::integer(int32_t(in.u32()));
    case 4: return lisp::Value::real(in.f64());
    case 5: return lisp::Value::real(kReals[in.byte() % std::size(kReals)]);
    case 6: return lisp::makeString(kTexts[in.byte() % std::size(kTexts)]);
    case 7: return lisp::makeString(fuzzedText(in));
    case 8: return point(2);
    case 9: return point(3);
    case 10:
    case 11: return lisp::Value(interp.intern(kNamed[in.byte() % std::size(kNamed)]));
    case 12: {  // a list of arguments' values
      if (depth > 4) return lisp::Value();
      lisp::ListBuilder b;
      b.add(lisp::Value(interp.intern(L"list")));
      for (int i = in.byte() % 5; i > 0; --i) b.add(argument(interp, in, depth + 1));
      return b.take();
    }
    case 13: {  // a list nested deep through its cars
      int levels = 1 + (in.byte() << 8 | in.byte()) % 50000;
      lisp::Value v = lisp::Value::integer(1);
      for (int i = 0; i < levels; ++i) v = lisp::cons(std::move(v), lisp::Value());
      return quoted(interp, std::move(v));
    }
    case 14: {  // group codes, as entmake and filters take them
      constexpr int kCodes[] = {0, 1, 2, 8, 10, 11, 40, 62, 70, -4, 1000, 1001, 1040, 330, -1};
      lisp::ListBuilder b;
      for (int i = in.byte() % 4; i >= 0; --i) {
        int code = kCodes[in.byte() % std::size(kCodes)];
        lisp::Value value = in.byte() & 1 ? lisp::makeString(kTexts[in.byte() % std::size(kTexts)]) : number();
        b.add(lisp::cons(lisp::Value::integer(code), std::move(value)));
      }
      return quoted(interp, b.take());
    }
    case 15: {  // a dotted pair of two values
      return quoted(interp, lisp::cons(number(), lisp::makeString(kTexts[in.byte() % std::size(kTexts)])));
    }
    case 16: return lisp::Value(interp.intern(L"fz:all"));
    default: return lisp::Value(interp.intern(L"fz:erased"));
  }
}

// What the arguments may name, made in the current drawing.
const wchar_t kSetUp[] = LR"(
(setq fz:line (entmakex '((0 . "LINE") (8 . "0") (10 0.0 0.0 0.0) (11 100.0 50.0 0.0))))
(setq fz:circle (entmakex '((0 . "CIRCLE") (10 5.0 5.0 0.0) (40 . 2.5))))
(setq fz:mtext (entmakex '((0 . "MTEXT") (100 . "AcDbEntity") (100 . "AcDbMText") (10 1.0 1.0 0.0)
                           (40 . 2.5) (41 . 40.0) (1 . "Supply\\Pduct"))))
(setq fz:pline (entmakex '((0 . "LWPOLYLINE") (100 . "AcDbEntity") (100 . "AcDbPolyline") (90 . 3) (70 . 0)
                           (10 0.0 0.0) (42 . 0.5) (10 10.0 0.0) (10 10.0 10.0))))
(setq fz:leader nil)
(setq fz:erased (entmakex '((0 . "LINE") (10 1.0 1.0 0.0) (11 2.0 2.0 0.0))))
(entdel fz:erased)
(setq fz:insert nil)
(setq fz:all (ssget "X"))
(setq fz:empty (ssadd))
)";

void arm(long microseconds) {
  itimerval t{};
  t.it_value.tv_sec = microseconds / 1000000;
  t.it_value.tv_usec = microseconds % 1000000;
  setitimer(ITIMER_VIRTUAL, &t, nullptr);
}

void emptyFolder() {
  std::error_code ec;
  for (const auto &e : fs::directory_iterator(folder, ec)) fs::remove_all(e.path(), ec);
}

std::string besideMe(const char *file) {
  std::error_code ec;
  fs::path exe = fs::read_symlink("/proc/self/exe", ec);
  return (exe.parent_path() / file).string();
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
  char tmpl[] = "/tmp/vantry-module-fuzz-XXXXXX";
  if (!mkdtemp(tmpl)) {
    std::perror("module_fuzz: mkdtemp");
    std::exit(1);
  }
  folder = tmpl;
  if (chdir(folder.c_str()) != 0) std::exit(1);
  for (const char *name : {"TMPDIR", "TMP", "TEMP", "HOME"}) setenv(name, folder.c_str(), 1);
  // Headless, whatever machine it runs on: the shell opens nothing, and the
  // known folders it may be asked to make are under HOME.
  for (const char *name : {"DISPLAY", "WAYLAND_DISPLAY", "XDG_CONFIG_HOME", "XDG_DATA_HOME", "XDG_CACHE_HOME"})
    unsetenv(name);
  std::signal(SIGVTALRM, [](int) { lisp::requestInterrupt(); });

  Session &s = Session::get();
  s.echo = nullptr;
  s.moduleLibraries[L"Vantry2025x64.arx"] = besideMe("Vantry2025x64.so");
  s.moduleLibraries[L"ol_ol-solid2025x64.dbx"] = besideMe("ol_ol-solid2025x64.so");
  if (!s.loadModule(L"Vantry2025x64.arx", false)) {
    std::fprintf(stderr, "module_fuzz: the module does not load: %ls\n", s.transcript().c_str());
    std::exit(1);
  }
  s.loadModule(L"ol_ol-solid2025x64.dbx", false);
  Document *doc = s.newDocument(L"");
  lisp::Interp &interp = doc->lisp();
  interp.evalText(L"(host:set-sysvar \"ACADPREFIX\" \"" + std::wstring(folder.begin(), folder.end()) + L"/\")",
                  {L"fuzz", 1});
  bool noDucts = std::getenv("VANTRY_FUZZ_DUCTS") == nullptr;
  for (const auto &[code, name] : doc->functions().names) {
    // The duct fittings (the "Triple" family, hangers, union, explode).
    bool duct = name.find(L"Triple") != std::wstring::npos || name.find(L"triple") != std::wstring::npos ||
                name.find(L"Hanger") != std::wstring::npos || name.find(L"explodeSolid") != std::wstring::npos;
    if (noDucts && duct) continue;
    // Downloads and mailed reports reach the network, where a run would wait
    // on name lookups and servers; they are tested against local servers.
    if (name == L"DownloadFile" || name == L"ol_ol-submitBug") continue;
    functions.push_back(name);
  }
  std::fprintf(stderr, "module_fuzz: %zu functions, folder %s\n", functions.size(), folder.c_str());
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (functions.empty()) return 0;
  Session &s = Session::get();
  while (!s.documents().empty()) s.close(s.documents().back().get());
  s.releaseRetired();  // nothing runs between inputs; the last input's drawings go
  emptyFolder();
  s.clearTranscript();
  s.input.clear();
  s.dialogAnswers.clear();
  Document *doc = s.newDocument(L"");
  lisp::Interp &interp = doc->lisp();
  interp.output = [](std::wstring_view) {};
  try {
    interp.evalForms(kSetUp, {L"fuzz", 1});
  } catch (const lisp::LispError &) {
  } catch (const lisp::ErrorHandled &) {
  }
  Bytes in{data, size};
  for (int calls = 0; in.n && calls < 8; ++calls) {
    lisp::ListBuilder form;
    form.add(lisp::Value(interp.intern(functions[(in.byte() << 8 | in.byte()) % functions.size()])));
    for (int i = in.byte() % 7; i > 0; --i) form.add(argument(interp, in, 0));
    lisp::Value f = form.take();
    lisp::takeInterrupt();
    arm(2'000'000);
    try {
      interp.eval(f);
    } catch (const lisp::LispError &) {
    } catch (const lisp::ErrorHandled &) {
    }
    arm(0);
    lisp::takeInterrupt();
  }
  s.clearTranscript();
  return 0;
}
