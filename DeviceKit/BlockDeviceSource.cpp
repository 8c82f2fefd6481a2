// SPDX-License-Identifier: GPL-3.0-or-later
#include "DeviceKit/BlockDeviceSource.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "DeviceKit/RawDevice.h"

namespace tallowmark {

BlockDeviceSource::BlockDeviceSource(int fd, std::string path)
    : device_(std::make_unique<RawDevice>(fd, path)), path_(std::move(path)) {}

BlockDeviceSource::BlockDeviceSource(std::unique_ptr<const BlockDevice> device, std::string path)
    : device_(std::move(device)), path_(std::move(path)) {}

std::size_t BlockDeviceSource::readInto(std::uint64_t offset, std::span<std::uint8_t> into) const {
  if (offset >= size() || into.empty()) {
    return 0;
  }
  const auto wanted =
      static_cast<std::size_t>(std::min<std::uint64_t>(size() - offset, into.size()));
  const std::uint64_t block = blockSize();
  const std::uint64_t start = offset - offset % block;
  const std::uint64_t lastBlock = (offset + wanted - 1) / block * block;
  const std::uint64_t end = size() - lastBlock > block ? lastBlock + block : size();
  const auto count = [&](std::uint64_t, std::span<const std::uint8_t>, bool wasRead) {
    badReads_ += wasRead ? 0 : 1;
  };
  if (start == offset && end == offset + wanted) {
    readBlocks(*device_, start, into.first(wanted), count);
    return wanted;
  }
  std::vector<std::uint8_t> blocks(static_cast<std::size_t>(end - start));
  readBlocks(*device_, start, blocks, count);
  std::memcpy(into.data(), blocks.data() + (offset - start), wanted);
  return wanted;
}

}  // namespace tallowmark
