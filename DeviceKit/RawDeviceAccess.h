// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <chrono>
#include <functional>
#include <string>

namespace tallowmark {

/// Opens a device, for reading only, that the user may not open himself, after the system has asked
/// him. Returns a descriptor that the caller owns. Throws DeviceError.
using PrivilegedOpener = std::function<int(const std::string& path)>;

/// Opening devices that belong to the system.
namespace RawDeviceAccess {

/// Opens a device read-only, itself or, where the system forbids that, through `opener`; without
/// one the refusal stands. Returns a descriptor that the caller owns. Throws
/// DeviceError::cannotOpen, authorizationDenied.
int openReadOnly(const std::string& path, const PrivilegedOpener& opener);

/// The Mac's tool that asks the user for leave and opens a device for a program.
struct AuthorizationTool {
  std::string program = "/usr/libexec/authopen";
  /// Long enough to look for a password.
  std::chrono::milliseconds patience = std::chrono::minutes(5);
};

/// Has the tool open the device and pass the descriptor over its standard output, a local socket
/// (SCM_RIGHTS, unix(4)). Throws DeviceError::authorizationDenied when none arrives in time,
/// cannotOpen when the tool cannot be started.
int openThrough(const AuthorizationTool& tool, const std::string& path);

}  // namespace RawDeviceAccess
}  // namespace tallowmark
