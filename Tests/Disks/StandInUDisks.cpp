// SPDX-License-Identifier: GPL-3.0-or-later
// Answers for udisks2 on the bus that DBUS_SYSTEM_BUS_ADDRESS names, and creates the file it is
// given once it does. Opens its own program for any device but those whose names say otherwise: an
// error's name, "unknown", "rubbish", "die".
#include <fcntl.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string>
#include <string_view>

namespace {

const char* program = nullptr;

bool endsWith(const char* text, const char* end) {
  return std::string_view(text).ends_with(end);
}

int resolve(sd_bus_message* call) {
  const char* path = "";
  sd_bus_message_enter_container(call, 'a', "{sv}");
  sd_bus_message_enter_container(call, 'e', "sv");
  if (sd_bus_message_read(call, "sv", nullptr, "s", &path) < 0) return -EINVAL;
  if (endsWith(path, "/unknown")) return sd_bus_reply_method_return(call, "ao", 0);
  const std::string object = "/org/freedesktop/UDisks2/block_devices/" +
                             std::string(path).substr(std::string_view(path).rfind('/') + 1);
  return sd_bus_reply_method_return(call, "ao", 1, object.c_str());
}

int openDevice(sd_bus_message* call) {
  const char* mode = "";
  sd_bus_message_read(call, "s", &mode);
  const int fd = std::string_view(mode) == "r" ? ::open(program, O_RDONLY | O_CLOEXEC) : -1;
  const int result = sd_bus_reply_method_return(call, "h", fd);
  ::close(fd);
  return result;
}

int answer(sd_bus_message* call, void*, sd_bus_error* error) {
  const char* const object = sd_bus_message_get_path(call);
  for (const char* refusal : {"NotAuthorizedDismissed", "NotMounted", "DeviceBusy"}) {
    const std::string name = std::string("org.freedesktop.UDisks2.Error.") + refusal;
    if (endsWith(object, refusal)) return sd_bus_error_set(error, name.c_str(), "refused");
  }
  if (endsWith(object, "/die")) std::_Exit(1);
  if (endsWith(object, "/rubbish")) return sd_bus_reply_method_return(call, "s", "what?");
  const std::string_view method = sd_bus_message_get_member(call);
  if (method == "ResolveDevice") return resolve(call);
  return method == "OpenDevice" ? openDevice(call) : sd_bus_reply_method_return(call, "");
}

}  // namespace

int main(int count, char** arguments) {
  sd_bus* bus = nullptr;
  program = arguments[0];
  if (count != 2 || sd_bus_open_system(&bus) < 0 ||
      sd_bus_add_fallback(bus, nullptr, "/org/freedesktop/UDisks2", answer, nullptr) < 0 ||
      sd_bus_request_name(bus, "org.freedesktop.UDisks2", 0) < 0) {
    return 1;
  }
  ::close(::open(arguments[1], O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
  for (;;) {
    const int result = sd_bus_process(bus, nullptr);
    if (result < 0 || (result == 0 && sd_bus_wait(bus, ~std::uint64_t{0}) < 0)) return 1;
  }
}
