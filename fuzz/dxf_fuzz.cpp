// libFuzzer target: the drawing-file reader on mutated drawings, and the
// writer on whatever the reader made of them.
//
// Each input is opened as a drawing file (openDxf, from a file in a folder
// of its own under the temporary directory). Whatever it holds must end in
// a drawing or a refusal with a message: a crash, a sanitizer report, a leak
// or a hang is a fault. A drawing that opens is saved, and the saved file
// must open again: a file Vantry wrote that Vantry cannot read is a fault as
// well (the target stops with the reason).
//
// The sibling solid module is loaded first, as the runner loads it, so the
// duct solids' stand-ins (an INSERT whose XRECORD holds the solid's shape
// text) are read back into solids: a mutated shape text reaches the
// modeller's reader. The seeds (corpus/dxf) are small drawings Vantry and
// ezdxf wrote, one of them with a duct solid.
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "common/text.h"
#include "dxf/dxf.h"
#include "session/session.h"

using namespace vantry;
using namespace vantry::host;

namespace {

std::string folder;

std::string besideMe(const char *argv0, const char *file) {
  std::error_code ec;
  std::filesystem::path exe = std::filesystem::read_symlink("/proc/self/exe", ec);
  if (ec) exe = argv0;
  return (exe.parent_path() / file).string();
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv) {
  char tmpl[] = "/tmp/vantry-dxf-fuzz-XXXXXX";
  if (!mkdtemp(tmpl)) {
    std::perror("dxf_fuzz: mkdtemp");
    std::exit(1);
  }
  folder = tmpl;
  Session &s = Session::get();
  s.echo = nullptr;
  // VANTRY_FUZZ_NO_SOLID leaves the solid module out: solids then stay the
  // blocks of faces that other readers see, and the modeller's reader is not
  // fuzzed (to look at the drawing reader alone).
  if (std::getenv("VANTRY_FUZZ_NO_SOLID")) return 0;
  std::string solid = besideMe(argc && *argc ? (*argv)[0] : "", "ol_ol-solid2025x64.so");
  s.moduleLibraries[L"ol_ol-solid2025x64.dbx"] = solid;
  if (!s.loadModule(L"ol_ol-solid2025x64.dbx", false))
    std::fprintf(stderr, "dxf_fuzz: the solid module (%s) is not loaded; solids stay as blocks\n", solid.c_str());
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  const std::string in = folder + "/in.dxf", out = folder + "/out.dxf";
  if (FILE *f = std::fopen(in.c_str(), "wb")) {
    std::fwrite(data, 1, size, f);
    std::fclose(f);
  } else {
    std::perror("dxf_fuzz: cannot write the input");
    std::abort();
  }
  std::wstring why;
  AcDbDatabase db(false, true);
  if (openDxf(in, &db, &why) != Acad::eOk) return 0;
  if (Acad::ErrorStatus es = saveDxf(&db, out, &why); es != Acad::eOk) {
    // Saving a drawing that opened may fail only for a reason it gives.
    if (why.empty()) {
      std::fprintf(stderr, "dxf_fuzz: the save failed (%d) without a reason\n", int(es));
      std::abort();
    }
    return 0;
  }
  AcDbDatabase back(false, true);
  if (Acad::ErrorStatus es = openDxf(out, &back, &why); es != Acad::eOk) {
    std::fprintf(stderr, "dxf_fuzz: the saved drawing does not open again (%d): %s\n", int(es),
                 text::toUtf8(why).c_str());
    std::abort();
  }
  return 0;
}
