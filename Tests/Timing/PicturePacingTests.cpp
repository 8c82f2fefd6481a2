// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Timing/PicturePacing.h"

#include <gtest/gtest.h>

namespace tallowmark {
namespace {

// Half a second of sound too much ahead of a few pictures, and none behind them.
TEST(PicturePacing, picturesBehindTheLastSoundKeepTheirPace) {
  constexpr std::uint32_t timescale = 600;
  constexpr double lead = 2;
  SampleList pictures;
  pictures.append({.size = 1000, .duration = 20}, 120);
  VideoRepair::SoundPace sound;
  for (const std::uint64_t frame : {0U, 15U, 30U, 45U, 60U}) {
    sound.anchors.push_back({frame, lead + static_cast<double>(frame) / 30});
  }
  sound.anchors.push_back({62, lead + 62.0 / 30 + 0.5});
  sound.lead = SoundLead::of({lead, lead, lead});
  VideoRepair::paceBySound(pictures, timescale, sound, {}, 0);
  EXPECT_NEAR(static_cast<double>(pictures.duration()) / timescale, 4.5, 0.1);
  EXPECT_EQ(pictures.back().duration, 20U);
}

// Cameras that store a second of each in turn may have one more of pictures ahead of the sound
// anywhere. Where both end together none of them was dropped.
TEST(PicturePacing, picturesThatEndWithTheSoundKeepTheirPace) {
  constexpr std::uint32_t timescale = 600;
  constexpr double length = 12;
  SampleList pictures;
  pictures.append({.size = 1000, .duration = 20}, 360);
  VideoRepair::SoundPace sound;
  sound.anchors.push_back({0, 1});
  for (std::uint64_t second = 2; second < 12; ++second) {
    sound.anchors.push_back({second * 30, static_cast<double>(second)});
  }
  sound.seconds = length;
  sound.lead = SoundLead::of({0.98, 0.93, 0.95, 0.94});
  sound.variableRate = true;
  SampleList apart = pictures;
  VideoRepair::paceBySound(apart, timescale, sound, {}, 0);
  EXPECT_NE(apart, pictures);
  sound.endLead = 0;
  VideoRepair::paceBySound(pictures, timescale, sound, {}, 0);
  EXPECT_EQ(static_cast<double>(pictures.duration()) / timescale, length);
  EXPECT_EQ(pictures.runs().size(), 1U);
}

}  // namespace
}  // namespace tallowmark
