// The host's application programming interface, as the module sees it.
//
// This is the one header that module sources include. It declares the host's
// API under the host's own names, signatures, type codes and result codes:
// result buffers and their list builder, registration of external LISP
// functions and the return of their values, the document manager and its
// locks, system variables, the command line, application and class services
// and editor reactors. Behind it stands the headless host stand-in in host/;
// in the real host this header would include the vendor's SDK instead and the
// module would not change.
//
// Ownership: a resbuf chain returned by the host (acedGetArgs excepted, see
// there) belongs to the caller, who releases it with acutRelRb. A chain handed
// to the host (acedRetList, acedRetVal, acedInvoke, acedSetVar) stays the
// caller's: the host copies what it keeps.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstdint>

#include "host/win32.h"

// --- Characters and strings --------------------------------------------------

typedef wchar_t ACHAR;
#define ACRX_T(x) L##x
#ifndef _T
#define _T(x) L##x
#endif

// --- Result buffers ------------------------------------------------------------

typedef double ads_real;
typedef ads_real ads_point[3];
typedef int64_t ads_name[2];
typedef ads_real ads_matrix[4][4];

struct ads_binary {
  short clen;
  char *buf;
};

union ads_u_val {
  ads_real rreal;
  ads_real rpoint[3];
  short rint;
  ACHAR *rstring;
  int64_t rlname[2];
  int32_t rlong;
  int64_t mnInt64;
  struct ads_binary rbinary;
  unsigned char ihandle[8];
};

struct resbuf {
  struct resbuf *rbnext;
  short restype;
  union ads_u_val resval;
};

// Type codes of result buffers. Codes below 1000 are drawing-data group codes.
enum {
  RTNONE = 5000,
  RTREAL = 5001,
  RTPOINT = 5002,
  RTSHORT = 5003,
  RTANG = 5004,
  RTSTR = 5005,
  RTENAME = 5006,
  RTPICKS = 5007,
  RTORINT = 5008,
  RT3DPOINT = 5009,
  RTLONG = 5010,
  RTVOID = 5014,
  RTLB = 5016,
  RTLE = 5017,
  RTDOTE = 5018,
  RTNIL = 5019,
  RTDXF0 = 5020,
  RTT = 5021,
  RTRESBUF = 5023,
  RTMODELESS = 5027,
  RTLONG_PTR = 5030,
  RTINT64 = 5031,
};

// Result codes of host calls.
enum {
  RTNORM = 5100,
  RTERROR = -5001,
  RTCAN = -5002,
  RTREJ = -5003,
  RTFAIL = -5004,
  RTKWORD = -5005,
  RTINPUTTRUNC = -5008,
};

// What an external function handler answers the host.
enum {
  RSRSLT = 1,  // a result has been set
  RSERR = 3,   // the call failed: the LISP expression fails
};

// Allocates one node of the given type, zeroed. The caller owns it.
struct resbuf *acutNewRb(int type);
// Releases a whole chain, strings included. Null is allowed.
int acutRelRb(struct resbuf *rb);
// Builds a chain from (type, value) pairs ending at 0 (RTNONE is accepted
// too). RTLB, RTLE, RTDOTE, RTNIL, RTT and RTVOID take no value; RTREAL and
// RTANG a double; RTSHORT an int; RTLONG an int32; RTSTR a const ACHAR*;
// RTPOINT and RT3DPOINT a const ads_real*; RTENAME and RTPICKS a const
// int64_t*; group codes take the value their range calls for. Returns null on
// a type it does not know. The caller owns the chain.
struct resbuf *acutBuildList(int rtype, ...);
// Copies ACHAR strings, C style.
int acutNewString(const ACHAR *src, ACHAR *&dest);
int acutDelString(ACHAR *&str);

// --- External functions ----------------------------------------------------------

// Defines a LISP function name for a function code in the current document.
int acedDefun(const ACHAR *name, int funcno);
// Binds a handler to a function code in the current document; a null handler
// drops the binding.
int acedRegFunc(int (*fhdl)(), int fcode);
// Removes a definition made by acedDefun.
int acedUndef(const ACHAR *name, int funcno);
// The code of the function being called, or RTERROR outside a call.
int acedGetFunCode();
// The arguments of the call in progress. The chain belongs to the caller,
// who releases it with acutRelRb; each call returns a fresh copy.
struct resbuf *acedGetArgs();

int acedRetInt(int ival);
int acedRetReal(ads_real rval);
int acedRetPoint(const ads_point pt);
int acedRetStr(const ACHAR *s);
int acedRetName(const ads_name aname, int type);
int acedRetVal(const struct resbuf *rbuf);
int acedRetList(const struct resbuf *rbuf);
int acedRetNil();
int acedRetT();
int acedRetVoid();

// Calls a LISP function by name: args is (RTSTR name, arguments...). On
// RTNORM *result holds the function's value, owned by the caller.
int acedInvoke(const struct resbuf *args, struct resbuf **result);

// --- Command line, screens, alerts -----------------------------------------------

// printf-style output on the command line. As on the host, %s and %c take wide
// strings and characters; %hs and %hc narrow ones.
int acutPrintf(const ACHAR *format, ...);
int acedTextScr();
int acedGraphScr();
// 1 when the person has pressed Esc (here: the runner got an interrupt)
// since the last look, else 0; the press is consumed. A long loop asks it
// at safe points and stops as after a cancel.
int acedUsrBrk();
int acedAlert(const ACHAR *text);
// RTNORM when `string` matches the wild-card `pattern` as wcmatch matches
// (# @ . * ? ~ [..] [~..] ` and commas between alternatives), else RTERROR.
int acutWcMatch(const ACHAR *string, const ACHAR *pattern);

// --- The main window and its status bar --------------------------------------------
//
// The stand-in's main window has a caption, an enabled state and a place in
// the z-order (include/host/win32.h reaches them through its handle). Its
// status bar holds at most one progress meter: drawn as a bar in place when
// the command line is a terminal, else written as a line on the transcript
// each time the shown percentage changes.

// The host's main window; the same handle for the whole session.
HWND adsw_acadMainWnd();
// Puts a progress meter on the status bar, labelled, running from minPos to
// maxPos and standing at minPos; a meter already shown is replaced. 0 on
// success; -1 when maxPos is below minPos.
int acedSetStatusBarProgressMeter(const ACHAR *label, int minPos, int maxPos);
// Moves the meter to pos, kept within its range. 0 on success; -1 when no
// meter is shown.
int acedSetStatusBarProgressMeterPos(int pos);
// Takes the meter away, giving the status bar back its usual contents.
void acedRestoreStatusBar();

// --- Editor input (answered by the scripted person) -------------------------------------
//
// Each answers RTNORM with a value, RTNONE for Enter alone (when initget
// allows it), RTKWORD when a keyword (or, with initget bit 128, arbitrary
// text) was typed -- acedGetInput then hands it over -- and RTCAN for a
// cancel. acedInitGet's conditions and keywords apply to the next request.
int acedInitGet(int val, const ACHAR *kwl);
int acedGetPoint(const ads_point pt, const ACHAR *prmpt, ads_point result);
int acedGetCorner(const ads_point pt, const ACHAR *prmpt, ads_point result);
int acedGetInt(const ACHAR *prmpt, int *result);
int acedGetReal(const ACHAR *prmpt, ads_real *result);
int acedGetDist(const ads_point pt, const ACHAR *prmpt, ads_real *result);
int acedGetAngle(const ads_point pt, const ACHAR *prmpt, ads_real *result);
int acedGetOrient(const ads_point pt, const ACHAR *prmpt, ads_real *result);
int acedGetString(int cronly, const ACHAR *prmpt, ACHAR *result, size_t bufsize);
int acedGetKword(const ACHAR *prmpt, ACHAR *result, size_t bufsize);
// The keyword or text of the last RTKWORD answer. RTINPUTTRUNC (and the
// text cut to fit) when the buffer is too short.
int acedGetInput(ACHAR *str, size_t bufsize);

// --- System variables ----------------------------------------------------------------

int acedGetVar(const ACHAR *sym, struct resbuf *result);
int acedSetVar(const ACHAR *sym, const struct resbuf *val);

// --- Error status of object-level calls --------------------------------------------------

namespace Acad {
enum ErrorStatus {
  eOk = 0,
  eNotImplementedYet = 1,
  eNotApplicable = 2,
  eInvalidInput = 3,
  eAmbiguousInput = 4,
  eAmbiguousOutput = 5,
  eOutOfMemory = 6,
  eBufferTooSmall = 7,
  eInvalidOpenState = 8,
  eEntityInInactiveLayout = 9,
  eHandleExists = 10,
  eNullHandle = 11,
  eBrokenHandle = 12,
  eUnknownHandle = 13,
  eHandleInUse = 14,
  eNullObjectPointer = 15,
  eNullObjectId = 16,
  eNullBlockName = 17,
  eContainerNotEmpty = 18,
  eNullEntityPointer = 20,
  eIllegalEntityType = 21,
  eKeyNotFound = 22,
  eDuplicateKey = 23,
  eInvalidIndex = 24,
  eDuplicateIndex = 25,
  eAlreadyInDb = 26,
  eOutOfDisk = 27,
  eDeletedEntry = 28,
  eNegativeValueNotAllowed = 29,
  eInvalidExtents = 30,
  eInvalidAdsName = 31,
  eInvalidSymbolTableName = 32,
  eInvalidKey = 33,
  eWrongObjectType = 34,
  eWrongDatabase = 35,
  eObjectToBeDeleted = 36,
  eInvalidDwgVersion = 37,
  eAnonymousEntry = 38,
  eIllegalReplacement = 39,
  eEndOfObject = 40,
  eEndOfFile = 41,
  eIsReading = 42,
  eIsWriting = 43,
  eNotOpenForRead = 44,
  eNotOpenForWrite = 45,
  eNotThatKindOfClass = 46,
  eInvalidBlockName = 47,
  eMissingDxfField = 48,
  eDuplicateDxfField = 49,
  eInvalidDxfCode = 50,
  eInvalidResBuf = 51,
  eBadDxfSequence = 52,
  eFilerError = 53,
  eVertexAfterFace = 54,
  eInvalidFaceVertexIndex = 55,
  eInvalidMeshVertexIndex = 56,
  eOtherObjectsBusy = 57,
  eMustFirstAddBlockToDb = 58,
  eCannotNestBlockDefs = 59,
  eDwgRecoveredOK = 60,
  eDwgNotRecoverable = 61,
  eDxfPartiallyRead = 62,
  eDxfReadAborted = 63,
  eDxbPartiallyRead = 64,
  eDwgCRCDoesNotMatch = 65,
  eDwgSentinelDoesNotMatch = 66,
  eDwgObjectImproperlyRead = 67,
  eNoInputFiler = 68,
  eDwgNeedsAFullSave = 69,
  eDxbReadAborted = 70,
  eFileLockedByACAD = 71,
  eFileAccessErr = 72,
  eFileSystemErr = 73,
  eFileInternalErr = 74,
  eFileTooManyOpen = 75,
  eFileNotFound = 76,
  eDwkLockFileFound = 77,
  eWasErased = 78,
  ePermanentlyErased = 79,
  eWasOpenForRead = 80,
  eWasOpenForWrite = 81,
  eWasOpenForUndo = 82,
  eWasNotifying = 83,
  eWasOpenForNotify = 84,
  eOnLockedLayer = 85,
  eMustOpenThruOwner = 86,
  eSubentitiesStillOpen = 87,
  eAtMaxReaders = 88,
  eIsWriteProtected = 89,
  eIsXRefObject = 90,
  eNotAnEntity = 91,
  eHadMultipleReaders = 92,
  eDuplicateRecordName = 93,
  eXRefDependent = 94,
  eSelfReference = 95,
  eMissingSymbolTable = 96,
  eMissingSymbolTableRec = 97,
  eWasNotOpenForWrite = 98,
  eCloseWasNotifying = 99,
  eCloseModifyAborted = 100,
  eClosePartialFailure = 101,
  eCloseFailObjectDamaged = 102,
  eCannotBeErasedByCaller = 103,
  eCannotBeResurrected = 104,
  eWasNotErased = 105,
  eInsertAfter = 106,
  eLockViolation = 111,
  eLockConflict = 112,
  eDatabaseObjectsOpen = 113,
  eLockChangeInProgress = 114,
  eInvalidContext = 173,
  eNoDocument = 392,
  eNotCurrentDatabase = 396,
};
}  // namespace Acad

// --- Run-time classes ---------------------------------------------------------------

class AcRxClass;

// The root of the host's run-time class system.
class AcRxObject {
 public:
  virtual ~AcRxObject();
  static AcRxClass *desc();
  virtual AcRxClass *isA() const;
  bool isKindOf(const AcRxClass *cls) const;
};

// A class descriptor. The host's class dictionary owns every descriptor.
class AcRxClass : public AcRxObject {
 public:
  typedef AcRxObject *(*PseudoConstructor)();
  const ACHAR *name() const;
  const ACHAR *dxfName() const;
  const ACHAR *appName() const;
  AcRxClass *myParent() const;
  bool isDerivedFrom(const AcRxClass *other) const;
  AcRxObject *create() const;
  // Protocol extensions: an object registered for a protocol class.
  AcRxObject *addX(AcRxClass *protocolClass, AcRxObject *extension);
  AcRxObject *getX(const AcRxClass *protocolClass) const;
  AcRxObject *delX(AcRxClass *protocolClass);
  AcRxObject *queryX(const AcRxClass *protocolClass) const;
  static AcRxClass *desc();
  AcRxClass *isA() const override;

  struct Impl;
  explicit AcRxClass(Impl *impl);
  ~AcRxClass() override;
  Impl *impl() const { return impl_; }

 private:
  Impl *impl_;
};

// Creates and registers a class descriptor under className, derived from the
// registered class parentClassName. Returns the existing descriptor when the
// name is registered already. The host owns the descriptor.
AcRxClass *newAcRxClass(const ACHAR *className, const ACHAR *parentClassName, int proxyFlags = 0,
                        AcRxClass::PseudoConstructor pseudoConstructor = nullptr,
                        const ACHAR *dxfName = nullptr, const ACHAR *appName = nullptr);
// Removes a descriptor made by newAcRxClass from the class dictionary and frees it.
void deleteAcRxClass(AcRxClass *cls);
// Links every registered descriptor to its parent.
void acrxBuildClassHierarchy();
// The registered descriptor of that name, or null.
AcRxClass *acrxFindClass(const ACHAR *className);

// A dictionary of named system objects (services).
class AcRxDictionary : public AcRxObject {
 public:
  virtual AcRxObject *at(const ACHAR *key) const = 0;
  virtual AcRxObject *atPut(const ACHAR *key, AcRxObject *obj) = 0;
  virtual AcRxObject *remove(const ACHAR *key) = 0;
};
AcRxDictionary *acrxSysRegistry();

#define ACED_EDITOR_OBJ ACRX_T("AcEditor")

// --- Applications -----------------------------------------------------------------------

namespace AcRx {
enum AppMsgCode : int {
  kNullMsg = 0,
  kInitAppMsg = 1,
  kUnloadAppMsg = 2,
  kLoadDwgMsg = 3,
  kUnloadDwgMsg = 4,
  kInvkSubrMsg = 5,
  kCfgMsg = 6,
  kEndMsg = 7,
  kQuitMsg = 8,
  kSaveMsg = 9,
  kDependencyMsg = 10,
  kNoDependencyMsg = 11,
  kOleUnloadAppMsg = 12,
  kPreQuitMsg = 13,
  kInitDialogMsg = 14,
  kEndDialogMsg = 15,
  kSuspendMsg = 16,
};
enum AppRetCode {
  kRetOK = 0,
  kRetError = 3,
};
}  // namespace AcRx

// Loads a module by its module name. Answers false, quietly unless printit,
// when no library stands behind the name or its entry point refuses.
bool acrxLoadModule(const ACHAR *moduleName, bool printit, bool asCmd = false);
bool acrxUnloadModule(const ACHAR *moduleName, bool asCmd = false);
bool acrxUnlockApplication(void *appId);
bool acrxRegisterAppMDIAware(void *appId);
bool acrxApplicationIsUnlocked(void *appId);

// --- Drawing databases and documents ---------------------------------------------------------

class AcDbDatabase;
class AcApDocument;

namespace AcAp {
enum DocLockMode {
  kNone = 0x00,
  kAutoWrite = 0x01,
  kNotLocked = 0x02,
  kWrite = 0x04,
  kProtectedAutoWrite = 0x14,
  kRead = 0x20,
  kXWrite = 0x40,
};
}  // namespace AcAp

class AcDbHostApplicationServices {
 public:
  virtual ~AcDbHostApplicationServices();
  // The drawing database that host calls work on: the current document's.
  virtual AcDbDatabase *workingDatabase() const = 0;
  virtual void setWorkingDatabase(AcDbDatabase *db) = 0;
};
AcDbHostApplicationServices *acdbHostApplicationServices();

class AcApDocument : public AcRxObject {
 public:
  virtual const ACHAR *fileName() const = 0;
  virtual const ACHAR *docTitle() const = 0;
  virtual AcDbDatabase *database() const = 0;
  virtual AcAp::DocLockMode myLockMode() const = 0;
  virtual AcAp::DocLockMode lockMode(bool bIncludeMyLocks = true) const = 0;
  virtual bool isQuiescent() const = 0;
};

class AcApDocumentIterator {
 public:
  virtual ~AcApDocumentIterator();
  virtual bool done() const = 0;
  virtual void step() = 0;
  virtual AcApDocument *document() = 0;
};

class AcApDocManager : public AcRxObject {
 public:
  virtual AcApDocument *curDocument() const = 0;
  virtual AcApDocument *mdiActiveDocument() const = 0;
  virtual AcApDocument *document(const AcDbDatabase *db) const = 0;
  virtual Acad::ErrorStatus lockDocument(AcApDocument *doc, AcAp::DocLockMode mode = AcAp::kWrite,
                                         const ACHAR *globalCmdName = nullptr,
                                         const ACHAR *localCmdName = nullptr, bool prompt = true) = 0;
  virtual Acad::ErrorStatus unlockDocument(AcApDocument *doc) = 0;
  virtual Acad::ErrorStatus setCurDocument(AcApDocument *doc, AcAp::DocLockMode mode = AcAp::kNone,
                                           bool activate = false) = 0;
  virtual Acad::ErrorStatus activateDocument(AcApDocument *doc, bool bPassScript = false) = 0;
  virtual int documentCount() const = 0;
  // The caller deletes the iterator.
  virtual AcApDocumentIterator *newAcApDocumentIterator() = 0;
};
AcApDocManager *acDocManagerPtr();
#define acDocManager acDocManagerPtr()

// --- Editor reactors ---------------------------------------------------------------------------

class AcRxEventReactor : public AcRxObject {};

class AcEditorReactor : public AcRxEventReactor {
 public:
  virtual void saveComplete(AcDbDatabase *db, const ACHAR *actualName);
  virtual void beginSave(AcDbDatabase *db, const ACHAR *intendedName);
  virtual void abortSave(AcDbDatabase *db);
  virtual void commandWillStart(const ACHAR *cmdStr);
  virtual void commandEnded(const ACHAR *cmdStr);
};

// The "AcEditor" service of the system registry.
class AcEditor : public AcRxDictionary {
 public:
  static AcEditor *cast(const AcRxObject *obj);
  virtual void addReactor(AcRxEventReactor *reactor) = 0;
  virtual void removeReactor(AcRxEventReactor *reactor) = 0;
};
#define acedEditor AcEditor::cast(acrxSysRegistry()->at(ACED_EDITOR_OBJ))

#include "host/acdb.h"
#include "host/aced_select.h"
#include "host/aced_jig.h"
#include "host/dxf_standin.h"
