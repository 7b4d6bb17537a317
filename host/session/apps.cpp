// Run-time classes, the system registry and its editor service, and the
// loading of modules.
//
// Class dictionary: name -> descriptor, owned here. The root "AcRxObject" and
// the descriptor class "AcRxClass" are always registered and are never
// deleted. A descriptor names its parent; the link to the parent descriptor is
// made when both are registered (at once by newAcRxClass, or later by
// acrxBuildClassHierarchy) and cut when the parent is deleted. Protocol
// extensions are not owned: delX hands them back to the caller.
//
// Modules: a module name such as "Vantry2025x64.arx" stands for the shared
// library of the same name with the extension ".so" (".arx" and ".dbx" are
// replaced; a name without one gets ".so"). An entry of
// Session::moduleLibraries for the name wins; otherwise the library is looked
// for beside the running executable, then beside the host library. A module's
// appId is its dlopen handle. Loading sends kInitAppMsg, then kLoadDwgMsg for
// each open document with that document current; unloading sends
// kUnloadDwgMsg the same way, then kUnloadAppMsg, drops the external function
// handlers that live in the library, and closes it.
#include <dlfcn.h>

#include <algorithm>
#include <filesystem>

#include "session/session.h"
#include "session/internal.h"

// --- Classes -------------------------------------------------------------------------

struct AcRxClass::Impl {
  std::wstring name, parentName, dxfName, appName;
  AcRxClass *parent = nullptr;
  PseudoConstructor constructor = nullptr;
  int proxyFlags = 0;
  std::map<const AcRxClass *, AcRxObject *> extensions;
};

namespace vantry::host {
namespace {

std::map<std::wstring, AcRxClass *> &classes() {
  static auto *table = [] {
    auto *t = new std::map<std::wstring, AcRxClass *>();
    auto *root = new AcRxClass::Impl;
    root->name = L"AcRxObject";
    (*t)[root->name] = new AcRxClass(root);
    auto *cls = new AcRxClass::Impl;
    cls->name = L"AcRxClass";
    cls->parentName = L"AcRxObject";
    cls->parent = (*t)[L"AcRxObject"];
    (*t)[cls->name] = new AcRxClass(cls);
    return t;
  }();
  return *table;
}

AcRxClass *lookup(const std::wstring &name) {
  auto it = classes().find(name);
  return it == classes().end() ? nullptr : it->second;
}

}  // namespace
}  // namespace vantry::host

using vantry::host::Session;

AcRxObject::~AcRxObject() = default;
AcRxClass *AcRxObject::desc() {
  return vantry::host::lookup(L"AcRxObject");
}
AcRxClass *AcRxObject::isA() const {
  return AcRxObject::desc();
}
bool AcRxObject::isKindOf(const AcRxClass *cls) const {
  AcRxClass *mine = isA();
  return mine && mine->isDerivedFrom(cls);
}

AcRxClass::AcRxClass(Impl *impl) : impl_(impl) {}
AcRxClass::~AcRxClass() {
  delete impl_;
}
const ACHAR *AcRxClass::name() const {
  return impl_->name.c_str();
}
const ACHAR *AcRxClass::dxfName() const {
  return impl_->dxfName.empty() ? nullptr : impl_->dxfName.c_str();
}
const ACHAR *AcRxClass::appName() const {
  return impl_->appName.empty() ? nullptr : impl_->appName.c_str();
}
AcRxClass *AcRxClass::myParent() const {
  return impl_->parent;
}

bool AcRxClass::isDerivedFrom(const AcRxClass *other) const {
  if (!other) return false;
  for (const AcRxClass *c = this; c; c = c->myParent())
    if (c == other) return true;
  return false;
}

AcRxObject *AcRxClass::create() const {
  return impl_->constructor ? impl_->constructor() : nullptr;
}

// Returns the extension previously registered for the protocol, if any.
AcRxObject *AcRxClass::addX(AcRxClass *protocolClass, AcRxObject *extension) {
  if (!protocolClass) return nullptr;
  AcRxObject *&slot = impl_->extensions[protocolClass];
  AcRxObject *previous = slot;
  slot = extension;
  if (!extension) impl_->extensions.erase(protocolClass);
  return previous;
}

AcRxObject *AcRxClass::getX(const AcRxClass *protocolClass) const {
  auto it = impl_->extensions.find(protocolClass);
  return it == impl_->extensions.end() ? nullptr : it->second;
}

AcRxObject *AcRxClass::delX(AcRxClass *protocolClass) {
  AcRxObject *previous = getX(protocolClass);
  impl_->extensions.erase(protocolClass);
  return previous;
}

// The extension of this class or of the nearest ancestor that has one.
AcRxObject *AcRxClass::queryX(const AcRxClass *protocolClass) const {
  for (const AcRxClass *c = this; c; c = c->myParent())
    if (AcRxObject *x = c->getX(protocolClass)) return x;
  return nullptr;
}

AcRxClass *AcRxClass::desc() {
  return vantry::host::lookup(L"AcRxClass");
}
AcRxClass *AcRxClass::isA() const {
  return AcRxClass::desc();
}

AcRxClass *newAcRxClass(const ACHAR *className, const ACHAR *parentClassName, int proxyFlags,
                        AcRxClass::PseudoConstructor pseudoConstructor, const ACHAR *dxfName,
                        const ACHAR *appName) {
  using namespace vantry::host;
  if (!className || !*className) return nullptr;
  if (AcRxClass *existing = lookup(className)) return existing;
  auto *impl = new AcRxClass::Impl;
  impl->name = className;
  impl->parentName = parentClassName && *parentClassName ? parentClassName : L"AcRxObject";
  impl->dxfName = dxfName ? dxfName : L"";
  impl->appName = appName ? appName : L"";
  impl->constructor = pseudoConstructor;
  impl->proxyFlags = proxyFlags;
  impl->parent = lookup(impl->parentName);
  auto *cls = new AcRxClass(impl);
  classes()[impl->name] = cls;
  // Children registered before their parent find it now.
  for (auto &[name, other] : classes())
    if (other->impl()->parentName == impl->name) other->impl()->parent = cls;
  return cls;
}

void deleteAcRxClass(AcRxClass *cls) {
  using namespace vantry::host;
  if (!cls || cls == lookup(L"AcRxObject") || cls == lookup(L"AcRxClass")) return;
  auto it = classes().find(cls->name());
  if (it == classes().end() || it->second != cls) return;
  classes().erase(it);
  for (auto &[name, other] : classes()) {
    if (other->impl()->parent == cls) other->impl()->parent = nullptr;
    other->impl()->extensions.erase(cls);
  }
  delete cls;
}

void acrxBuildClassHierarchy() {
  for (auto &[name, cls] : vantry::host::classes())
    if (!cls->impl()->parentName.empty()) cls->impl()->parent = vantry::host::lookup(cls->impl()->parentName);
}

AcRxClass *acrxFindClass(const ACHAR *className) {
  return className ? vantry::host::lookup(className) : nullptr;
}

// --- The system registry and the editor service ----------------------------------------

namespace vantry::host {
namespace {

class NameTable {
 public:
  AcRxObject *at(const ACHAR *key) const {
    auto it = key ? items_.find(key) : items_.end();
    return it == items_.end() ? nullptr : it->second;
  }
  AcRxObject *atPut(const ACHAR *key, AcRxObject *obj) {
    if (!key) return nullptr;
    AcRxObject *&slot = items_[key];
    AcRxObject *previous = slot;
    slot = obj;
    return previous;
  }
  AcRxObject *remove(const ACHAR *key) {
    AcRxObject *previous = at(key);
    if (key) items_.erase(key);
    return previous;
  }

 private:
  std::map<std::wstring, AcRxObject *> items_;
};

// Reactors are kept in Session::editorReactors; the session does not own them.
class EditorService final : public AcEditor {
 public:
  AcRxObject *at(const ACHAR *key) const override { return table_.at(key); }
  AcRxObject *atPut(const ACHAR *key, AcRxObject *obj) override { return table_.atPut(key, obj); }
  AcRxObject *remove(const ACHAR *key) override { return table_.remove(key); }
  void addReactor(AcRxEventReactor *reactor) override {
    auto *r = dynamic_cast<AcEditorReactor *>(reactor);
    if (!r) return;
    auto &list = Session::get().editorReactors;
    if (std::find(list.begin(), list.end(), r) == list.end()) list.push_back(r);
  }
  void removeReactor(AcRxEventReactor *reactor) override {
    auto &list = Session::get().editorReactors;
    list.erase(std::remove(list.begin(), list.end(), reactor), list.end());
  }

 private:
  NameTable table_;
};

class SystemRegistry final : public AcRxDictionary {
 public:
  SystemRegistry() { table_.atPut(ACED_EDITOR_OBJ, &editor_); }
  AcRxObject *at(const ACHAR *key) const override { return table_.at(key); }
  AcRxObject *atPut(const ACHAR *key, AcRxObject *obj) override { return table_.atPut(key, obj); }
  AcRxObject *remove(const ACHAR *key) override { return table_.remove(key); }

 private:
  EditorService editor_;
  NameTable table_;
};

}  // namespace
}  // namespace vantry::host

AcRxDictionary *acrxSysRegistry() {
  static auto *registry = new vantry::host::SystemRegistry();
  return registry;
}

AcEditor *AcEditor::cast(const AcRxObject *obj) {
  return dynamic_cast<AcEditor *>(const_cast<AcRxObject *>(obj));
}

void AcEditorReactor::saveComplete(AcDbDatabase *, const ACHAR *) {}
void AcEditorReactor::beginSave(AcDbDatabase *, const ACHAR *) {}
void AcEditorReactor::abortSave(AcDbDatabase *) {}
void AcEditorReactor::commandWillStart(const ACHAR *) {}
void AcEditorReactor::commandEnded(const ACHAR *) {}

AcDbHostApplicationServices::~AcDbHostApplicationServices() = default;
AcApDocumentIterator::~AcApDocumentIterator() = default;

// --- Modules -------------------------------------------------------------------------------

namespace vantry::host {
namespace {

namespace fs = std::filesystem;
using EntryPoint = AcRx::AppRetCode (*)(AcRx::AppMsgCode, void *);

// Modules are known by their file name, whatever the case or directory.
std::wstring moduleKey(const std::wstring &name) {
  return text::upcase(titleOf(name));
}

std::string libraryFileName(const std::wstring &name) {
  fs::path p(text::nativePath(name));
  std::string ext = text::toUtf8(text::downcase(text::fromUtf8(p.extension().string())));
  if (ext == ".arx" || ext == ".dbx" || ext.empty())
    p.replace_extension(".so");
  else if (ext != ".so")
    p += ".so";
  return p.string();
}

std::string hostLibraryDirectory() {
  Dl_info info{};
  if (!dladdr(reinterpret_cast<void *>(&acrxFindClass), &info) || !info.dli_fname) return {};
  return fs::path(info.dli_fname).parent_path().string();
}

std::string findLibrary(const std::wstring &name) {
  Session &s = Session::get();
  for (const auto &[mapped, library] : s.moduleLibraries)
    if (moduleKey(mapped) == moduleKey(name)) return library;
  std::string file = libraryFileName(name);
  std::error_code ec;
  if (fs::path(file).has_parent_path()) return fs::exists(file, ec) ? file : std::string();
  std::vector<std::string> dirs;
  fs::path exe = fs::read_symlink("/proc/self/exe", ec);
  if (!ec) dirs.push_back(exe.parent_path().string());
  dirs.push_back(hostLibraryDirectory());
  for (const std::string &dir : dirs) {
    if (dir.empty()) continue;
    fs::path candidate = fs::path(dir) / file;
    if (fs::exists(candidate, ec)) return candidate.string();
  }
  return {};
}

Session::Module *findModule(void *appId) {
  for (auto &m : Session::get().modules)
    if (m.handle == appId) return &m;
  return nullptr;
}

// Calls an entry point; an exception escaping the module counts as a refusal.
AcRx::AppRetCode send(EntryPoint entry, AcRx::AppMsgCode msg, void *appId) {
  try {
    return entry(msg, appId);
  } catch (...) {
    return AcRx::kRetError;
  }
}

// Sends a document message to one module for every open document, each
// current in turn, and puts the current document back.
void sendPerDocument(Session &s, EntryPoint entry, AcRx::AppMsgCode msg, void *appId) {
  Document *previous = s.current();
  std::vector<Document *> docs;
  for (const auto &d : s.documents()) docs.push_back(d.get());
  for (Document *d : docs) {
    s.activate(d);
    send(entry, msg, appId);
  }
  for (const auto &d : s.documents())
    if (d.get() == previous) s.activate(previous);
}

// The library is going away: no document may keep a handler that lives in it.
void dropHandlersOf(void *entry) {
  Dl_info lib{};
  if (!dladdr(entry, &lib)) return;
  for (const auto &d : Session::get().documents()) {
    auto &handlers = d->functions().handlers;
    for (auto it = handlers.begin(); it != handlers.end();) {
      Dl_info fn{};
      bool inside =
          it->second && dladdr(reinterpret_cast<void *>(it->second), &fn) && fn.dli_fbase == lib.dli_fbase;
      it = inside ? handlers.erase(it) : std::next(it);
    }
  }
}

void unload(Session &s, size_t index) {
  Session::Module m = s.modules[index];
  sendPerDocument(s, m.entry, AcRx::kUnloadDwgMsg, m.handle);
  send(m.entry, AcRx::kUnloadAppMsg, m.handle);
  dropHandlersOf(reinterpret_cast<void *>(m.entry));
  auto it = std::find_if(s.modules.begin(), s.modules.end(),
                         [&](const Session::Module &x) { return x.handle == m.handle; });
  if (it != s.modules.end()) s.modules.erase(it);
  dlclose(m.handle);
}

}  // namespace

bool Session::isModuleLoaded(const std::wstring &name) const {
  for (const Module &m : modules)
    if (moduleKey(m.name) == moduleKey(name)) return true;
  return false;
}

bool Session::loadModule(const std::wstring &name, bool printit) {
  if (name.empty()) return false;
  if (isModuleLoaded(name)) return true;
  auto fail = [&](const std::wstring &why) {
    if (printit) print(L"\nUnable to load " + name + L": " + why + L"\n");
    return false;
  };
  std::string library = findLibrary(name);
  if (library.empty()) return fail(L"no library stands behind the name.");
  void *handle = dlopen(library.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (!handle) {
    const char *why = dlerror();
    return fail(text::fromUtf8(why ? why : "the library does not open."));
  }
  auto entry = reinterpret_cast<EntryPoint>(dlsym(handle, "acrxEntryPoint"));
  if (!entry) {
    dlclose(handle);
    return fail(L"the library has no acrxEntryPoint.");
  }
  // Registered before the start-up message: the module names its appId to
  // acrxUnlockApplication and acrxRegisterAppMDIAware while it starts.
  modules.push_back(Module{name, handle, entry});
  if (send(entry, AcRx::kInitAppMsg, handle) != AcRx::kRetOK) {
    auto it =
        std::find_if(modules.begin(), modules.end(), [&](const Module &m) { return m.handle == handle; });
    if (it != modules.end()) modules.erase(it);
    dropHandlersOf(reinterpret_cast<void *>(entry));
    dlclose(handle);
    return fail(L"its start-up failed.");
  }
  sendPerDocument(*this, entry, AcRx::kLoadDwgMsg, handle);
  return true;
}

// The lock of acrxUnlockApplication is recorded but not enforced: the
// stand-in's own shutdown must be able to unload every module.
bool Session::unloadModule(const std::wstring &name) {
  for (size_t i = 0; i < modules.size(); ++i) {
    if (moduleKey(modules[i].name) != moduleKey(name)) continue;
    unload(*this, i);
    return true;
  }
  return false;
}

void Session::broadcast(AcRx::AppMsgCode msg) {
  std::vector<Module> targets = modules;  // a module may load or unload others
  for (const Module &m : targets)
    if (findModule(m.handle)) send(m.entry, msg, m.handle);
}

void unloadAllModules() {
  Session &s = Session::get();
  while (!s.modules.empty()) unload(s, s.modules.size() - 1);
}

}  // namespace vantry::host

bool acrxLoadModule(const ACHAR *moduleName, bool printit, bool) {
  return moduleName && Session::get().loadModule(moduleName, printit);
}

bool acrxUnloadModule(const ACHAR *moduleName, bool) {
  return moduleName && Session::get().unloadModule(moduleName);
}

bool acrxUnlockApplication(void *appId) {
  Session::Module *m = vantry::host::findModule(appId);
  if (m) m->unlocked = true;
  return m != nullptr;
}

bool acrxRegisterAppMDIAware(void *appId) {
  Session::Module *m = vantry::host::findModule(appId);
  if (m) m->mdiAware = true;
  return m != nullptr;
}

bool acrxApplicationIsUnlocked(void *appId) {
  Session::Module *m = vantry::host::findModule(appId);
  return m && m->unlocked;
}
