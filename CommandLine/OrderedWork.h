// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <functional>
#include <span>
#include <string>
#include <vector>

namespace tallowmark {

/// Does work(i) for every i named in `chains` on as many threads as the machine has cores: the
/// links of a chain one after the other, chains side by side. Calls done(i) for i = 0, 1, … in that
/// order on the calling thread, as soon as i and all before it are worked. Every number below the
/// total of links is named once. Throws what `work` or `done` throws; what runs is finished before.
void workInOrder(const std::vector<std::vector<std::size_t>>& chains,
                 const std::function<void(std::size_t)>& work,
                 const std::function<void(std::size_t)>& done);

/// `count` chains of one link each: nothing waits for anything.
std::vector<std::vector<std::size_t>> independent(std::size_t count);

/// Chains for what is to be saved under these names: equal names follow each other, so that the
/// first given gets the name and the next its counter form.
std::vector<std::vector<std::size_t>> chainsByName(std::span<const std::string> names);

}  // namespace tallowmark
