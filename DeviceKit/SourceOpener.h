// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <memory>
#include <string>

#include "DeviceKit/ByteSource.h"
#include "DeviceKit/RawDevice.h"
#include "DeviceKit/RawDeviceAccess.h"

/// Opening whatever a path names, for reading only.
namespace tallowmark::SourceOpener {

/// A FileSource for a file, a BlockDeviceSource for a device. `opener` is asked for devices that
/// the user may not open himself. Throws DeviceError: notAFileOrDevice for folders, pipes, sockets
/// and devices that are no disks.
std::unique_ptr<ByteSource> open(const std::string& path, const PrivilegedOpener& opener = {});

/// A device as blocks, to copy it; or a file in place of one. Throws as open.
std::unique_ptr<RawDevice> openDevice(const std::string& path, const PrivilegedOpener& opener = {});

}  // namespace tallowmark::SourceOpener
