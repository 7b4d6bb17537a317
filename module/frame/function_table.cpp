// Registration of the function tables and the call frame.
#include "frame/function_table.h"

namespace vantry::frame {

void registerFunctions(const FunctionRow *table, int count, int base) {
  for (int i = 0; i < count; ++i) {
    acedDefun(table[i].name, i + base);
    acedRegFunc(table[i].entry, i + base);
  }
}

void unregisterFunctions(const FunctionRow *table, int count, int base) {
  for (int i = 0; i < count; ++i) {
    acedRegFunc(nullptr, i + base);
    acedUndef(table[i].name, i + base);
  }
}

const ACHAR *functionName(int code) {
  if (code >= kDatabaseBase && code < kDatabaseBase + kDatabaseCount)
    return kDatabaseFunctions[code - kDatabaseBase].name;
  if (code >= kDrawingBase && code < kDrawingBase + kDrawingCount)
    return kDrawingFunctions[code - kDrawingBase].name;
  return nullptr;
}

namespace {

AcApDocument *currentDocument() {
  return acDocManager->document(acdbHostApplicationServices()->workingDatabase());
}

}  // namespace

namespace {
bool g_cancelled = false;
}  // namespace

void cancelCall() {
  g_cancelled = true;
}

int callFrame(Implementation impl) {
  acDocManager->lockDocument(currentDocument(), AcAp::kWrite, nullptr, nullptr, true);
  g_cancelled = false;
  int status = impl();
  int result = RSRSLT;
  switch (status) {
    case 1:
      acutPrintf(L"%s", L"\nToo few arguments passed.\n");
      result = RSERR;
      break;
    case 2:
      acutPrintf(L"%s", L"\nWrong type of arguments passed.\n");
      result = RSERR;
      break;
    case 3:
      acutPrintf(L"%s", L"\nBad data passed .\n");
      result = RSERR;
      break;
    case 4:
      acedTextScr();
      result = RSERR;
      break;
    default:
      break;
  }
  if (g_cancelled) result = RTCAN;
  g_cancelled = false;
  // The implementation may have switched documents: unlock the one current now.
  acDocManager->unlockDocument(currentDocument());
  return result;
}

int notAvailable() {
  acedRetNil();
  const ACHAR *name = functionName(acedGetFunCode());
  acutPrintf(L"\n%s is not available in this build.\n", name ? name : L"This function");
  return 4;
}

}  // namespace vantry::frame
