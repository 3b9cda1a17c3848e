// One request to the kernel's network configuration, and its acknowledgement, rtnetlink(7). The bytes go out
// as they are built here; nothing is tried again.
//
// The request waits for its answer, and the process with it. An error other than ENODEV and EEXIST counts as
// no answer, so the wait goes on, for ever unless more comes. That is meant: such an error
// says that the agent asked for what can't be, which who supervises the process has to see. What can be known
// before is asked before (DeviceAbility.h).
#pragma once

#include <linux/netlink.h>

namespace Vorn {

// Sends `req`, whose nlmsg_seq and NLM_F_ACK are set here, on a blocking route socket. 0 when the kernel did
// it; -1 when it didn't or the answer can't be read, with errno: the kernel's error where it gave one.
int netlinkReq(int fd, nlmsghdr* req);

// Appends an attribute of `len` bytes. -1 when the message would be longer than `maxlen`; then it is as it
// was. Padding isn't written: the buffer is zero beforehand.
int addAttr(nlmsghdr* msg, int maxlen, int type, void const* data, int len);

} // namespace Vorn
