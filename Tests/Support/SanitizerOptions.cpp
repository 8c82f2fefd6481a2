// SPDX-License-Identifier: GPL-3.0-or-later
// What libraries keep for the life of the program: the options of Qt's player for ffmpeg, the fonts.
extern "C" const char* __lsan_default_suppressions() {  // NOLINT(bugprone-reserved-identifier)
  return "leak:libavutil\nleak:libfontconfig\n";
}
