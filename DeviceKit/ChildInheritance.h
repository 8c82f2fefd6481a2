// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <sys/types.h>

/// What a child has of its parent. For the child, between fork and exec, where nothing may be
/// called but what signal handlers may call (POSIX.1-2017, System Interfaces, fork).
namespace tallowmark::ChildInheritance {

/// No descriptor but standard input, output and error lives on in the new program.
void keepStandardStreamsOnly();

/// The child is killed when the thread of `parent` that forked it ends. The Mac has no such thing.
void endWithParent(pid_t parent);

}  // namespace tallowmark::ChildInheritance
