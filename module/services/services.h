// What the support services share: the user options and settings they read
// from the host platform's registry, text and path conversions, and the
// limits that keep a download or an archive from filling the disk.
//
// The services are the module's dealings with the world outside the drawing:
// downloads (download.cpp), zip archives (zip.cpp), signatures (signing.cpp)
// and error reports (bug_report.cpp). Each LISP function answers nil with a
// message of its own when the outside world fails it (a server, a file, an
// archive), and keeps the call frame's statuses for arguments it cannot use.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace vantry::services {

// The registry keys below HKEY_CURRENT_USER: the options the person sets
// (mail server, limits) and the signing keys.
inline constexpr const wchar_t *kUserOptionsKey = L"Software\\Vantry\\UserOptions";
inline constexpr const wchar_t *kSigningKey = L"Software\\Vantry\\Signing";

// A string value; nullopt when the key or value is missing or not a string.
std::optional<std::wstring> readSetting(const wchar_t *key, const wchar_t *name);
// Writes a string value, creating the key; false when the store refused it.
bool writeSetting(const wchar_t *key, const wchar_t *name, const std::wstring &value);
// A user option as a string (empty when unset).
std::wstring userOption(const wchar_t *name);
// A user option as a number: a REG_DWORD, or a string of digits; `fallback`
// when unset or unreadable.
uint64_t userOptionNumber(const wchar_t *name, uint64_t fallback);

// Size limits, in bytes, from the user options "DownloadLimitMB" (default
// 1024) and "ExtractLimitMB" (default 4096).
uint64_t downloadLimit();
uint64_t extractLimit();

// The folder for temporary files as the platform gives it: TMP, TEMP, then
// TMPDIR, else /tmp; no trailing separator.
std::string tempFolder();

// Where a zip entry named `name` lands below the target folder: its parts
// joined with "/" ("\" also separates, "." and empty parts are dropped);
// empty for the folder itself; nullopt when it would land outside (a name
// from the root, a drive such as "C:", or a ".." part).
std::optional<std::string> entryPathInside(std::string_view name);

// Prints "\n<text>\n" on the command line.
void tell(const std::wstring &text);

}  // namespace vantry::services
