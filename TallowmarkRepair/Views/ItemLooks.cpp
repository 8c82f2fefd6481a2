// SPDX-License-Identifier: GPL-3.0-or-later
#include "TallowmarkRepair/Views/ItemLooks.h"

namespace tallowmark {

namespace {

struct Looks {
  ItemLooks operator()(const Clip::Healthy&) const { return {Symbol::healthy, Tone::good, {}}; }
  ItemLooks operator()(const Clip::Truncated&) const { return {Symbol::cut, Tone::attention, {}}; }
  ItemLooks operator()(const Clip::Repairing& state) const {
    return {Symbol::working, Tone::accent, state.fraction};
  }
  ItemLooks operator()(const Clip::Preview&) const { return {Symbol::repaired, Tone::accent, {}}; }
  ItemLooks operator()(const Clip::Saved&) const { return {Symbol::saved, Tone::good, {}}; }
  ItemLooks operator()(const Clip::Failed&) const { return {Symbol::failed, Tone::problem, {}}; }
  ItemLooks operator()(const Clip::Checking&) const { return {Symbol::checking, Tone::quiet, {}}; }
  ItemLooks operator()(const Clip::MissingIndex&) const {
    return {Symbol::waiting, Tone::attention, {}};
  }
  ItemLooks operator()(const Clip::RawFile&) const { return {Symbol::raw, Tone::attention, {}}; }
  ItemLooks operator()(const Clip::NotAVideo&) const { return {Symbol::unknown, Tone::quiet, {}}; }

  ItemLooks operator()(const Join::Incompatible&) const {
    return {Symbol::failed, Tone::problem, {}};
  }
  ItemLooks operator()(const Join::Joining& state) const {
    return {Symbol::working, Tone::accent, state.fraction};
  }
  ItemLooks operator()(const Join::Preview&) const { return {Symbol::filmStack, Tone::accent, {}}; }
  ItemLooks operator()(const Join::Saved&) const { return {Symbol::saved, Tone::good, {}}; }
  ItemLooks operator()(const Join::Failed&) const { return {Symbol::failed, Tone::problem, {}}; }
  ItemLooks operator()(const Join::Checking&) const { return {Symbol::checking, Tone::quiet, {}}; }
};

}  // namespace

ItemLooks ItemLooks::of(const Clip& clip) {
  return std::visit(Looks{}, clip.state);
}

ItemLooks ItemLooks::of(const Join& join) {
  return std::visit(Looks{}, join.state);
}

}  // namespace tallowmark
