// SPDX-License-Identifier: GPL-3.0-or-later
#include "DeviceKit/DeviceError.h"

#include <system_error>
#include <utility>

namespace tallowmark {

namespace {
// The texts of strerror, without its shared buffer.
std::string systemMessage(int errorNumber) {
  return std::generic_category().message(errorNumber);
}
}  // namespace

DeviceError::DeviceError(Kind kind, std::string path, std::uint64_t offset, int errorNumber,
                         std::string sentence)
    : kind_(kind),
      path_(std::move(path)),
      offset_(offset),
      errorNumber_(errorNumber),
      sentence_(std::move(sentence)) {}

DeviceError DeviceError::cannotOpen(const std::string& path, int errorNumber) {
  return {Kind::cannotOpen, path, 0, errorNumber,
          "Could not open " + path + ": " + systemMessage(errorNumber)};
}

DeviceError DeviceError::authorizationDenied(const std::string& path) {
  return {Kind::authorizationDenied, path, 0, 0, "Authorization to read " + path + " was denied."};
}

DeviceError DeviceError::notAFileOrDevice(const std::string& path) {
  return {Kind::notAFileOrDevice, path, 0, 0, path + " is not a readable file or device."};
}

DeviceError DeviceError::readFailed(std::uint64_t offset, int errorNumber) {
  return {Kind::readFailed,
          {},
          offset,
          errorNumber,
          "Read failed at offset " + std::to_string(offset) + ": " + systemMessage(errorNumber)};
}

DeviceError DeviceError::writeFailed(const std::string& path, int errorNumber) {
  return {Kind::writeFailed, path, 0, errorNumber,
          "Could not write " + path + ": " + systemMessage(errorNumber)};
}

}  // namespace tallowmark
