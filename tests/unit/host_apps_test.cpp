// Run-time classes, the system registry's editor service and module loading.
#include "host_fixture.h"

namespace vantry::host {
namespace {

using ClassRegistry = HostTest;

struct Marker : AcRxObject {
  explicit Marker(int v) : value(v) {}
  int value;
};

AcRxObject *makeMarker() {
  return new Marker(9);
}

TEST_F(ClassRegistry, HierarchyExtensionsAndDeletion) {
  AcRxClass *root = AcRxObject::desc();
  ASSERT_NE(root, nullptr);
  EXPECT_STREQ(root->name(), L"AcRxObject");
  EXPECT_EQ(acrxFindClass(L"AcRxClass"), AcRxClass::desc());
  EXPECT_EQ(root->isA(), AcRxClass::desc());

  // A child registered before its parent is linked once the parent comes.
  AcRxClass *leaf = newAcRxClass(L"TstLeaf", L"TstMiddle", 0, makeMarker, L"TSTLEAF", L"TstApp");
  EXPECT_EQ(leaf->myParent(), nullptr);
  AcRxClass *middle = newAcRxClass(L"TstMiddle", L"AcRxObject");
  acrxBuildClassHierarchy();
  EXPECT_EQ(leaf->myParent(), middle);
  EXPECT_EQ(newAcRxClass(L"TstLeaf", L"AcRxObject"), leaf);  // already registered
  EXPECT_STREQ(leaf->dxfName(), L"TSTLEAF");
  EXPECT_STREQ(leaf->appName(), L"TstApp");

  struct {
    AcRxClass *cls, *other;
    bool derived;
  } cases[] = {
      {leaf, middle, true},  {leaf, root, true},    {leaf, leaf, true},
      {middle, leaf, false}, {root, middle, false}, {leaf, nullptr, false},
  };
  for (const auto &c : cases) EXPECT_EQ(c.cls->isDerivedFrom(c.other), c.derived) << c.cls->name();

  AcRxObject *made = leaf->create();
  ASSERT_NE(made, nullptr);
  EXPECT_EQ(static_cast<Marker *>(made)->value, 9);
  EXPECT_TRUE(made->isKindOf(root));
  delete made;
  EXPECT_EQ(middle->create(), nullptr);

  // queryX finds the nearest ancestor's extension; getX only the class's own.
  AcRxClass *protocol = newAcRxClass(L"TstProtocol", L"AcRxObject");
  Marker onMiddle(1), onLeaf(2);
  EXPECT_EQ(middle->addX(protocol, &onMiddle), nullptr);
  EXPECT_EQ(leaf->queryX(protocol), &onMiddle);
  EXPECT_EQ(leaf->getX(protocol), nullptr);
  leaf->addX(protocol, &onLeaf);
  EXPECT_EQ(leaf->queryX(protocol), &onLeaf);
  EXPECT_EQ(leaf->delX(protocol), &onLeaf);
  EXPECT_EQ(leaf->queryX(protocol), &onMiddle);

  // Deleting a parent cuts its children loose and forgets its extensions.
  deleteAcRxClass(middle);
  EXPECT_EQ(acrxFindClass(L"TstMiddle"), nullptr);
  EXPECT_EQ(leaf->myParent(), nullptr);
  EXPECT_EQ(leaf->queryX(protocol), nullptr);
  deleteAcRxClass(root);  // the root stays
  EXPECT_EQ(acrxFindClass(L"AcRxObject"), root);
  deleteAcRxClass(leaf);
  deleteAcRxClass(protocol);
  EXPECT_EQ(acrxFindClass(L"TstLeaf"), nullptr);
  EXPECT_EQ(acrxFindClass(nullptr), nullptr);
}

TEST_F(ClassRegistry, TheEditorServiceKeepsReactors) {
  AcEditor *editor = acedEditor;
  ASSERT_NE(editor, nullptr);
  EXPECT_EQ(AcEditor::cast(AcRxObject::desc()), nullptr);
  AcEditorReactor r1, r2;
  AcRxEventReactor notAnEditorReactor;
  editor->addReactor(&r1);
  editor->addReactor(&r2);
  editor->addReactor(&notAnEditorReactor);
  EXPECT_EQ(s().editorReactors, (std::vector<AcEditorReactor *>{&r1, &r2}));
  editor->removeReactor(&r1);
  EXPECT_EQ(s().editorReactors, (std::vector<AcEditorReactor *>{&r2}));
  r2.commandWillStart(L"LINE");  // the defaults do nothing
  editor->removeReactor(&r2);

  Marker service(3);
  EXPECT_EQ(acrxSysRegistry()->atPut(L"TstService", &service), nullptr);
  EXPECT_EQ(acrxSysRegistry()->at(L"TstService"), &service);
  EXPECT_EQ(acrxSysRegistry()->remove(L"TstService"), &service);
  EXPECT_EQ(acrxSysRegistry()->at(L"TstService"), nullptr);
}

using Modules = HostTest;

TEST_F(Modules, AMissingModuleIsQuietlyRefused) {
  EXPECT_FALSE(acrxLoadModule(L"no_such_module.dbx", false));
  EXPECT_EQ(s().transcript(), L"");
  EXPECT_FALSE(acrxLoadModule(L"no_such_module.arx", true));
  EXPECT_EQ(s().transcript(), L"\nUnable to load no_such_module.arx: no library stands behind the name.\n");
  EXPECT_FALSE(acrxLoadModule(nullptr, true));
  EXPECT_FALSE(acrxUnloadModule(L"no_such_module.arx"));
  EXPECT_TRUE(s().modules.empty());
  EXPECT_EQ(lisp(L"(arxload \"no_such_module.arx\" 'failed)"), L"FAILED");
  EXPECT_EQ(lisp(L"(arxload \"no_such_module.arx\")"), L"ERROR: ARXLOAD failed");
}

TEST_F(Modules, LoadingDefinesTheFunctionsInEveryDocument) {
  ASSERT_TRUE(acrxLoadModule(L"vantry_testmod.arx", true)) << text::toUtf8(s().transcript());
  EXPECT_TRUE(s().isModuleLoaded(L"VANTRY_TESTMOD.ARX"));
  ASSERT_EQ(s().modules.size(), 1u);
  void *appId = s().modules[0].handle;
  EXPECT_TRUE(acrxApplicationIsUnlocked(appId));
  EXPECT_TRUE(s().modules[0].mdiAware);
  EXPECT_TRUE(acrxLoadModule(L"vantry_testmod.arx", false));  // once only
  EXPECT_EQ(s().modules.size(), 1u);
  EXPECT_EQ(lisp(L"(tm-add 1 2)"), L"3.0");

  // A document opened later gets the definitions through kLoadDwgMsg; the
  // current document is put back after loading into every open one.
  Document *first = s().current();
  s().newDocument(L"");
  EXPECT_EQ(lisp(L"(tm-add 2 2)"), L"4.0");
  s().activate(first);
  s().newDocument(L"");
  s().activate(first);
  EXPECT_EQ(lisp(L"(arx)"), L"(\"vantry_testmod.arx\")");

  // Unloading drops the handlers: a stale definition fails instead of
  // jumping into a closed library.
  EXPECT_TRUE(acrxUnloadModule(L"vantry_testmod.arx"));
  EXPECT_FALSE(s().isModuleLoaded(L"vantry_testmod.arx"));
  EXPECT_FALSE(acrxApplicationIsUnlocked(appId));
  EXPECT_EQ(lisp(L"(tm-add 1 2)"), L"ERROR: no function definition: TM-ADD");
}

TEST_F(Modules, AMappedLibraryStandsBehindAnyName) {
  s().moduleLibraries[L"Sibling2025.dbx"] = VANTRY_BIN_DIR "/vantry_testmod.so";
  EXPECT_EQ(lisp(L"(arxload \"sibling2025.dbx\")"), L"\"sibling2025.dbx\"");
  EXPECT_TRUE(s().isModuleLoaded(L"Sibling2025.dbx"));
  EXPECT_EQ(lisp(L"(tm-add 1 1)"), L"2.0");
  EXPECT_EQ(lisp(L"(arxunload \"SIBLING2025.dbx\")"), L"\"SIBLING2025.dbx\"");
  EXPECT_TRUE(s().modules.empty());
  s().moduleLibraries[L"broken.arx"] = "/nonexistent/broken.so";
  EXPECT_FALSE(s().loadModule(L"broken.arx", true));
  EXPECT_NE(s().transcript().find(L"Unable to load broken.arx"), std::wstring::npos);
}

}  // namespace
}  // namespace vantry::host
