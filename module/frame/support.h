// The host's support folders as the module's functions search them.
#pragma once

#include <string>

namespace vantry::frame {

// The first of the host's support folders (ACADPREFIX, separated by ';')
// that holds the file NAME, joined to it with "\" as the host joins them;
// empty when none does, or when the host has no support folders.
std::wstring findInSupportFolders(const std::wstring &name);

}  // namespace vantry::frame
