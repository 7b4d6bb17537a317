// Text helpers shared by the module's families: the host speaks wide strings,
// the engine UTF-8, and file names may use "\" between directories as the
// host's platform writes them.
#pragma once

#include <string>
#include <string_view>

namespace vantry::frame {

std::string toUtf8(std::wstring_view w);
std::wstring fromUtf8(std::string_view s);
// A file name with "\" read as "/", ready for this machine's file calls.
std::string nativePath(std::wstring_view path);
bool fileExists(std::wstring_view path);
// Case-insensitive comparison of file names, as the host's platform compares them.
bool samePath(std::wstring_view a, std::wstring_view b);

}  // namespace vantry::frame
