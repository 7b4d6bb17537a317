// The stand-in's own LISP functions, for scripts and tests: documents, the
// scripted person's queues, the transcript, locks, faults and module loading.
// They carry the host: prefix so that no script mistakes them for the host's
// or the module's. Also installs getvar, setvar and alert (defined beside the
// parts they belong to) and arxload, arxunload and arx.
//
// Answers for host:queue-input, one list element each:
//   (x y) or (x y z)   a point typed or picked
//   (pick x y [z])     a pick, for entity selection
//   "text"             text typed (a keyword, a number, a string)
//   a number           the number typed
//   nil                Enter alone
//   cancel             Esc
#include "dcl/dcl.h"
#include "engine/engine.h"
#include "session/session.h"
#include "session/internal.h"

namespace vantry::host {
namespace {

using lisp::Interp;
using lisp::Type;
using lisp::Value;

Session &session() {
  return Session::get();
}

Value title(const Document *doc) {
  return doc ? lisp::makeString(doc->docTitle()) : Value();
}

bool isSymbol(const Value &v, std::wstring_view name) {
  return v.type() == Type::Sym && v.as<lisp::Symbol>()->name == name;
}

Document *namedOrCurrent(Interp &in, const Value *args, int nargs) {
  if (nargs == 0 || args[0].isNil()) return session().current();
  return session().findDocument(lisp::strArg(in, args[0]));
}

// (host:new-document [path]): the new current document's title.
Value newDocumentFn(Interp &in, const Value *args, int nargs) {
  lisp::needArgs(in, nargs, 0, 1);
  std::wstring path = nargs == 1 && !args[0].isNil() ? lisp::strArg(in, args[0]) : L"";
  return title(session().newDocument(path));
}

// (host:open-document path): opens an existing drawing file (reading its
// drawing), or makes an already open one current. nil when no such file
// exists or it cannot be read (the transcript says why).
Value openDocumentFn(Interp &in, const Value *args, int nargs) {
  lisp::needArgs(in, nargs, 1, 1);
  const std::wstring &path = lisp::strArg(in, args[0]);
  std::wstring full = absolutePath(path);
  for (const auto &d : session().documents()) {
    if (full == d->fileName()) {
      session().activate(d.get());
      return title(d.get());
    }
  }
  FILE *f = fopen(text::toUtf8(full).c_str(), "rb");
  if (!f) {
    session().print(L"\nCannot find the drawing \"" + path + L"\".\n");
    return Value();
  }
  fclose(f);
  Document *doc = session().newDocument(full);
  return doc ? title(doc) : Value();
}

Value activateFn(Interp &in, const Value *args, int nargs) {
  lisp::needArgs(in, nargs, 1, 1);
  Document *doc = session().findDocument(lisp::strArg(in, args[0]));
  if (!doc) return Value();
  session().activate(doc);
  return in.makeT();
}

Value documentsFn(Interp &in, const Value *, int nargs) {
  lisp::needArgs(in, nargs, 0, 0);
  lisp::ListBuilder b;
  for (const auto &d : session().documents()) b.add(title(d.get()));
  return b.take();
}

Value currentDocumentFn(Interp &in, const Value *, int nargs) {
  lisp::needArgs(in, nargs, 0, 0);
  return title(session().current());
}

Value saveFn(Interp &in, const Value *, int nargs) {
  lisp::needArgs(in, nargs, 0, 0);
  return in.boolean(session().save(session().current(), L""));
}

Value saveAsFn(Interp &in, const Value *args, int nargs) {
  lisp::needArgs(in, nargs, 1, 1);
  return in.boolean(session().save(session().current(), lisp::strArg(in, args[0])));
}

// (host:close-document [title-or-path]): the current one by default.
Value closeDocumentFn(Interp &in, const Value *args, int nargs) {
  lisp::needArgs(in, nargs, 0, 1);
  Document *doc = namedOrCurrent(in, args, nargs);
  return in.boolean(doc && session().close(doc));
}

InputItem inputItem(Interp &in, const Value &v) {
  InputItem item;
  if (v.isNil()) return item;  // Empty
  if (isSymbol(v, L"CANCEL")) {
    item.kind = InputItem::Cancel;
    return item;
  }
  if (v.type() == Type::Str) {
    item.kind = InputItem::Text;
    item.text = lisp::str(v);
    return item;
  }
  if (v.isNumber()) {
    item.kind = InputItem::Text;
    item.text = in.toString(v, false);
    return item;
  }
  Value coords = v;
  item.kind = InputItem::Point;
  if (isSymbol(lisp::car(v), L"PICK")) {
    item.kind = InputItem::Pick;
    coords = lisp::cdr(v);
  }
  int n = lisp::listLength(coords);
  if (coords.isCons() && (n == 2 || n == 3)) {
    std::vector<Value> xs = lisp::listToVector(coords);
    bool numbers = true;
    for (const Value &x : xs) numbers = numbers && x.isNumber();
    if (numbers) {
      for (int i = 0; i < n; ++i) item.pt[i] = xs[i].number();
      return item;
    }
  }
  in.error(L"host:queue-input: not an answer: " + in.toString(v, true));
}

// (host:queue-input answers): the number of answers now queued.
Value queueInputFn(Interp &in, const Value *args, int nargs) {
  lisp::needArgs(in, nargs, 1, 1);
  std::vector<InputItem> items;
  for (const Value &v : lisp::listToVector(lisp::listArg(in, args[0]))) items.push_back(inputItem(in, v));
  for (InputItem &item : items) session().input.push_back(std::move(item));
  return Value::integer(int32_t(session().input.size()));
}

// (host:queue-dialog answer...): strings, or lists of strings.
Value queueDialogFn(Interp &in, const Value *args, int nargs) {
  std::vector<std::wstring> answers;
  for (int i = 0; i < nargs; ++i) {
    if (args[i].isCons()) {
      for (const Value &v : lisp::listToVector(args[i])) answers.push_back(lisp::strArg(in, v));
    } else if (!args[i].isNil()) {
      answers.push_back(lisp::strArg(in, args[i]));
    }
  }
  for (auto &a : answers) session().dialogAnswers.push_back(std::move(a));
  return Value::integer(int32_t(session().dialogAnswers.size()));
}

Value transcriptFn(Interp &in, const Value *, int nargs) {
  lisp::needArgs(in, nargs, 0, 0);
  return lisp::makeString(session().transcript());
}

Value clearTranscriptFn(Interp &in, const Value *, int nargs) {
  lisp::needArgs(in, nargs, 0, 0);
  session().clearTranscript();
  return in.makeT();
}

Value lockStateFn(Interp &in, const Value *, int nargs) {
  lisp::needArgs(in, nargs, 0, 0);
  Document *doc = session().current();
  return Value::integer(doc ? doc->lockCount_ : 0);
}

// (host:fault 'ENGINE|'AUTOMATION|'AUTOMATION-START|'APPEND flag): the flag.
Value faultFn(Interp &in, const Value *args, int nargs) {
  lisp::needArgs(in, nargs, 2, 2);
  bool on = !args[1].isNil();
  Faults &f = session().faults;
  if (isSymbol(args[0], L"ENGINE")) {
    f.engineUnavailable = on;
  } else if (isSymbol(args[0], L"AUTOMATION"))
    f.automationUnavailable = on;
  else if (isSymbol(args[0], L"AUTOMATION-START"))
    f.automationStartFails = on;
  else if (isSymbol(args[0], L"APPEND"))
    f.refuseAppends = on;
  else
    in.error(L"host:fault: unknown fault " + in.toString(args[0], true));
  return args[1];
}

Value mutexesFn(Interp &in, const Value *, int nargs) {
  lisp::needArgs(in, nargs, 0, 0);
  lisp::ListBuilder b;
  for (const auto &m : session().mutexes) b.add(lisp::makeString(m));
  return b.take();
}

Value textScreenCallsFn(Interp &in, const Value *, int nargs) {
  lisp::needArgs(in, nargs, 0, 0);
  return Value::integer(session().textScreenCalls);
}

// (host:set-sysvar name value): sets a system variable whatever its access
// (ACADPREFIX, for instance), for scripts that arrange the host.
Value setSysvarFn(Interp &in, const Value *args, int nargs) {
  lisp::needArgs(in, nargs, 2, 2);
  std::wstring name = lisp::strArg(in, args[0]);
  const Value &v = args[1];
  resbuf rb{};
  if (v.type() == Type::Int) {
    rb.restype = RTSHORT;
    rb.resval.rint = short(v.asInt());
  } else if (v.type() == Type::Real) {
    rb.restype = RTREAL;
    rb.resval.rreal = v.asReal();
  } else if (v.isCons()) {
    std::vector<Value> xyz = lisp::listToVector(v);
    bool ok = xyz.size() == 2 || xyz.size() == 3;
    for (const Value &c : xyz) ok = ok && c.isNumber();
    if (!ok) in.badArgType(L"2D/3D point", v);
    rb.restype = xyz.size() == 2 ? RTPOINT : RT3DPOINT;
    for (size_t k = 0; k < xyz.size(); ++k) rb.resval.rpoint[k] = xyz[k].number();
  } else {
    setSystemString(name, lisp::strArg(in, v));
    return v;
  }
  setSystemValue(name, rb);
  return v;
}

// (arxload name [onfailure]): the name; on failure the onfailure value, or
// the error the host raises.
Value arxloadFn(Interp &in, const Value *args, int nargs) {
  lisp::needArgs(in, nargs, 1, 2);
  const std::wstring &name = lisp::strArg(in, args[0]);
  if (session().loadModule(name, false)) return args[0];
  if (nargs == 2) return args[1];
  in.error(L"ARXLOAD failed");
}

Value arxunloadFn(Interp &in, const Value *args, int nargs) {
  lisp::needArgs(in, nargs, 1, 2);
  const std::wstring &name = lisp::strArg(in, args[0]);
  if (session().unloadModule(name)) return args[0];
  if (nargs == 2) return args[1];
  in.error(L"ARXUNLOAD failed");
}

Value arxFn(Interp &in, const Value *, int nargs) {
  lisp::needArgs(in, nargs, 0, 0);
  lisp::ListBuilder b;
  for (const auto &m : session().modules) b.add(lisp::makeString(m.name));
  return b.take();
}

}  // namespace

void installHostFunctions(lisp::Interp &in) {
  static const struct {
    const wchar_t *name;
    lisp::SubrFn fn;
  } table[] = {
      {L"host:new-document", newDocumentFn},
      {L"host:open-document", openDocumentFn},
      {L"host:activate", activateFn},
      {L"host:documents", documentsFn},
      {L"host:current-document", currentDocumentFn},
      {L"host:save", saveFn},
      {L"host:save-as", saveAsFn},
      {L"host:close-document", closeDocumentFn},
      {L"host:queue-input", queueInputFn},
      {L"host:queue-dialog", queueDialogFn},
      {L"host:transcript", transcriptFn},
      {L"host:clear-transcript", clearTranscriptFn},
      {L"host:lock-state", lockStateFn},
      {L"host:fault", faultFn},
      {L"host:mutexes", mutexesFn},
      {L"host:text-screen-calls", textScreenCallsFn},
      {L"host:set-sysvar", setSysvarFn},
      {L"arxload", arxloadFn},
      {L"arxunload", arxunloadFn},
      {L"arx", arxFn},
  };
  for (const auto &e : table) in.defineSubr(e.name, e.fn);
  installSystemVariableLisp(in);
  installAlertLisp(in);
  installRegistryLisp(in);
  installSessionBuiltins(in);
  installCurveLisp(in);
  installCommandLisp(in);
  dcl::installDialogLisp(in);
  installOsnapLisp(in);
  installDesktopLisp(in);
}

}  // namespace vantry::host
