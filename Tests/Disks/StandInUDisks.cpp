// SPDX-License-Identifier: GPL-3.0-or-later
// Answers for udisks2 on the bus that DBUS_SYSTEM_BUS_ADDRESS names, and creates the file it is
// given once it does. Opens its own program for any device but those whose names say otherwise.
#include <fcntl.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <string>

namespace {

const char* program = nullptr;

int refuse(sd_bus_error* error, const char* name) {
  return sd_bus_error_set(error, (std::string("org.freedesktop.UDisks2.Error.") + name).c_str(),
                          "refused");
}

bool endsWith(const char* path, const std::string& name) {
  return std::string(path).ends_with("/" + name);
}

int resolve(sd_bus_message* call, void*, sd_bus_error* error) {
  const char* key = nullptr;
  const char* path = nullptr;
  if (sd_bus_message_enter_container(call, 'a', "{sv}") < 0 ||
      sd_bus_message_enter_container(call, 'e', "sv") < 0 ||
      sd_bus_message_read(call, "sv", &key, "s", &path) < 0 || std::string(key) != "path") {
    return refuse(error, "Failed");
  }
  if (endsWith(path, "unknown")) return sd_bus_reply_method_return(call, "ao", 0);
  const std::string name = std::string(path).substr(std::string(path).rfind('/') + 1);
  const std::string object = "/org/freedesktop/UDisks2/block_devices/" + name;
  return sd_bus_reply_method_return(call, "ao", 1, object.c_str());
}

int openDevice(sd_bus_message* call, void*, sd_bus_error* error) {
  const char* mode = nullptr;
  if (sd_bus_message_read(call, "s", &mode) < 0 || std::string(mode) != "r") {
    return refuse(error, "Failed");
  }
  if (endsWith(sd_bus_message_get_path(call), "refuse")) {
    return refuse(error, "NotAuthorizedDismissed");
  }
  if (endsWith(sd_bus_message_get_path(call), "rubbish")) {
    return sd_bus_reply_method_return(call, "s", "what?");
  }
  if (endsWith(sd_bus_message_get_path(call), "die")) {
    std::_Exit(1);
  }
  const int fd = ::open(program, O_RDONLY | O_CLOEXEC);
  const int result = sd_bus_reply_method_return(call, "h", fd);
  ::close(fd);
  return result;
}

int unmount(sd_bus_message* call, void*, sd_bus_error* error) {
  if (endsWith(sd_bus_message_get_path(call), "idle")) return refuse(error, "NotMounted");
  if (endsWith(sd_bus_message_get_path(call), "busy")) return refuse(error, "DeviceBusy");
  return sd_bus_reply_method_return(call, "");
}

// A fallback handler sees every object below its path; which method is asked for tells the rest.
int answer(sd_bus_message* call, void* data, sd_bus_error* error) {
  if (sd_bus_message_is_method_call(call, "org.freedesktop.UDisks2.Manager", "ResolveDevice") > 0) {
    return resolve(call, data, error);
  }
  if (sd_bus_message_is_method_call(call, "org.freedesktop.UDisks2.Block", "OpenDevice") > 0) {
    return openDevice(call, data, error);
  }
  if (sd_bus_message_is_method_call(call, "org.freedesktop.UDisks2.Filesystem", "Unmount") > 0) {
    return unmount(call, data, error);
  }
  return 0;
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
