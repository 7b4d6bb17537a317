// Which mount holds a path, from a mount table written here: the longest
// mount point wins, a later mount on the same point hides the earlier one,
// blanks in mount points come escaped, optional fields vary in number; and
// which types reach the network.
#include <gtest/gtest.h>

#include <sstream>

#include "drawing/platform.h"

namespace vantry {
namespace {

const char kTable[] =
    "22 1 8:1 / / rw,relatime shared:1 - ext4 /dev/sda1 rw\n"
    "30 22 0:40 /export /mnt/proj rw,relatime shared:5 master:2 - nfs4 srv:/export rw\n"
    "31 30 8:2 / /mnt/proj/local rw - ext4 /dev/sdb1 rw\n"
    "32 22 0:41 / /mnt/my\\040share rw - cifs //srv/share rw\n"
    "33 22 0:42 / /mnt/over rw - cifs //srv/a rw\n"
    "34 22 0:43 / /mnt/over rw - tmpfs tmpfs rw\n"
    "35 22 0:44 / /home/me/remote rw,nosuid - fuse.sshfs me@srv:/ rw\n"
    "garbage line\n";

std::string typeOf(const std::string &path) {
  std::istringstream in(kTable);
  return drawing::mountType(in, path);
}

TEST(MountTable, TheLongestMountPointHoldsThePath) {
  EXPECT_EQ(typeOf("/etc/passwd"), "ext4");
  EXPECT_EQ(typeOf("/mnt/proj"), "nfs4");
  EXPECT_EQ(typeOf("/mnt/proj/plans/a.dwg"), "nfs4");
  EXPECT_EQ(typeOf("/mnt/proj/local/a.dwg"), "ext4");
  EXPECT_EQ(typeOf("/mnt/projects/a.dwg"), "ext4");  // a prefix of the name is not a parent folder
  EXPECT_EQ(typeOf("/mnt/my share/a.dwg"), "cifs");
  EXPECT_EQ(typeOf("/mnt/over/a"), "tmpfs");
  EXPECT_EQ(typeOf("/home/me/remote/x"), "fuse.sshfs");
  std::istringstream empty("");
  EXPECT_EQ(drawing::mountType(empty, "/a"), "");
}

TEST(MountTable, NetworkTypes) {
  for (const char *t : {"nfs", "nfs4", "cifs", "smb3", "fuse.sshfs", "sshfs"})
    EXPECT_TRUE(drawing::isNetworkFileSystem(t)) << t;
  for (const char *t : {"ext4", "tmpfs", "overlay", "fuse", "fuse.portal", ""})
    EXPECT_FALSE(drawing::isNetworkFileSystem(t)) << t;
}

TEST(MountTable, NamesOfServersAreNetworkPaths) {
  EXPECT_TRUE(drawing::isNetworkPath(L"\\\\srv\\share\\a.dwg"));
  EXPECT_TRUE(drawing::isNetworkPath(L"//srv/share"));
  EXPECT_FALSE(drawing::isNetworkPath(L"\\\\"));
  EXPECT_FALSE(drawing::isNetworkPath(L"///a"));
}

}  // namespace
}  // namespace vantry
