// What the platform functions decide about paths, apart from LISP so that
// the module's tests can give them mount tables of their own.
#pragma once

#include <istream>
#include <string>

namespace vantry::drawing {

// The file system type of the mount that holds an absolute, resolved path,
// read from a mount table in the form of /proc/self/mountinfo: the longest
// mount point that is a prefix of the path (the later one of two on the same
// point). Empty when no line matches.
std::string mountType(std::istream &mountinfo, const std::string &path);

// Whether a path goes through the network: a "\\server\share" (or
// "//server/share") name, or a path on a mounted network file system of this
// process.
bool isNetworkPath(const std::wstring &path);

// Whether a file system type is one that reaches another machine.
bool isNetworkFileSystem(const std::string &type);

}  // namespace vantry::drawing
