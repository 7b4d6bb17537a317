// Text that every room shares: the host speaks wide strings, files and the
// engine UTF-8, the host's platform folds case in names and paths, and file
// names may use "\" between directories as that platform writes them.
//
// Callers: the host stand-in (its LISP, drawing database, selection, editor
// and documents), the module, the engine and the runner. Nothing here keeps
// state.
#pragma once

#include <string>
#include <string_view>

namespace vantry::text {

// Wide text to UTF-8. Code points that UTF-8 cannot hold (surrogates, above
// U+10FFFF) become U+FFFD.
std::string toUtf8(std::wstring_view w);
// UTF-8 to wide text. A byte that does not start a well-formed sequence is
// taken as a Latin-1 character, so text written in the host's legacy 8-bit
// code page still reads.
std::wstring fromUtf8(std::string_view s);

// Case as the host folds names (symbols, table keys, keywords, options):
// ASCII and Latin-1 letters only.
std::wstring upcase(std::wstring_view s);
std::wstring downcase(std::wstring_view s);
// Case as strcase changes text: Latin-1, Latin Extended-A, Greek and
// Cyrillic too, so text in the languages the product is used in changes case.
std::wstring upcaseText(std::wstring_view s);
std::wstring downcaseText(std::wstring_view s);
wchar_t upcaseText(wchar_t c);

// A file name as LISP or the module writes it ("\" or "/" between
// directories) as a path this machine opens.
std::string nativePath(std::wstring_view path);
// Whether two file names name the same file as the host's platform compares
// them: without regard to case or to the direction of the separators.
bool samePath(std::wstring_view a, std::wstring_view b);

}  // namespace vantry::text
