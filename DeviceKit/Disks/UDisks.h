// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <string>

/// The service that lets people use disks on Linux (udisks2), over the system's D-Bus. It asks the
/// user for leave where its rules say so.
namespace tallowmark::UDisks {

/// Has the service open a device; the descriptor, which the caller owns, comes with the reply.
/// Throws DeviceError::authorizationDenied when it does not, cannotOpen when there is no service.
int openReadOnly(const std::string& path);

/// Unmounts what is on a device. Returns whether it is not mounted now.
bool unmount(const std::string& device);

}  // namespace tallowmark::UDisks
