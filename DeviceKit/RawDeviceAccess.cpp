// SPDX-License-Identifier: GPL-3.0-or-later
#include "DeviceKit/RawDeviceAccess.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/uio.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "DeviceKit/ChildProcess.h"
#include "DeviceKit/Descriptor.h"
#include "DeviceKit/DeviceError.h"

namespace tallowmark::RawDeviceAccess {

namespace {

bool isForbidden(int error) {
  return error == EPERM || error == EACCES;
}

bool isReadable(int socket, Deadline deadline) {
  for (;;) {
    pollfd ready{socket, POLLIN, 0};
    const int count = ::poll(&ready, 1, millisecondsUntil(deadline));
    if (count >= 0 || errno != EINTR) {
      return count > 0;
    }
  }
}

// The first descriptor of a message; further ones, which nobody asked for, are closed.
Descriptor descriptorIn(msghdr& message) {
  Descriptor found;
  for (cmsghdr* part = CMSG_FIRSTHDR(&message); part != nullptr;
       part = CMSG_NXTHDR(&message, part)) {
    if (part->cmsg_level != SOL_SOCKET || part->cmsg_type != SCM_RIGHTS) {
      continue;
    }
    for (std::size_t at = CMSG_LEN(0); at + sizeof(int) <= part->cmsg_len; at += sizeof(int)) {
      int fd = -1;
      std::memcpy(&fd, CMSG_DATA(part) + (at - CMSG_LEN(0)), sizeof fd);
      Descriptor arrived(fd);
      if (!found) {
        found = std::move(arrived);
      }
    }
  }
  return found;
}

Descriptor receiveDescriptor(int socket, Deadline deadline) {
  if (!isReadable(socket, deadline)) {
    return Descriptor();
  }
  std::array<char, 256> bytes{};
  iovec text{bytes.data(), bytes.size()};
  alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(int))> control{};
  msghdr message{};
  message.msg_iov = &text;
  message.msg_iovlen = 1;
  message.msg_control = control.data();
  message.msg_controllen = control.size();
  ssize_t got = 0;
  do {
    got = ::recvmsg(socket, &message, 0);
  } while (got < 0 && errno == EINTR);
  return got < 0 ? Descriptor() : descriptorIn(message);
}

}  // namespace

int openReadOnly(const std::string& path, const PrivilegedOpener& opener) {
  int fd = -1;
  do {
    fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  } while (fd < 0 && errno == EINTR);
  if (fd >= 0) {
    return fd;
  }
  if (!isForbidden(errno)) {
    throw DeviceError::cannotOpen(path, errno);
  }
  if (!opener) {
    throw DeviceError::authorizationDenied(path);
  }
  return opener(path);
}

int openThrough(const AuthorizationTool& tool, const std::string& path) {
  const Deadline deadline = std::chrono::steady_clock::now() + tool.patience;
  std::array<int, 2> ends{};
  if (::socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()) != 0) {
    throw DeviceError::cannotOpen(path, errno);
  }
  const Descriptor ours(ends[0]);
  Descriptor theirs(ends[1]);
  for (const int end : ends) (void)::fcntl(end, F_SETFD, FD_CLOEXEC);
  try {
    ChildProcess child({tool.program, "-stdoutpipe", path}, theirs.get());
    theirs.reset();
    Descriptor device = receiveDescriptor(ours.get(), deadline);
    (void)child.endsWell(deadline);
    if (!device) {
      throw DeviceError::authorizationDenied(path);
    }
    (void)::fcntl(device.get(), F_SETFD, FD_CLOEXEC);
    return device.release();
  } catch (const DeviceError& error) {
    if (error.kind() == DeviceError::Kind::cannotOpen) {
      throw DeviceError::cannotOpen(path, error.errorNumber());  // what the user asked for
    }
    throw;
  }
}

}  // namespace tallowmark::RawDeviceAccess
