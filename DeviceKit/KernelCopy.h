// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

namespace tallowmark {

/// Copies up to `count` bytes from one open file to a place in another without passing them through
/// this process. Returns the bytes moved, 0 at the source's end, or nothing when the kernel did not
/// do it for these two files, for whatever reason: read and write then, their errors tell.
std::optional<std::size_t> kernelCopy(int from, std::uint64_t fromOffset, int to,
                                      std::uint64_t toOffset, std::size_t count);

/// Whether the kernel may have more to offer for this copy than moving page after page, which two
/// threads do faster: storage that both files share, or a server that copies by itself.
bool kernelCopyPays(std::uint64_t fromOffset, int to, std::uint64_t toOffset);

/// A stretch of a file that has storage throughout, or none and reads as zeros.
struct Stretch {
  std::uint64_t length = 0;
  bool hole = false;
};

/// The stretch from `offset` on, cut at `count`. Where the system does not tell, all has storage.
Stretch stretchAt(int fd, std::uint64_t offset, std::uint64_t count);

/// Has the file system find storage for a stretch that is about to be written, beyond the file's
/// end as well and without moving it, which saves it looking for room page by page. Done where that
/// is book-keeping alone; a full disk is left to the writes to tell.
void reserveStorage(int fd, std::uint64_t offset, std::uint64_t count);

/// Starts writing the given stretch of a file out, without waiting for it, so that a later sync has
/// little left to do.
void startWriteback(int fd, std::uint64_t offset, std::uint64_t count);

/// Waits until a file's bytes are on the medium. Returns 0 or an errno.
int syncToMedium(int fd);

}  // namespace tallowmark
