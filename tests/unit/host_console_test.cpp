// The command line (acutPrintf, screens, alerts) and the platform services
// answered by the scripted person (message boxes, mutexes, COM start-up).
#include "host_fixture.h"

namespace vantry::host {
namespace {

using CommandLine = HostTest;

std::wstring printed(const ACHAR *format, ...) {
  va_list args;
  va_start(args, format);
  std::wstring text = formatHostPrintf(format, args);
  va_end(args);
  return text;
}

TEST_F(CommandLine, PrintfTakesWideStringsUnlessTold) {
  struct {
    std::wstring got, want;
  } cases[] = {
      {printed(L"%s|%c", L"wide", L'w'), L"wide|w"},
      {printed(L"%hs|%hc", "narrow", 'n'), L"narrow|n"},
      {printed(L"%S|%C", "upper", 'u'), L"upper|u"},
      {printed(L"%ls|%ws", L"l", L"w"), L"l|w"},
      {printed(L"[%-6s][%6s][%.2s]", L"ab", L"cd", L"efgh"), L"[ab    ][    cd][ef]"},
      {printed(L"[%*s][%-*s]", 4, L"x", 3, L"y"), L"[   x][y  ]"},
      {printed(L"%hs", "d\xc3\xa9j\xc3\xa0"), L"d\u00e9j\u00e0"},  // narrow text is UTF-8
      {printed(L"%s", static_cast<const wchar_t *>(nullptr)), L"(null)"},
      {printed(L"%d %5.2f %x %ld %I64d %lld", -3, 3.14159, 255, 1L << 40, 1LL << 41, -(1LL << 42)),
       L"-3  3.14 ff 1099511627776 2199023255552 -4398046511104"},
      {printed(L"%03d|%+d|%u|%hd", 7, 7, 4000000000u, 70000),
       L"007|+7|4000000000|4464"},  // %hd truncates as printf does
      {printed(L"%g %e %%", 0.5, 1e10), L"0.5 1.000000e+10 %"},
      {printed(L"%.3s then %d", L"abcdef", 5), L"abc then 5"},
      {printed(L"50%"), L"50%"},
      {printed(L"%y"), L"%y"},
  };
  for (const auto &c : cases) EXPECT_EQ(c.got, c.want);
}

TEST_F(CommandLine, PrintfGoesToTheTranscriptWhateverItsLength) {
  std::wstring big(100000, L'z');
  int n = acutPrintf(L"\n%s%d", big.c_str(), 42);
  EXPECT_EQ(n, 100003);
  EXPECT_EQ(s().transcript(), L"\n" + big + L"42");
  std::wstring echoed;
  s().echo = [&](std::wstring_view t) { echoed += t; };
  acutPrintf(L"\nLoading %s", L"module");
  s().echo = nullptr;
  EXPECT_EQ(echoed, L"\nLoading module");
}

TEST_F(CommandLine, ScreensAndAlerts) {
  EXPECT_EQ(acedTextScr(), RTNORM);
  acedTextScr();
  EXPECT_EQ(s().textScreenCalls, 2);
  EXPECT_EQ(lisp(L"(host:text-screen-calls)"), L"2");
  EXPECT_EQ(acedGraphScr(), RTNORM);

  s().dialogAnswers.push_back(L"OK");
  EXPECT_EQ(acedAlert(L"Disk full"), RTNORM);
  EXPECT_TRUE(s().dialogAnswers.empty());
  EXPECT_EQ(lisp(L"(alert \"Second\")"), L"nil");
  EXPECT_EQ(s().transcript(), L"[Alert] Disk full\n  -> OK\n[Alert] Second\n  -> OK (no answer queued)\n");
  EXPECT_EQ(lisp(L"(alert 5)"), L"ERROR: bad argument type: stringp 5");
  EXPECT_EQ(acedAlert(nullptr), RTERROR);
}

using MessageBoxes = HostTest;

TEST_F(MessageBoxes, AnswersComeFromTheDialogQueueOrTheBoxDefault) {
  struct {
    UINT type;
    const wchar_t *queued;  // null: nothing queued
    int want;
    const wchar_t *line;  // the answer line of the transcript
  } cases[] = {
      {MB_OK, nullptr, IDOK, L"  <OK>: OK (no answer queued)\n"},
      {MB_OKCANCEL, nullptr, IDCANCEL, L"  <OK> <Cancel>: Cancel (no answer queued)\n"},
      {MB_YESNO | MB_ICONQUESTION, nullptr, IDNO, L"  <Yes> <No>: No (no answer queued)\n"},
      {MB_YESNOCANCEL, nullptr, IDCANCEL, L"  <Yes> <No> <Cancel>: Cancel (no answer queued)\n"},
      {MB_ABORTRETRYIGNORE, nullptr, IDABORT, L"  <Abort> <Retry> <Ignore>: Abort (no answer queued)\n"},
      {MB_RETRYCANCEL, L"retry", IDRETRY, L"  <Retry> <Cancel>: Retry\n"},
      {MB_YESNO, L"YES", IDYES, L"  <Yes> <No>: Yes\n"},
      {MB_ABORTRETRYIGNORE, L"Ignore", IDIGNORE, L"  <Abort> <Retry> <Ignore>: Ignore\n"},
      {MB_YESNO, L"Retry", IDNO, L"  <Yes> <No>: No (\"Retry\" is not a button of this box)\n"},
  };
  for (const auto &c : cases) {
    s().clearTranscript();
    if (c.queued) s().dialogAnswers.push_back(c.queued);
    EXPECT_EQ(MessageBoxW(nullptr, L"Save changes?", L"Vantry", c.type), c.want) << c.type;
    EXPECT_EQ(s().transcript(), std::wstring(L"[Vantry] Save changes?\n") + c.line);
    EXPECT_TRUE(s().dialogAnswers.empty());
  }
}

TEST_F(MessageBoxes, QueuedFromLispInOrder) {
  EXPECT_EQ(lisp(L"(host:queue-dialog \"No\" '(\"Yes\" \"OK\"))"), L"3");
  EXPECT_EQ(MessageBoxW(nullptr, L"a", nullptr, MB_YESNO), IDNO);
  EXPECT_EQ(MessageBoxW(nullptr, L"b", nullptr, MB_YESNO), IDYES);
  EXPECT_EQ(MessageBoxW(nullptr, L"c", nullptr, MB_OK), IDOK);
  EXPECT_NE(s().transcript().find(L"[Error] a\n"), std::wstring::npos);  // the platform's default caption
  EXPECT_EQ(lisp(L"(host:queue-dialog 1)"), L"ERROR: bad argument type: stringp 1");
}

using Platform = HostTest;

TEST_F(Platform, NamedMutexesLastErrorAndComCounting) {
  HANDLE first = CreateMutexW(nullptr, FALSE, L"OneName");
  EXPECT_NE(first, nullptr);
  EXPECT_EQ(GetLastError(), 0u);
  HANDLE again = CreateMutexW(nullptr, FALSE, L"OneName");
  EXPECT_NE(again, nullptr);
  EXPECT_EQ(GetLastError(), 183u);  // already exists
  EXPECT_NE(CreateMutexW(nullptr, TRUE, nullptr), nullptr);
  EXPECT_EQ(s().mutexes, (std::vector<std::wstring>{L"OneName"}));
  EXPECT_EQ(lisp(L"(host:mutexes)"), L"(\"OneName\")");
  SetLastError(5);
  EXPECT_EQ(GetLastError(), 5u);

  EXPECT_EQ(CoInitialize(nullptr), S_OK);
  EXPECT_EQ(CoInitialize(nullptr), S_FALSE);
  CoUninitialize();
  EXPECT_EQ(comInitCount(), 1);
  CoUninitialize();
  CoUninitialize();  // unmatched: stays at zero
  EXPECT_EQ(comInitCount(), 0);

  acutPrintf(L"text");
  EXPECT_TRUE(MessageBeep(MB_ICONWARNING));
  Beep(440, 100);
  EXPECT_EQ(beepCount(), 2);
  EXPECT_EQ(s().transcript(), L"text\n[Beep]\n[Beep]\n");
}

}  // namespace
}  // namespace vantry::host
