// The main window, the status bar's meter on a terminal, and the shell's
// calls where LISP cannot reach: window handles, buffers too small, and the
// desktop's opener (a stand-in xdg-open that writes down what it was given).
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include "host_fixture.h"

namespace vantry::host {
namespace {

namespace fs = std::filesystem;
using Desktop = HostTest;

// Sets an environment variable for one test and puts it back after.
class ScopedEnv {
 public:
  ScopedEnv(const char *name, const std::string &value) : name_(name) {
    if (const char *old = std::getenv(name)) old_ = old;
    ::setenv(name, value.c_str(), 1);
  }
  ~ScopedEnv() {
    if (old_)
      ::setenv(name_, old_->c_str(), 1);
    else
      ::unsetenv(name_);
  }

 private:
  const char *name_;
  std::optional<std::string> old_;
};

fs::path scratch(const char *name) {
  fs::path dir = fs::temp_directory_path() / ("vantry_desktop_" + std::to_string(getpid())) / name;
  fs::remove_all(dir);
  fs::create_directories(dir);
  return dir;
}

TEST_F(Desktop, MeterOnATerminalIsDrawnInPlaceAndKeptOffTheTranscript) {
  std::wstring screen;
  s().echo = [&](std::wstring_view t) { screen += t; };
  s().echoIsTerminal = true;
  EXPECT_EQ(acedSetStatusBarProgressMeter(L"Saving", 0, 4), 0);
  EXPECT_EQ(acedSetStatusBarProgressMeterPos(1), 0);
  EXPECT_EQ(acedSetStatusBarProgressMeterPos(1), 0);  // no step: not drawn again
  acutPrintf(L"Done\n");
  EXPECT_EQ(acedSetStatusBarProgressMeterPos(3), 0);
  acedRestoreStatusBar();
  s().echo = nullptr;
  s().echoIsTerminal = false;
  std::wstring empty(30, L'.'), quarter = std::wstring(7, L'#') + std::wstring(23, L'.'),
                                threeQuarters = std::wstring(22, L'#') + std::wstring(8, L'.');
  EXPECT_EQ(screen, L"Saving [" + empty + L"]   0%" +                   // drawn
                        L"\r\033[KSaving [" + quarter + L"]  25%" +     // redrawn in place
                        L"\r\033[KDone\n" +                            // text takes the line
                        L"Saving [" + threeQuarters + L"]  75%" +      // drawn again below it
                        L"\r\033[K");                                  // and wiped at the end
  EXPECT_EQ(s().transcript(), L"Done\n");
  EXPECT_TRUE(s().statusLine.empty());
}

TEST_F(Desktop, MainWindowHandleIsTheOnlyWindow) {
  HWND main = adsw_acadMainWnd();
  HWND other = reinterpret_cast<HWND>(uintptr_t(0x4242));
  SetLastError(0);
  EXPECT_FALSE(EnableWindow(other, FALSE));
  EXPECT_EQ(GetLastError(), DWORD(ERROR_INVALID_WINDOW_HANDLE));
  EXPECT_FALSE(SetWindowTextW(other, L"x"));
  EXPECT_FALSE(SetWindowPos(other, HWND_BOTTOM, 0, 0, 0, 0, 0));
  EXPECT_EQ(GetWindowTextLengthW(other), 0);

  // EnableWindow tells whether the window was disabled before.
  EXPECT_FALSE(EnableWindow(main, FALSE));
  EXPECT_TRUE(EnableWindow(main, FALSE));
  EXPECT_FALSE(IsWindowEnabled(main));
  EXPECT_TRUE(EnableWindow(main, TRUE));
  EXPECT_TRUE(IsWindowEnabled(main));

  ASSERT_TRUE(SetWindowTextW(main, L"Project 12"));
  wchar_t small[5];
  EXPECT_EQ(GetWindowTextW(main, small, 5), 4);
  EXPECT_STREQ(small, L"Proj");
  EXPECT_EQ(GetWindowTextLengthW(main), 10);

  // Brought forward without SWP_NOACTIVATE, the window is activated too.
  SetActiveWindow(nullptr);
  EXPECT_TRUE(SetWindowPos(main, HWND_BOTTOM, 0, 0, 0, 0, SWP_NOMOVE | SWP_NOSIZE | SWP_NOACTIVATE));
  EXPECT_EQ(GetActiveWindow(), nullptr);
  EXPECT_TRUE(SetWindowPos(main, HWND_TOP, 0, 0, 0, 0, SWP_NOMOVE | SWP_NOSIZE));
  EXPECT_EQ(GetActiveWindow(), main);
  EXPECT_EQ(lisp(L"(cdr (assoc \"z-order\" (host:main-window)))"), L"\"top\"");
  EnableWindow(main, FALSE);
  s().reset();
  EXPECT_TRUE(IsWindowEnabled(main));
  wchar_t caption[64];
  GetWindowTextW(main, caption, 64);
  EXPECT_EQ(std::wstring(caption), L"AutoCAD 2025");  // no drawing open
}

TEST_F(Desktop, FileDialogFillsTheCallersBufferOrSaysItIsTooSmall) {
  fs::path dir = scratch("dialog");
  wchar_t file[8] = {};
  OPENFILENAMEW ofn{};
  ofn.lStructSize = sizeof ofn;
  ofn.lpstrFile = file;
  ofn.nMaxFile = 8;
  s().dialogAnswers.push_back(text::fromUtf8((dir / "schedule.csv").string()));
  EXPECT_FALSE(GetSaveFileNameW(&ofn));
  EXPECT_EQ(CommDlgExtendedError(), DWORD(FNERR_BUFFERTOOSMALL));

  wchar_t big[MAX_PATH] = {};
  ofn.lpstrFile = big;
  ofn.nMaxFile = MAX_PATH;
  std::wstring initial = text::fromUtf8(dir.string());
  ofn.lpstrInitialDir = initial.c_str();
  s().dialogAnswers.push_back(L"schedule.csv");
  ASSERT_TRUE(GetSaveFileNameW(&ofn));
  EXPECT_EQ(CommDlgExtendedError(), DWORD(0));
  std::wstring chosen = big;
  EXPECT_EQ(chosen, initial + L"/schedule.csv");
  EXPECT_EQ(chosen.substr(ofn.nFileOffset), L"schedule.csv");
  EXPECT_EQ(chosen.substr(ofn.nFileExtension), L"csv");
  EXPECT_EQ(GetOpenFileNameW(nullptr), FALSE);
  EXPECT_NE(CommDlgExtendedError(), DWORD(0));
  fs::remove_all(dir);
}

TEST_F(Desktop, FolderPathTooLongForTheBufferIsRefused) {
  fs::path home = scratch("home");
  fs::path deep = home;
  while (deep.string().size() < MAX_PATH + 10) deep /= std::string(40, 'd');
  fs::create_directories(deep);
  ScopedEnv h("HOME", deep.string());
  ScopedEnv c("XDG_CONFIG_HOME", home.string());
  wchar_t path[MAX_PATH];
  EXPECT_EQ(SHGetFolderPathW(nullptr, CSIDL_PROFILE, nullptr, 0, path), HRESULT_FROM_WIN32(ERROR_INSUFFICIENT_BUFFER));
  EXPECT_EQ(path[0], L'\0');
  ScopedEnv h2("HOME", home.string());
  EXPECT_EQ(SHGetFolderPathW(nullptr, CSIDL_PROFILE, nullptr, 0, path), S_OK);
  EXPECT_EQ(std::wstring(path), text::fromUtf8(home.string()));
  EXPECT_EQ(SHGetFolderPathW(nullptr, 0x24, nullptr, 0, path), E_INVALIDARG);
  fs::remove_all(home);
}

// With a desktop the opener is started, detached; here it is a script on
// PATH that writes its argument where the test can read it.
TEST_F(Desktop, OnADesktopTheOpenerIsStarted) {
  fs::path dir = scratch("opener");
  fs::path said = dir / "said.txt", opener = dir / "xdg-open";
  {
    std::ofstream script(opener);
    script << "#!/bin/sh\nprintf '%s\\n' \"$1\" > \"" << said.string() << ".part\" && mv \""
           << said.string() << ".part\" \"" << said.string() << "\"\n";
  }
  ::chmod(opener.c_str(), 0755);
  const char *path = std::getenv("PATH");
  ScopedEnv p("PATH", dir.string() + ":" + (path ? path : "/usr/bin:/bin"));
  ScopedEnv d("DISPLAY", ":77");
  ASSERT_TRUE(haveDesktop());
  HINSTANCE r = ShellExecuteW(nullptr, L"open", L"https://example.com/a b", nullptr, nullptr, SW_SHOWNORMAL);
  EXPECT_GT(reinterpret_cast<intptr_t>(r), 32);
  EXPECT_EQ(s().transcript(), L"[Shell] open https://example.com/a b\n");
  auto until = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  while (!fs::exists(said) && std::chrono::steady_clock::now() < until)
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  std::ifstream in(said);
  std::string line;
  std::getline(in, line);
  EXPECT_EQ(line, "https://example.com/a b");
  fs::remove_all(dir.parent_path());
}

}  // namespace
}  // namespace vantry::host
