// SPDX-License-Identifier: GPL-3.0-or-later
#include <fcntl.h>
#include <systemd/sd-bus.h>

#include <cerrno>
#include <memory>

#include "DeviceKit/DeviceError.h"
#include "DeviceKit/Disks/UDisks.h"

namespace tallowmark::UDisks {

namespace {

constexpr const char* service = "org.freedesktop.UDisks2";
// Long enough to look for a password.
constexpr std::uint64_t patience = std::uint64_t{5} * 60 * 1'000'000;

struct BusCloser {
  void operator()(sd_bus* bus) const { sd_bus_flush_close_unref(bus); }
};
using Bus = std::unique_ptr<sd_bus, BusCloser>;

struct MessageDropper {
  void operator()(sd_bus_message* message) const { sd_bus_message_unref(message); }
};
using Message = std::unique_ptr<sd_bus_message, MessageDropper>;

// What the service says: its answer, or the name of its error.
struct Answer {
  Message message;
  std::string error;
};

Bus systemBus() {
  sd_bus* bus = nullptr;
  return sd_bus_open_system(&bus) < 0 ? nullptr : Bus(bus);
}

Message newCall(const Bus& bus, const std::string& object, const char* interface,
                const char* method) {
  sd_bus_message* call = nullptr;
  if (sd_bus_message_new_method_call(bus.get(), &call, service, object.c_str(), interface, method) <
      0) {
    return nullptr;
  }
  return Message(call);
}

Answer send(const Bus& bus, const Message& call) {
  sd_bus_error error{};
  sd_bus_message* reply = nullptr;
  Answer answer;
  if (sd_bus_call(bus.get(), call.get(), patience, &error, &reply) < 0) {
    answer.error = error.name == nullptr ? "" : error.name;
    sd_bus_error_free(&error);
  }
  answer.message.reset(reply);
  return answer;
}

bool isServiceMissing(const Answer& answer) {
  return answer.error == SD_BUS_ERROR_SERVICE_UNKNOWN ||
         answer.error == SD_BUS_ERROR_NAME_HAS_NO_OWNER ||
         answer.error.starts_with("org.freedesktop.DBus.Error.Spawn.");
}

// The service's own name of a device; empty when it knows none.
std::string objectOf(const Bus& bus, const std::string& device, Answer& answer) {
  const Message call = newCall(bus, "/org/freedesktop/UDisks2/Manager",
                               "org.freedesktop.UDisks2.Manager", "ResolveDevice");
  if (!call ||
      sd_bus_message_append(call.get(), "a{sv}a{sv}", 1, "path", "s", device.c_str(), 0) < 0) {
    return {};
  }
  answer = send(bus, call);
  const char* object = nullptr;
  const bool isKnown = answer.message &&
                       sd_bus_message_enter_container(answer.message.get(), 'a', "o") > 0 &&
                       sd_bus_message_read(answer.message.get(), "o", &object) > 0;
  return isKnown ? object : "";
}

// The descriptor belongs to the message: the caller gets one of its own.
int descriptorIn(const Answer& answer) {
  int fd = -1;
  if (!answer.message || sd_bus_message_read(answer.message.get(), "h", &fd) <= 0) {
    return -1;
  }
  return ::fcntl(fd, F_DUPFD_CLOEXEC, 3);
}

}  // namespace

int openReadOnly(const std::string& path) {
  const Bus bus = systemBus();
  if (!bus) {
    throw DeviceError::cannotOpen(path, EACCES);
  }
  Answer answer;
  const std::string object = objectOf(bus, path, answer);
  if (isServiceMissing(answer)) {
    throw DeviceError::cannotOpen(path, EACCES);
  }
  int fd = -1;
  if (!object.empty()) {
    const Message call = newCall(bus, object, "org.freedesktop.UDisks2.Block", "OpenDevice");
    if (call && sd_bus_message_append(call.get(), "sa{sv}", "r", 0) >= 0) {
      fd = descriptorIn(send(bus, call));
    }
  }
  if (fd < 0) {
    throw DeviceError::authorizationDenied(path);
  }
  return fd;
}

bool unmount(const std::string& device) {
  const Bus bus = systemBus();
  Answer answer;
  const std::string object = bus ? objectOf(bus, device, answer) : std::string();
  if (object.empty()) {
    return false;
  }
  const Message call = newCall(bus, object, "org.freedesktop.UDisks2.Filesystem", "Unmount");
  if (!call || sd_bus_message_append(call.get(), "a{sv}", 0) < 0) {
    return false;
  }
  answer = send(bus, call);
  return answer.message || answer.error == "org.freedesktop.UDisks2.Error.NotMounted";
}

}  // namespace tallowmark::UDisks
