// SPDX-License-Identifier: GPL-3.0-or-later
// Does what the Mac's authopen does, or what could go wrong with it, by the file name it is asked
// for: …/refuse, …/die, …/hang, …/rubbish, …/two. Anything else it opens and passes on.
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstring>
#include <string>
#include <string_view>

namespace {

bool pass(int count, int fd) {
  const std::array<int, 2> descriptors{fd, fd};
  const std::size_t size = static_cast<std::size_t>(count) * sizeof(int);
  alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof descriptors)> control{};
  char byte = 0;
  iovec text{&byte, 1};
  msghdr message{};
  message.msg_iov = &text;
  message.msg_iovlen = 1;
  message.msg_control = control.data();
  message.msg_controllen = CMSG_SPACE(size);
  cmsghdr* const part = CMSG_FIRSTHDR(&message);
  part->cmsg_level = SOL_SOCKET;
  part->cmsg_type = SCM_RIGHTS;
  part->cmsg_len = CMSG_LEN(size);
  std::memcpy(CMSG_DATA(part), descriptors.data(), size);
  return ::sendmsg(STDOUT_FILENO, &message, 0) == 1;
}

}  // namespace

int main(int count, char** arguments) {
  if (count != 3 || std::string_view(arguments[1]) != "-stdoutpipe") {
    return 64;
  }
  const std::string path = arguments[2];
  const std::string task = path.substr(path.rfind('/') + 1);
  if (task == "refuse") return 1;
  if (task == "die") return ::raise(SIGKILL);
  if (task == "hang") return static_cast<int>(::sleep(600));
  if (task == "rubbish") return ::write(STDOUT_FILENO, "what?", 5) == 5 ? 0 : 1;
  const int fd = ::open(arguments[0], O_RDONLY | O_CLOEXEC);
  return pass(task == "two" ? 2 : 1, fd) ? 0 : 1;
}
