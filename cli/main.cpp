// vantry: runs AutoLISP against the module in a headless host session.
//
//   vantry [options] run FILE...   run scripts in one session, in order
//   vantry [options] -e EXPR       evaluate EXPR and print its value
//   vantry [options] repl          read-eval-print loop with line editing
//   vantry [options] render IN.dxf OUT.png
//                                  draw a drawing to a PNG picture
//   vantry import FILE.mdb OUT.db  copy an Access database into a new SQLite one
//   vantry import FILE.mdb postgresql://...
//                                  or into a PostgreSQL server's schema
//   vantry render-dialog FILE.dcl NAME OUT.png
//                                  draw a DCL dialog's layout to a PNG picture
//
// Options:
//   --input FILE     queue the person's answers read from FILE (LISP data:
//                    (x y [z]) a point, "text", nil an empty answer, cancel,
//                    (pick x y) a pick)
//   --dialog TEXT    queue one dialog answer ("OK", "Yes", "Cancel" ...; for
//                    a DCL dialog, steps: "size=12; layer=2; accept")
//   --module NAME    load this module too (e.g. a test module)
//   --no-module      do not load the product module
//   --step FILE      after the scripts, write every duct solid of the current
//                    drawing to FILE as STEP (through the solid module)
//   --drawing FILE   open the drawing FILE (DXF) as the first document,
//                    after the modules load and before the scripts run
//   --save FILE      after the scripts, save the current drawing as FILE (DXF)
//   --png FILE       after the scripts, draw the current drawing to FILE (PNG)
//   --view VIEW      what pictures show: plan, isometric or both (the default)
//   --window-pictures DIR
//                    draw every module window shown (grid dialogs ...) to
//                    DIR/NN-Caption.png as it opens
//
// The transcript (everything the host's command line shows) goes to
// standard output. The exit status is 0 when every script ran to its end and
// no script set *VANTRY-EXIT-STATUS* to a non-zero integer; 1 when an error
// ended a script; 2 for a usage error or a file that cannot be read.
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "import.h"
#include "render.h"
#include "repl.h"
#include "session/session.h"
#include "window_pictures.h"

namespace {

using vantry::host::Session;
namespace lisp = vantry::lisp;

const wchar_t kProductModule[] = L"Vantry2025x64.arx";

struct Options {
  std::string command;
  std::vector<std::string> files;
  std::string expr;
  std::vector<std::string> inputFiles;
  std::vector<std::string> dialogAnswers;
  std::vector<std::string> modules;
  std::string stepFile;
  std::string drawing, saveAs, png, windowPictures;
  vantry::render::Options picture;
  bool productModule = true;
};

int usage() {
  std::fprintf(stderr,
               "usage: vantry [--input FILE] [--dialog TEXT] [--module NAME] [--no-module] [--step FILE]\n"
               "              [--drawing IN.dxf] [--save OUT.dxf] [--png OUT.png]\n"
               "              [--view plan|isometric|both] [--window-pictures DIR] run FILE...\n"
               "       vantry [options] -e EXPR\n"
               "       vantry [options] repl\n"
               "       vantry [options] render IN.dxf OUT.png\n"
               "       vantry render-dialog FILE.dcl NAME OUT.png\n"
               "       vantry import FILE.mdb OUT.db\n"
               "       vantry import FILE.mdb postgresql://USER@HOST/DB?schema=NAME\n");
  return 2;
}

bool readFile(const std::string &path, std::string *out) {
  std::ifstream f(path, std::ios::binary);
  if (!f) return false;
  std::ostringstream buf;
  buf << f.rdbuf();
  *out = buf.str();
  return true;
}

// Queues the answers of an input file through the host's own queueing function.
bool queueInput(lisp::Interp &in, const std::string &path) {
  std::string text;
  if (!readFile(path, &text)) {
    std::fprintf(stderr, "vantry: cannot read input file %s\n", path.c_str());
    return false;
  }
  try {
    std::vector<lisp::Value> forms =
        in.readAll(vantry::text::fromUtf8(text), {vantry::text::fromUtf8(path), 1});
    lisp::Value list = lisp::vectorToList(forms);
    in.apply(lisp::Value(in.intern(L"HOST:QUEUE-INPUT")), &list, 1);
  } catch (const lisp::LispError &e) {
    std::fprintf(stderr, "vantry: %s\n", vantry::text::toUtf8(e.message).c_str());
    return false;
  } catch (const lisp::ErrorHandled &) {
    return false;
  }
  return true;
}

int runScripts(const std::vector<std::string> &files) {
  Session &s = Session::get();
  int status = 0;
  for (const std::string &file : files) {
    std::string text;
    if (!readFile(file, &text)) {
      std::fprintf(stderr, "vantry: cannot read script %s\n", file.c_str());
      return 2;
    }
    // Each script runs in the LISP of the drawing that is current, as the host runs what is typed
    // in the active drawing; a script that closed every drawing leaves the next a new one.
    if (!s.current()) s.newDocument(L"");
    lisp::Interp &in = s.current()->lisp();
    try {
      in.evalText(vantry::text::fromUtf8(text), {vantry::text::fromUtf8(file), 1});
    } catch (const lisp::ErrorHandled &) {
      return 1;
    }
    lisp::Value exit = in.symbolValue(L"*VANTRY-EXIT-STATUS*");
    if (exit.type() == lisp::Type::Int && exit.asInt() != 0) status = 1;
    // No LISP runs between scripts: the drawings closed meanwhile go.
    s.releaseRetired();
  }
  return status;
}

// Writes the duct solids of the current drawing through the solid module's
// own function; no module or no solid written is a failure.
int exportStep(lisp::Interp &in, const std::string &file) {
  lisp::Value fn = in.symbolValue(L"OL_SOLID-EXPORTSTEP");
  if (fn.isNil()) {
    std::fprintf(stderr, "vantry: --step needs the solid module, which is not loaded\n");
    return 2;
  }
  lisp::Value path = lisp::makeString(vantry::text::fromUtf8(file));
  try {
    ++in.catchDepth;
    lisp::Value n = in.apply(fn, &path, 1);
    --in.catchDepth;
    if (n.isNil()) {
      std::fprintf(stderr, "vantry: no STEP file written to %s\n", file.c_str());
      return 1;
    }
  } catch (const lisp::LispError &e) {
    --in.catchDepth;
    std::fprintf(stderr, "vantry: %s\n", vantry::text::toUtf8(e.message).c_str());
    return 1;
  }
  return 0;
}

int evalExpression(lisp::Interp &in, const std::string &expr) {
  try {
    lisp::Value v = in.evalText(vantry::text::fromUtf8(expr), {L"-e", 1});
    Session::get().print(in.toString(v, true) + L"\n");
  } catch (const lisp::ErrorHandled &) {
    return 1;
  }
  return 0;
}

int session(const Options &opt) {
  Session &s = Session::get();
  s.echo = [](std::wstring_view text) {
    std::string out = vantry::text::toUtf8(text);
    std::fwrite(out.data(), 1, out.size(), stdout);
    std::fflush(stdout);
  };
  s.echoIsTerminal = ::isatty(1) != 0;
  // The modules start before the first drawing is read, as a host loads its start-up applications:
  // a drawing's custom entities (the duct solids) are read back as such only while their class is
  // registered. Each module gets the drawing's load message when the document opens.
  if (opt.productModule) s.loadModule(kProductModule, false);
  for (const std::string &m : opt.modules) {
    if (!s.loadModule(vantry::text::fromUtf8(m), false)) {
      std::fprintf(stderr, "vantry: cannot load module %s\n", m.c_str());
      return 2;
    }
  }
  if (!opt.drawing.empty()) {
    FILE *in = std::fopen(opt.drawing.c_str(), "rb");
    if (in) std::fclose(in);
    if (!in || !s.newDocument(vantry::text::fromUtf8(opt.drawing))) {
      std::fprintf(stderr, "vantry: cannot open the drawing %s\n", opt.drawing.c_str());
      return 2;
    }
  } else {
    s.newDocument(L"");
  }
  lisp::Interp &in = s.current()->lisp();
  for (const std::string &f : opt.inputFiles)
    if (!queueInput(in, f)) return 2;
  for (const std::string &a : opt.dialogAnswers) s.dialogAnswers.push_back(vantry::text::fromUtf8(a));
  if (!opt.windowPictures.empty()) vantry::cli::pictureWindows(opt.windowPictures);

  int status = 0;
  if (opt.command == "run")
    status = runScripts(opt.files);
  else if (opt.command == "-e")
    status = evalExpression(in, opt.expr);
  else if (opt.command == "repl")
    status = vantry::cli::repl();
  if (status == 0 && !opt.stepFile.empty()) {
    if (!s.current()) {
      std::fprintf(stderr, "vantry: --step: no drawing is open\n");
      status = 1;
    } else {
      status = exportStep(s.current()->lisp(), opt.stepFile);
    }
  }
  if (status == 0 && !opt.png.empty()) {
    std::string error;
    if (!s.current()) {
      std::fprintf(stderr, "vantry: --png: no drawing is open\n");
      status = 1;
    } else if (!vantry::render::writePng(s.current()->database(), opt.png, opt.picture, &error)) {
      std::fprintf(stderr, "vantry: %s\n", error.c_str());
      status = 1;
    }
  }
  if (status == 0 && !opt.saveAs.empty()) {
    if (!s.current()) {
      std::fprintf(stderr, "vantry: --save: no drawing is open\n");
      status = 1;
    } else if (!s.save(s.current(), vantry::text::fromUtf8(opt.saveAs))) {
      std::fprintf(stderr, "vantry: cannot save the drawing as %s\n", opt.saveAs.c_str());
      status = 1;
    }
  }

  // Quitting the host: every document goes, then every module.
  while (!s.documents().empty()) s.close(s.documents().back().get());
  while (!s.modules.empty()) s.unloadModule(s.modules.back().name);
  if (!s.atLineStart()) s.print(L"\n");
  // A progress meter left on the terminal's last line keeps it.
  if (!s.statusLine.empty() && s.echo) {
    s.echo(L"\n");
    s.statusLine.clear();
  }
  return status;
}

struct ThreadArgs {
  const Options *opt;
  int status;
};

}  // namespace

int main(int argc, char **argv) {
  Options opt;
  for (int i = 1; i < argc; ++i) {
    std::string a = argv[i];
    auto value = [&](std::vector<std::string> &into) {
      if (i + 1 >= argc) return false;
      into.push_back(argv[++i]);
      return true;
    };
    if (a == "--input") {
      if (!value(opt.inputFiles)) return usage();
    } else if (a == "--dialog") {
      if (!value(opt.dialogAnswers)) return usage();
    } else if (a == "--module") {
      if (!value(opt.modules)) return usage();
    } else if (a == "--step") {
      if (i + 1 >= argc) return usage();
      opt.stepFile = argv[++i];
    } else if (a == "--window-pictures") {
      if (i + 1 >= argc) return usage();
      opt.windowPictures = argv[++i];
    } else if (a == "--drawing" || a == "--save" || a == "--png") {
      if (i + 1 >= argc) return usage();
      (a == "--drawing" ? opt.drawing : a == "--save" ? opt.saveAs : opt.png) = argv[++i];
    } else if (a == "--view") {
      if (i + 1 >= argc) return usage();
      std::string v = argv[++i];
      if (v != "plan" && v != "isometric" && v != "both") return usage();
      opt.picture.plan = v != "isometric";
      opt.picture.isometric = v != "plan";
      // One view alone is drawn square rather than stretched across two panels.
      if (v != "both") opt.picture.width = opt.picture.height;
    } else if (a == "--no-module") {
      opt.productModule = false;
    } else if (a == "run") {
      opt.command = "run";
      opt.files.assign(argv + i + 1, argv + argc);
      break;
    } else if (a == "-e") {
      if (i + 1 >= argc) return usage();
      opt.command = "-e";
      opt.expr = argv[++i];
    } else if (a == "repl") {
      opt.command = "repl";
    } else if (a == "import") {
      if (i + 3 != argc) return usage();
      return vantry::cli::importAccess(argv[i + 1], argv[i + 2]);
    } else if (a == "render-dialog") {
      if (i + 4 != argc) return usage();
      std::string error;
      if (!vantry::render::writeDialogPng(vantry::text::fromUtf8(argv[i + 1]),
                                          vantry::text::fromUtf8(argv[i + 2]), argv[i + 3], &error)) {
        std::fprintf(stderr, "vantry: %s\n", error.c_str());
        return 1;
      }
      return 0;
    } else if (a == "render") {
      // A drawing opened, drawn and closed: the same as --drawing IN --png OUT
      // with no script.
      if (i + 3 != argc) return usage();
      opt.command = "render";
      opt.drawing = argv[i + 1];
      opt.png = argv[i + 2];
      break;
    } else {
      return usage();
    }
  }
  if (opt.command.empty() || (opt.command == "run" && opt.files.empty())) return usage();

  // An interrupt (Ctrl+C) is the person's Esc: the running LISP or a long
  // module call stops at its next safe point with "*Cancel*". A second one
  // while the first is still pending ends the process as usual.
  struct sigaction onInterrupt {};
  onInterrupt.sa_handler = [](int) {
    if (lisp::takeInterrupt()) {
      std::signal(SIGINT, SIG_DFL);
      std::raise(SIGINT);
      return;
    }
    lisp::requestInterrupt();
  };
  sigemptyset(&onInterrupt.sa_mask);
  sigaction(SIGINT, &onInterrupt, nullptr);

  // Deep LISP recursion needs a deep stack; the interpreter still stops a
  // runaway recursion with a LISP error well before the end of it.
  pthread_attr_t attr;
  pthread_attr_init(&attr);
  pthread_attr_setstacksize(&attr, size_t(256) << 20);
  ThreadArgs args{&opt, 0};
  pthread_t thread;
  auto body = [](void *p) -> void * {
    auto *a = static_cast<ThreadArgs *>(p);
    a->status = session(*a->opt);
    return nullptr;
  };
  if (pthread_create(&thread, &attr, body, &args) != 0) {
    args.status = session(opt);
  } else {
    pthread_join(thread, nullptr);
  }
  pthread_attr_destroy(&attr);
  return args.status;
}
