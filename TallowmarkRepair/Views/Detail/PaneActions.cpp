// SPDX-License-Identifier: GPL-3.0-or-later
#include "TallowmarkRepair/Views/Detail/PaneActions.h"

namespace tallowmark {

namespace {

struct ClipActions {
  const Clip& clip;
  const ClipBackground& background;

  PaneActions operator()(const Clip::Healthy&) const {
    return background.isReference ? PaneActions{}
                                  : PaneActions{nullptr, {&Commands::useAsReference}};
  }
  PaneActions operator()(const Clip::MissingIndex&) const {
    return clip.needsReference && !background.reference
               ? PaneActions{&Commands::chooseReference, {&Commands::remove}}
               : PaneActions{};
  }
  PaneActions operator()(const Clip::Preview&) const {
    return clip.needsReference ? PaneActions{&Commands::save, {&Commands::chooseReference}}
                               : PaneActions{&Commands::save, {}};
  }
  PaneActions operator()(const Clip::Saved&) const {
    return {&Commands::showInFileManager, {&Commands::openSaved}};
  }
  PaneActions operator()(const Clip::Failed&) const {
    return clip.needsReference
               ? PaneActions{&Commands::chooseReference, {&Commands::remove, &Commands::retry}}
               : PaneActions{&Commands::retry, {&Commands::remove}};
  }
  PaneActions operator()(const Clip::NotAVideo&) const {
    return {&Commands::remove, {&Commands::retry}};
  }
  // These are worked on, or about to be.
  PaneActions operator()(const Clip::Checking&) const { return {}; }
  PaneActions operator()(const Clip::Repairing&) const { return {}; }
  PaneActions operator()(const Clip::Truncated&) const { return {}; }
  PaneActions operator()(const Clip::RawFile&) const { return {}; }
};

struct JoinActions {
  PaneActions operator()(const Join::Preview&) const {
    return {&Commands::save, {&Commands::showParts}};
  }
  PaneActions operator()(const Join::Saved&) const {
    return {&Commands::showInFileManager, {&Commands::openSaved}};
  }
  PaneActions operator()(const Join::Incompatible&) const {
    return {&Commands::joinParts, {&Commands::remove, &Commands::showParts}};
  }
  PaneActions operator()(const Join::Failed&) const {
    return {&Commands::retry, {&Commands::remove, &Commands::showParts}};
  }
  PaneActions operator()(const Join::Checking&) const { return {}; }
  PaneActions operator()(const Join::Joining&) const { return {}; }
};

}  // namespace

PaneActions PaneActions::of(const Clip& clip, const ClipBackground& background) {
  return std::visit(ClipActions{clip, background}, clip.state);
}

PaneActions PaneActions::of(const Join& join) {
  return std::visit(JoinActions{}, join.state);
}

}  // namespace tallowmark
