// libFuzzer target: the LISP reader and evaluator on arbitrary text.
//
// Each input is read as UTF-8 (bytes that are not read as Latin-1) and every
// form it holds is evaluated in a fresh interpreter with the built-ins, less
// those that touch files or the environment. Whatever happens must end in a
// value or a LISP error: a crash, a sanitizer report, a leak or a hang is a
// fault. An input's evaluation is cut short after 200 ms of CPU time by the
// interrupt that the runner's Ctrl+C sends, so loops that never end are
// cancelled, not hung (on the virtual timer: libFuzzer's own hang detection
// has the real one).
// The dictionary (lisp.dict) and the seed corpus (corpus/lisp) steer the
// mutations towards well-formed calls of the built-ins.
#include <sys/time.h>

#include <csignal>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "lisp/lisp.h"

using namespace vantry;

namespace {

// Built-ins that would let a fuzzed program write, delete or load files, or
// change the process's environment.
constexpr const wchar_t *kWithheld[] = {
    L"open",          L"load",           L"setenv",          L"vl-file-delete", L"vl-file-copy",
    L"vl-file-rename", L"vl-mkdir",      L"vl-filename-mktemp", L"findfile",    L"vl-directory-files",
};

void arm(long microseconds) {
  itimerval t{};
  t.it_value.tv_usec = microseconds;
  setitimer(ITIMER_VIRTUAL, &t, nullptr);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
  std::signal(SIGVTALRM, [](int) { lisp::requestInterrupt(); });
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  std::wstring text = text::fromUtf8(std::string_view(reinterpret_cast<const char *>(data), size));
  lisp::Interp in;
  lisp::installAll(in);
  for (const wchar_t *name : kWithheld) in.setSymbolValue(name, lisp::Value());
  in.output = [](std::wstring_view) {};
  lisp::takeInterrupt();  // a stale one from the last input
  arm(200'000);
  try {
    for (const lisp::Value &form : in.readAll(text, {L"fuzz", 1})) in.eval(form);
  } catch (const lisp::LispError &) {
  } catch (const lisp::ErrorHandled &) {
  }
  arm(0);
  lisp::takeInterrupt();
  return 0;
}
