// File, printing, load and file-system built-ins, each test in a fresh
// temporary directory that is also the current directory.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "lisp/lisp.h"

namespace vantry::lisp {
namespace {

namespace fs = std::filesystem;

class LispFiles : public ::testing::Test {
 protected:
  LispFiles() {
    installAll(in);
    in.output = [this](std::wstring_view t) { out += t; };
    char tmpl[] = "/tmp/vantry-files-XXXXXX";
    dir = mkdtemp(tmpl);
    old = fs::current_path();
    fs::current_path(dir);
    wdir = fromUtf8(dir.string());
  }
  ~LispFiles() override {
    fs::current_path(old);
    fs::remove_all(dir);
  }
  std::wstring run(const std::wstring &text) {
    try {
      Value v;
      for (const Value &f : in.readAll(text, {L"t.lsp", 1})) v = in.eval(f);
      return in.toString(v, true);
    } catch (const LispError &e) {
      return L"ERROR: " + e.message;
    }
  }
  struct Case {
    const wchar_t *text, *expected;
  };
  void check(std::initializer_list<Case> cases) {
    for (const Case &c : cases) EXPECT_EQ(run(c.text), c.expected) << c.text;
  }
  static void put(const fs::path &p, const std::string &bytes) {
    std::ofstream(p, std::ios::binary) << bytes;
  }
  static std::string get(const fs::path &p) {
    std::ostringstream s;
    s << std::ifstream(p, std::ios::binary).rdbuf();
    return s.str();
  }
  Interp in;
  std::wstring out, wdir;
  fs::path dir, old;
};

TEST_F(LispFiles, WritesAndReadsBackLinesAndCharacters) {
  fs::create_directory(dir / "sub");
  check({
      {L"(setq f (open \"sub\\\\..\\\\a.txt\" \"w\"))", L"#<file \"sub\\\\..\\\\a.txt\">"},
      {L"(write-line \"na\u00efve \u20ac\" f)", L"\"na\u00efve \u20ac\""},
      {L"(write-char 65 f)", L"65"},
      {L"(princ \"\\n\" f)", L"\"\\n\""},
      {L"(prin1 \"q\\\"\" f)", L"\"q\\\"\""},
      {L"(print 'x f)", L"X"},
      {L"(close f)", L"nil"},
      {L"(write-line \"late\" f)", L"ERROR: bad argument type: streamp #<file \"sub\\\\..\\\\a.txt\">"},
      {L"(close f)", L"ERROR: bad argument type: streamp #<file \"sub\\\\..\\\\a.txt\">"},
  });
  EXPECT_EQ(get(dir / "a.txt"), "na\xC3\xAFve \xE2\x82\xAC\nA\n\"q\\\"\"\nX ");
  put(dir / "a.txt", "\xEF\xBB\xBFna\xC3\xAFve \xE2\x82\xAC\r\nA\n\"q\\\"\"\nX \n");
  check({
      {L"(setq f (open \"a.txt\" \"R\"))", L"#<file \"a.txt\">"},
      {L"(read-line f)", L"\"na\u00efve \u20ac\""},
      {L"(read-char f)", L"65"},
      {L"(read-char f)", L"10"},
      {L"(read-line f)", L"\"\\\"q\\\\\\\"\\\"\""},
      {L"(read-line f)", L"\"X \""},
      {L"(read-line f)", L"nil"},
      {L"(read-char f)", L"nil"},
      {L"(write-line \"x\" f)", L"ERROR: bad argument type: streamp #<file \"a.txt\">"},
      {L"(close f)", L"nil"},
  });
}

TEST_F(LispFiles, OpenModes) {
  put(dir / "log", "one\n");
  check({
      {L"(open \"nosuch.fil\" \"r\")", L"nil"},
      {L"(open \".\" \"r\")", L"nil"},
      {L"(open \"no/such/dir/x\" \"w\")", L"nil"},
      {L"(open \"log\" \"x\")", L"ERROR: bad argument value: \"x\""},
      {L"(open \"log\")", L"ERROR: too few arguments"},
      {L"(setq f (open \"log\" \"a\")) (write-line \"two\" f) (close f)", L"nil"},
      {L"(setq f (open \"bom\" \"w\" \"utf8-bom\")) (write-line \"\u00e9\" f) (close f)", L"nil"},
      {L"(setq f (open \"bom\" \"r\")) (read-char f)", L"233"},
      {L"(read-line)", L"nil"},
      {L"(read-line 5)", L"ERROR: bad argument type: streamp 5"},
  });
  EXPECT_EQ(get(dir / "log"), "one\ntwo\n");
  EXPECT_EQ(get(dir / "bom"), "\xEF\xBB\xBF\xC3\xA9\n");
}

TEST_F(LispFiles, PrintingToTheTranscript) {
  check({
      {L"(princ \"a\\tb\")", L"\"a\\tb\""},
      {L"(prin1 \"a\\tb\")", L"\"a\\tb\""},
      {L"(print '(1 \"s\"))", L"(1 \"s\")"},
      {L"(terpri)", L"nil"},
      {L"(prompt \"Pick: \")", L"nil"},
      {L"(write-line \"line\")", L"\"line\""},
      {L"(write-char 8364)", L"8364"},
      {L"(princ)", L""},
      {L"(prompt 1)", L"ERROR: bad argument type: stringp 1"},
  });
  EXPECT_EQ(out, L"a\tb\"a\\tb\"\n(1 \"s\") \nPick: line\n\u20ac");
  EXPECT_EQ(run(L"(prin1 (princ))"), L"");
}

TEST_F(LispFiles, FindfileAndLoadSearchTheSupportPath) {
  fs::create_directories(dir / "support");
  put(dir / "support" / "lib.lsp", "(setq loaded 'lib) (+ 1 2)");
  put(dir / "support" / "Mixed.LSP", "'mixed");
  put(dir / "here.lsp", "'here");
  std::wstring support = wdir + L"/support";
  in.supportPath = [&] { return std::vector<std::wstring>{support + L"/"}; };
  std::wstring lib = L"\"" + support + L"/lib.lsp\"";
  Case cases[] = {
      {L"(findfile \"lib.lsp\")", lib.c_str()},
      {L"(findfile \"support\\\\lib.lsp\")", lib.c_str()},
      {L"(findfile \"nosuch.lsp\")", L"nil"},
      {L"(findfile \"\")", L"nil"},
      {L"(load \"lib\")", L"3"},
      {L"loaded", L"LIB"},
      {L"(load \"here.lsp\")", L"HERE"},
      {L"(load \"mixed\")", L"MIXED"},  // letter case does not matter when searching
      {L"(load \"nosuch\" \"fallback\")", L"\"fallback\""},
      {L"(load \"nosuch\" (lambda () 'called))", L"CALLED"},
      {L"(load \"nosuch\")", L"ERROR: LOAD failed: \"nosuch\""},
      {L"(load \"support/nosuch.lsp\" nil)", L"nil"},
  };
  for (const Case &c : cases) EXPECT_EQ(run(c.text), c.expected) << c.text;
  in.supportPath = nullptr;
  EXPECT_EQ(run(L"(findfile \"lib.lsp\")"), L"nil");
}

TEST_F(LispFiles, Environment) {
  check({
      {L"(setenv \"VANTRY_TEST_VAR\" \"\u00e9x\")", L"\"\u00e9x\""},
      {L"(getenv \"VANTRY_TEST_VAR\")", L"\"\u00e9x\""},
      {L"(getenv \"vantry_test_var\")", L"\"\u00e9x\""},
      {L"(getenv \"VANTRY_NO_SUCH_VAR\")", L"nil"},
      {L"(setenv \"A=B\" \"x\")", L"ERROR: bad argument value: \"A=B\""},
  });
  unsetenv("VANTRY_TEST_VAR");
}

TEST_F(LispFiles, FileOperations) {
  put(dir / "src.txt", "hello");
  put(dir / "more.txt", "abc");
  fs::create_directory(dir / "d");
  check({
      {L"(vl-file-size \"src.txt\")", L"5"},
      {L"(vl-file-size \"d\")", L"0"},
      {L"(vl-file-size \"none\")", L"nil"},
      {L"(vl-file-copy \"src.txt\" \"copy.txt\")", L"5"},
      {L"(vl-file-copy \"more.txt\" \"copy.txt\")", L"nil"},  // never overwrites
      {L"(vl-file-copy \"more.txt\" \"copy.txt\" T)", L"3"},
      {L"(vl-file-copy \"none\" \"x.txt\")", L"nil"},
      {L"(vl-file-copy \"src.txt\" \"d\")", L"nil"},
      {L"(vl-file-rename \"copy.txt\" \"src.txt\")", L"nil"},
      {L"(vl-file-rename \"copy.txt\" \"d\\\\moved.txt\")", L"T"},
      {L"(vl-file-directory-p \"d\")", L"T"},
      {L"(vl-file-directory-p \"src.txt\")", L"nil"},
      {L"(vl-file-delete \"d\")", L"nil"},
      {L"(vl-file-delete \"src.txt\")", L"T"},
      {L"(vl-file-delete \"src.txt\")", L"nil"},
  });
  EXPECT_EQ(get(dir / "d" / "moved.txt"), "helloabc");
  EXPECT_FALSE(fs::exists(dir / "src.txt"));
}

TEST_F(LispFiles, FileNameParts) {
  check({
      {L"(vl-filename-directory \"c:\\\\acadwin\\\\acad.exe\")", L"\"c:\\\\acadwin\""},
      {L"(vl-filename-directory \"/my/support/template.txt\")", L"\"/my/support\""},
      {L"(vl-filename-directory \"acad.exe\")", L"\"\""},
      {L"(vl-filename-directory \"/x\")", L"\"/\""},
      {L"(vl-filename-directory \"c:x\")", L"\"c:\""},
      {L"(vl-filename-base \"c:\\\\acadwin\\\\acad.exe\")", L"\"acad\""},
      {L"(vl-filename-base \"c:\\\\acadwin\")", L"\"acadwin\""},
      {L"(vl-filename-base \"/a/b.c/file.tar.gz\")", L"\"file.tar\""},
      {L"(vl-filename-base \"/a/.profile\")", L"\".profile\""},
      {L"(vl-filename-extension \"c:\\\\acadwin\\\\output.txt\")", L"\".txt\""},
      {L"(vl-filename-extension \"c:\\\\acadwin\\\\output\")", L"nil"},
      {L"(vl-filename-extension \"/a.b/c\")", L"nil"},
  });
  std::wstring first = str(in.eval(in.readAll(L"(vl-filename-mktemp \"myapp.del\" \".\")", {L"t", 1})[0]));
  ASSERT_EQ(first.size(), 14u) << first;
  EXPECT_EQ(first.substr(0, 7), L"./MYAPP");
  EXPECT_EQ(first.substr(10), L".DEL");
  put(dir / toUtf8(first.substr(2)), "");
  std::wstring second = str(in.eval(in.readAll(L"(vl-filename-mktemp \"myapp.del\" \".\")", {L"t", 1})[0]));
  EXPECT_NE(second, first);
  std::wstring third =
      str(in.eval(in.readAll(L"(vl-filename-mktemp \"x\" \"/tmp/\" \"lsp\")", {L"t", 1})[0]));
  EXPECT_EQ(third.substr(0, 6), L"/tmp/X");
  EXPECT_EQ(third.substr(9), L".LSP");
  EXPECT_EQ(
      run(L"(vl-filename-mktemp \"$VL~~\" (strcat \"" + wdir + L"\" \"/sub\"))").substr(0, wdir.size() + 11),
      L"\"" + wdir + L"/sub/$VL~~");
}

TEST_F(LispFiles, DirectoryListings) {
  for (const char *f : {"b.lsp", "A.LSP", "c.txt", "noext"}) put(dir / f, "");
  fs::create_directory(dir / "Sub");
  check({
      {L"(vl-directory-files)", L"(\".\" \"..\" \"A.LSP\" \"b.lsp\" \"c.txt\" \"noext\" \"Sub\")"},
      {L"(vl-directory-files nil \"*.lsp\")", L"(\"A.LSP\" \"b.lsp\")"},
      {L"(vl-directory-files \".\" \"?.*\" 1)", L"(\"A.LSP\" \"b.lsp\" \"c.txt\")"},
      {L"(vl-directory-files nil nil -1)", L"(\".\" \"..\" \"Sub\")"},
      {L"(vl-directory-files nil nil 1)", L"(\"A.LSP\" \"b.lsp\" \"c.txt\" \"noext\")"},
      {L"(vl-directory-files nil \"*.dwg\")", L"nil"},
      {L"(vl-directory-files \"nosuch\")", L"nil"},
  });
}

TEST(LispEncoding, Utf8RoundTripsAndTakesStrayBytesAsLatin1) {
  std::wstring text = L"a\u00e9\u20ac\U0001F600";
  EXPECT_EQ(toUtf8(text), "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80");
  EXPECT_EQ(fromUtf8(toUtf8(text)), text);
  EXPECT_EQ(fromUtf8("caf\xE9!"), L"caf\u00e9!");    // a Latin-1 byte
  EXPECT_EQ(fromUtf8("\xC0\x80"), L"\u00c0\u0080");  // overlong: two bytes
  EXPECT_EQ(fromUtf8("\xE2\x82"), L"\u00e2\u0082");  // cut short
  EXPECT_EQ(toUtf8(std::wstring(1, wchar_t(0xD800))), "\xEF\xBF\xBD");
  EXPECT_EQ(nativePath(L"c:\\dir\\f.lsp"), "c:/dir/f.lsp");
}

}  // namespace
}  // namespace vantry::lisp
