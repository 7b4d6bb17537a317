// The registry stand-in: values kept in the settings file, case-blind names,
// the platform's sizes and error codes, and a failed write that changes
// nothing; and its LISP face.
#include <unistd.h>

#include <cstdlib>
#include <cwchar>
#include <filesystem>
#include <fstream>
#include <vector>

#include "host_fixture.h"
#include "session/internal.h"

namespace vantry::host {
namespace {

class Registry : public HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    dir_ = std::filesystem::temp_directory_path() / ("vantry_registry_" + std::to_string(::getpid()));
    std::filesystem::create_directories(dir_);
    file_ = (dir_ / "registry").string();
    ::setenv("VANTRY_REGISTRY", file_.c_str(), 1);
    reloadRegistry();
  }
  void TearDown() override {
    ::unsetenv("VANTRY_REGISTRY");
    reloadRegistry();
    std::filesystem::remove_all(dir_);
    HostTest::TearDown();
  }
  static LONG setString(HKEY key, const wchar_t *name, const std::wstring &value) {
    return RegSetValueExW(key, name, 0, REG_SZ, reinterpret_cast<const BYTE *>(value.c_str()),
                          DWORD((value.size() + 1) * sizeof(wchar_t)));
  }
  std::filesystem::path dir_;
  std::string file_;
};

TEST_F(Registry, ValuesSurviveInTheSettingsFile) {
  HKEY key;
  DWORD disposition = 0;
  ASSERT_EQ(RegCreateKeyExW(HKEY_CURRENT_USER, L"Software\\Vantry\\Test", 0, nullptr, 0, KEY_WRITE, nullptr, &key,
                            &disposition),
            ERROR_SUCCESS);
  EXPECT_EQ(disposition, DWORD(REG_CREATED_NEW_KEY));
  // Names with the file's own separators and escapes in them.
  EXPECT_EQ(setString(key, L"Tab\tand\nline%25", L"caf\u00e9\tvalue"), ERROR_SUCCESS);
  DWORD number = 0xfffffffe;
  EXPECT_EQ(RegSetValueExW(key, L"Limit", 0, REG_DWORD, reinterpret_cast<BYTE *>(&number), 4), ERROR_SUCCESS);
  EXPECT_EQ(RegSetValueExW(key, L"Odd", 0, REG_DWORD, reinterpret_cast<BYTE *>(&number), 2), ERROR_INVALID_PARAMETER);
  RegCloseKey(key);

  reloadRegistry();
  ASSERT_EQ(RegOpenKeyExW(HKEY_CURRENT_USER, L"SOFTWARE\\vantry\\test", 0, KEY_READ, &key), ERROR_SUCCESS);
  DWORD type = 0, size = 0;
  ASSERT_EQ(RegQueryValueExW(key, L"tab\tAND\nLINE%25", nullptr, &type, nullptr, &size), ERROR_SUCCESS);
  EXPECT_EQ(type, DWORD(REG_SZ));
  EXPECT_EQ(size, 11 * sizeof(wchar_t));
  wchar_t small[4];
  DWORD room = sizeof small;
  EXPECT_EQ(RegQueryValueExW(key, L"tab\tAND\nLINE%25", nullptr, &type, reinterpret_cast<BYTE *>(small), &room),
            ERROR_MORE_DATA);
  EXPECT_EQ(room, size);
  wchar_t text[16];
  room = sizeof text;
  ASSERT_EQ(RegQueryValueExW(key, L"Tab\tand\nline%25", nullptr, &type, reinterpret_cast<BYTE *>(text), &room),
            ERROR_SUCCESS);
  EXPECT_EQ(std::wstring(text), L"caf\u00e9\tvalue");
  DWORD got = 0;
  room = 4;
  ASSERT_EQ(RegQueryValueExW(key, L"LIMIT", nullptr, &type, reinterpret_cast<BYTE *>(&got), &room), ERROR_SUCCESS);
  EXPECT_EQ(got, number);
  EXPECT_EQ(RegDeleteValueW(key, L"limit"), ERROR_SUCCESS);
  EXPECT_EQ(RegDeleteValueW(key, L"limit"), ERROR_FILE_NOT_FOUND);
  RegCloseKey(key);
  reloadRegistry();
  ASSERT_EQ(RegOpenKeyExW(HKEY_CURRENT_USER, L"Software\\Vantry\\Test", 0, KEY_READ, &key), ERROR_SUCCESS);
  EXPECT_EQ(RegQueryValueExW(key, L"Limit", nullptr, nullptr, nullptr, nullptr), ERROR_FILE_NOT_FOUND);
  RegCloseKey(key);
  EXPECT_EQ(RegOpenKeyExW(HKEY_CURRENT_USER, L"Software\\Vantry\\Missing", 0, KEY_READ, &key), ERROR_FILE_NOT_FOUND);
}

TEST_F(Registry, AWriteThatCannotBeKeptChangesNothing) {
  HKEY key;
  ASSERT_EQ(RegCreateKeyExW(HKEY_CURRENT_USER, L"Software\\Vantry\\Test", 0, nullptr, 0, KEY_WRITE, nullptr, &key,
                            nullptr),
            ERROR_SUCCESS);
  ASSERT_EQ(setString(key, L"Kept", L"before"), ERROR_SUCCESS);
  // The settings file's folder turns into a file: the next write cannot be kept.
  std::filesystem::remove_all(dir_);
  std::ofstream(dir_.string()) << "in the way";
  EXPECT_EQ(setString(key, L"Kept", L"after"), ERROR_WRITE_FAULT);
  EXPECT_EQ(setString(key, L"New", L"x"), ERROR_WRITE_FAULT);
  EXPECT_EQ(lisp(L"(vl-registry-read \"HKEY_CURRENT_USER\\\\Software\\\\Vantry\\\\Test\" \"Kept\")"), L"\"before\"");
  EXPECT_EQ(lisp(L"(vl-registry-read \"HKEY_CURRENT_USER\\\\Software\\\\Vantry\\\\Test\" \"New\")"), L"nil");
  RegCloseKey(key);
  EXPECT_EQ(RegCreateKeyExW(HKEY_CURRENT_USER, L"Software\\Vantry\\Other", 0, nullptr, 0, KEY_WRITE, nullptr, &key,
                            nullptr),
            ERROR_WRITE_FAULT);
  EXPECT_EQ(RegOpenKeyExW(HKEY_CURRENT_USER, L"Software\\Vantry\\Other", 0, KEY_READ, &key), ERROR_FILE_NOT_FOUND);
  std::filesystem::remove(dir_);
}

TEST_F(Registry, LispReadsWritesAndDeletes) {
  const std::wstring key = L"\"HKEY_CURRENT_USER\\\\Software\\\\Vantry\\\\Lisp\"";
  EXPECT_EQ(lisp(L"(vl-registry-write " + key + L" \"Server\" \"smtp://mail:25\")"), L"\"smtp://mail:25\"");
  EXPECT_EQ(lisp(L"(vl-registry-write " + key + L" \"Limit\" 12)"), L"12");
  EXPECT_EQ(lisp(L"(vl-registry-write " + key + L" \"default\")"), L"\"default\"");
  EXPECT_EQ(lisp(L"(vl-registry-read " + key + L" \"SERVER\")"), L"\"smtp://mail:25\"");
  EXPECT_EQ(lisp(L"(vl-registry-read " + key + L" \"Limit\")"), L"12");
  EXPECT_EQ(lisp(L"(vl-registry-read " + key + L")"), L"\"default\"");
  EXPECT_EQ(lisp(L"(vl-registry-delete " + key + L" \"Limit\")"), L"T");
  EXPECT_EQ(lisp(L"(vl-registry-read " + key + L" \"Limit\")"), L"nil");
  EXPECT_EQ(lisp(L"(vl-registry-write \"HKEY_NOWHERE\\\\X\" \"a\" \"b\")"), L"nil");
  EXPECT_EQ(lisp(L"(vl-registry-write " + key + L" \"a\" 1.5)"), L"ERROR: bad argument type: stringp 1.5");
}

TEST_F(Registry, SubkeysAreEnumeratedInNameOrderWithoutTheirChildren) {
  for (const wchar_t *sub : {L"Software\\EnumTest\\beta", L"Software\\EnumTest\\Alpha\\Deep",
                             L"Software\\EnumTest\\Alpha-2", L"Software\\EnumTestOther"}) {
    HKEY key;
    ASSERT_EQ(RegCreateKeyExW(HKEY_CURRENT_USER, sub, 0, nullptr, 0, KEY_WRITE, nullptr, &key, nullptr),
              ERROR_SUCCESS);
    RegCloseKey(key);
  }
  HKEY key;
  ASSERT_EQ(RegOpenKeyExW(HKEY_CURRENT_USER, L"software\\enumtest", 0, KEY_READ, &key), ERROR_SUCCESS);
  std::vector<std::wstring> names;
  for (DWORD i = 0;; ++i) {
    wchar_t name[32];
    DWORD size = 32;
    LONG r = RegEnumKeyExW(key, i, name, &size, nullptr, nullptr, nullptr, nullptr);
    if (r == ERROR_NO_MORE_ITEMS) break;
    ASSERT_EQ(r, ERROR_SUCCESS);
    EXPECT_EQ(size, wcslen(name));
    names.push_back(name);
  }
  EXPECT_EQ(names, (std::vector<std::wstring>{L"ALPHA", L"ALPHA-2", L"BETA"}));
  wchar_t small[5];
  DWORD size = 5;
  EXPECT_EQ(RegEnumKeyExW(key, 1, small, &size, nullptr, nullptr, nullptr, nullptr), ERROR_MORE_DATA);
  size = 5;  // "ALPHA" and its closing null need 6
  EXPECT_EQ(RegEnumKeyExW(key, 0, small, &size, nullptr, nullptr, nullptr, nullptr), ERROR_MORE_DATA);
  wchar_t fits[6];
  size = 6;
  EXPECT_EQ(RegEnumKeyExW(key, 0, fits, &size, nullptr, nullptr, nullptr, nullptr), ERROR_SUCCESS);
  EXPECT_EQ(std::wstring(fits), L"ALPHA");
  RegCloseKey(key);
  EXPECT_EQ(RegEnumKeyExW(nullptr, 0, fits, &size, nullptr, nullptr, nullptr, nullptr), ERROR_INVALID_PARAMETER);
}

}  // namespace
}  // namespace vantry::host
