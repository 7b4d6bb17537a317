// The small services of the database family: file checks, random numbers,
// beeps and message boxes.
//
//   (vt_exist path)               T when the file exists, else nil
//   (vt_readonly [path])          with a path: T when the file exists and cannot
//                                 be written; without: T when the current
//                                 database is open read-only
//   (vt_random [n])               without n a real in [0, 1); with an integer
//                                 n > 0 an integer in 0 .. n-1
//   (vt_beep)                     the default beep; T
//   (vt_message_beep [type])      the beep of a message-box type (MB_ICON...); T
//   (vt_create_db path)           a new, empty database file; T, or nil with the
//                                 engine error recorded and printed
//   (vt_message_box text [caption [style]])
//                                 a message box; the answer as its button
//                                 number (1 OK, 2 Cancel, 6 Yes, 7 No, ...)
#include <unistd.h>

#include <cstdlib>

#include "database/context.h"
#include "drawing/crt_random.h"
#include "frame/implementations.h"
#include "common/files.h"
#include "common/text.h"
#include "frame/value_list.h"

namespace vantry::lispfn {

using frame::ArgList;

int vt_exist() {
  acedRetNil();
  ArgList args;
  std::wstring path;
  if (!frame::readString(args.cursor(), path)) return 2;
  if (files::isFile(path)) acedRetT();
  return 0;
}

int vt_readonly() {
  acedRetNil();
  ArgList args;
  if (!args.cursor()) {
    if (database::currentConnection() && database::currentReadOnly()) acedRetT();
    return 0;
  }
  std::wstring path;
  if (!frame::readString(args.cursor(), path)) return 2;
  if (files::isFile(path) && ::access(text::nativePath(path).c_str(), W_OK) != 0) acedRetT();
  return 0;
}

int vt_random() {
  acedRetNil();
  ArgList args;
  if (!args.cursor()) {
    acedRetReal(double(crt::rand()) / (double(crt::kRandMax) + 1.0));
    return 0;
  }
  int n;
  if (!frame::readInteger(args.cursor(), n)) return 2;
  if (n <= 0) return 3;
  frame::returnInteger(crt::rand() % n);
  return 0;
}

int vt_beep() {
  Beep(750, 300);
  acedRetT();
  return 0;
}

int vt_message_beep() {
  acedRetNil();
  ArgList args;
  int type = 0;
  if (args.cursor() && !frame::readInteger(args.cursor(), type)) return 2;
  MessageBeep(UINT(type));
  acedRetT();
  return 0;
}

int vt_message_box() {
  acedRetNil();
  ArgList args;
  std::wstring text, caption = L"Vantry";
  int style = MB_OK;
  if (!frame::readString(args.cursor(), text)) return 2;
  if (args.cursor() && !frame::readString(args.cursor(), caption)) return 2;
  if (args.cursor() && !frame::readInteger(args.cursor(), style)) return 2;
  acedRetInt(MessageBoxW(nullptr, text.c_str(), caption.c_str(), UINT(style)));
  return 0;
}

}  // namespace vantry::lispfn

namespace vantry::lispfn {

// (vt_create_db path): a new, empty database file. T, or nil with the engine's
// error recorded and printed (an existing file is never overwritten).
int vt_create_db() {
  acedRetNil();
  ArgList args;
  std::wstring path;
  if (!frame::readString(args.cursor(), path)) return 2;
  engine::LastError error;
  if (engine::CreateDatabaseFile(text::nativePath(path), &error)) {
    acedRetT();
    return 0;
  }
  std::wstring text = text::fromUtf8(error.description);
  database::setLastError(error.number, text);
  database::printEngineError(error.number, text);
  return 0;
}

}  // namespace vantry::lispfn
