#include "platform/mount_table.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace trovix::platform {
namespace {

using Paths = std::vector<std::string>;

TEST(MountTable, NetworkAndFuseMountsAreTheOnesThatMayStopAnswering) {
  const MountTable t = MountTable::Parse(
      "22 1 8:1 / / rw,relatime shared:1 - ext4 /dev/sda1 rw\n"
      "40 22 0:40 / /mnt/share rw - nfs4 server:/export rw\n"
      "41 22 0:41 / /home/me/remote\\040box rw - fuse.sshfs me@box: rw\n"
      "42 22 0:42 / /srv/smb rw shared:5 master:2 - cifs //nas/x rw\n"
      "43 22 0:43 / /tmp rw - tmpfs tmpfs rw\n"
      "garbage\n");
  EXPECT_EQ(t.points(), (Paths{"/mnt/share", "/home/me/remote box", "/srv/smb"}));
  EXPECT_TRUE(t.MayStopAnswering("/mnt/share"));
  EXPECT_TRUE(t.MayStopAnswering("/mnt/share/a/b"));
  EXPECT_FALSE(t.MayStopAnswering("/mnt/share2"));
  EXPECT_FALSE(t.MayStopAnswering("/mnt"));
  EXPECT_TRUE(t.MayStopAnswering("/home/me/remote box/x"));
  EXPECT_TRUE(t.IsMountPoint("/srv/smb"));
  EXPECT_FALSE(t.IsMountPoint("/srv/smb/x"));
  EXPECT_FALSE(t.MayStopAnswering("/tmp/x"));
}

}  // namespace
}  // namespace trovix::platform
