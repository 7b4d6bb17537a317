// libFuzzer target: well-formed LISP programs over the built-ins.
//
// lisp_fuzz mutates text, so most of its inputs stop in the reader or at the
// first unbound name. This target reads its input as a string of choices and
// builds from them a program that always parses: calls of the interpreter's
// own built-ins (every name bound to a SUBR after installAll, special forms
// included) with arguments of every type, edge numbers, nested calls,
// quoted lists, dotted pairs, lambdas and assignments to a few variables
// that later forms read. Coverage then goes to the built-ins' argument
// handling rather than to the reader. The same rules as lisp_fuzz hold: a
// value or a LISP error is a pass; a crash, sanitizer report, leak or hang
// is a fault. Evaluation is stopped after 200 ms of CPU time.
#include <fuzzer/FuzzedDataProvider.h>
#include <sys/time.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <csignal>
#include <cstdint>
#include <string>
#include <vector>

#include "lisp/lisp.h"

using namespace vantry;

namespace {

// Built-ins that would write, delete or load files, change the environment,
// or wait for a person.
constexpr const wchar_t *kWithheld[] = {
    L"open",           L"load",          L"setenv",    L"vl-file-delete",     L"vl-file-copy",
    L"vl-file-rename", L"vl-mkdir",      L"findfile",  L"vl-filename-mktemp", L"vl-directory-files",
    L"startapp",       L"setcfg",        L"vl-load-all", L"autoload",         L"vl-registry-write",
    L"vl-registry-delete", L"getstring", L"getint",    L"getreal",            L"getpoint",
    L"getkword",       L"getdist",       L"getangle",  L"getcorner",          L"getorient",
    L"entsel",         L"nentsel",       L"grread",    L"vl-exit-with-error", L"vl-exit-with-value",
    L"quit",           L"exit",
};

constexpr const char *kVariables[] = {"a", "b", "c", "lst", "s", "n"};

constexpr const char *kAtoms[] = {
    "0",       "1",           "-1",        "2147483647", "-2147483648", "65536",  "0.0",      "-0.0",
    "1.5",     "1e308",       "-1e308",    "1e-308",     "3.14159",     "nil",    "T",        "\"\"",
    "\"abc\"", "\"A,B;C\"",   "\"*\"",     "\"#?@.\"",   "\"\\\\\"",    "\"12.5\"", "\"\\n\\t\"", "'a",
    "'(1 2 3)", "'(1 . 2)",   "'((1 . \"x\") (2 . \"y\"))", "'(0.0 0.0 0.0)", "'(1.0 2.0)", "'(nil)", "'()",
    "'+",      "'car",        "\"%s\"",    "\"1,2,3\"",  "-0.5",        "100000", "\"LINE\"", "'(\"a\" \"b\")",
};

class Generator {
 public:
  Generator(FuzzedDataProvider &in, const std::vector<std::string> &names) : in_(in), names_(names) {}

  std::string program() {
    std::string out;
    int forms = in_.ConsumeIntegralInRange(1, 8);
    for (int i = 0; i < forms && in_.remaining_bytes() > 0; ++i) {
      out += form(0);
      out += '\n';
    }
    return out;
  }

 private:
  std::string form(int depth) {
    if (depth > 6 || in_.remaining_bytes() == 0) return atom();
    switch (in_.ConsumeIntegralInRange(0, 9)) {
      case 0: case 1: return atom();
      case 2: return pick(kVariables);
      case 3: return "(setq " + std::string(pick(kVariables)) + " " + form(depth + 1) + ")";
      case 4: return "'" + list(depth + 1);
      case 5: return "(lambda (x y) " + form(depth + 1) + ")";
      case 6: return "(vl-catch-all-apply '" + name() + " (list " + args(depth + 1) + "))";
      default: return "(" + name() + args(depth + 1) + ")";
    }
  }

  std::string args(int depth) {
    std::string out;
    int n = in_.ConsumeIntegralInRange(0, 4);
    for (int i = 0; i < n; ++i) out += " " + form(depth);
    return out;
  }

  std::string list(int depth) {
    std::string out = "(";
    int n = in_.ConsumeIntegralInRange(0, 4);
    for (int i = 0; i < n; ++i) out += (i ? " " : "") + literal(depth);
    if (n > 0 && in_.ConsumeBool()) out += " . " + literal(depth);
    return out + ")";
  }

  // What may stand inside a quoted list: no evaluation happens there.
  std::string literal(int depth) {
    if (depth < 6 && in_.ConsumeIntegralInRange(0, 4) == 0) return list(depth + 1);
    std::string a = atom();
    return a[0] == '\'' ? a.substr(1) : a;
  }

  std::string atom() {
    if (in_.ConsumeIntegralInRange(0, 5) == 0) {
      // A number from the input itself, integer or real.
      if (in_.ConsumeBool()) return std::to_string(in_.ConsumeIntegral<int32_t>());
      double d = in_.ConsumeFloatingPoint<double>();
      if (!(d == d) || d > 1e308 || d < -1e308) d = 0;
      char buf[40];
      snprintf(buf, sizeof buf, "%.17g", d);
      std::string s = buf;
      if (s.find_first_of(".e") == std::string::npos) s += ".0";
      return s;
    }
    return pick(kAtoms);
  }

  std::string name() {
    if (names_.empty()) return "list";
    return names_[in_.ConsumeIntegralInRange<size_t>(0, names_.size() - 1)];
  }

  template <size_t N>
  const char *pick(const char *const (&from)[N]) {
    return from[in_.ConsumeIntegralInRange<size_t>(0, N - 1)];
  }

  FuzzedDataProvider &in_;
  const std::vector<std::string> &names_;
};

void arm(long microseconds) {
  itimerval t{};
  t.it_value.tv_usec = microseconds;
  setitimer(ITIMER_VIRTUAL, &t, nullptr);
}

void withhold(lisp::Interp &in) {
  for (const wchar_t *name : kWithheld) in.setSymbolValue(name, lisp::Value());
}

std::vector<std::string> builtinNames() {
  lisp::Interp in;
  lisp::installAll(in);
  withhold(in);
  std::vector<std::string> names;
  in.forEachSymbol([&](lisp::Symbol *s) {
    if (s->value.type() == lisp::Type::Subr) names.push_back(text::toUtf8(s->name));
  });
  std::sort(names.begin(), names.end());  // the same choices pick the same names on every run
  return names;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
  // A stop rather than a cancel: a generated loop may catch its own cancels
  // with vl-catch-all-apply, and would then run on.
  std::signal(SIGVTALRM, [](int) { lisp::requestStop(); });
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  static const std::vector<std::string> names = builtinNames();
  FuzzedDataProvider provider(data, size);
  std::string source = Generator(provider, names).program();
  static const bool show = getenv("LISPGEN_SHOW") != nullptr;  // to read a saved input's program
  if (show) fprintf(stderr, "%s", source.c_str());

  lisp::Interp in;
  lisp::installAll(in);
  withhold(in);
  in.output = [](std::wstring_view) {};
  lisp::clearInterrupts();
  arm(200'000);
  try {
    for (const lisp::Value &form : in.readAll(text::fromUtf8(source), {L"fuzz", 1})) {
      try {
        in.eval(form);
      } catch (const lisp::LispError &) {  // one failing form does not stop the rest
      } catch (const lisp::ErrorHandled &) {
      }
    }
  } catch (const lisp::Stopped &) {
  } catch (const lisp::LispError &) {  // the generator only writes what reads; this would be a reader fault
    __builtin_trap();
  }
  arm(0);
  lisp::clearInterrupts();
  return 0;
}
