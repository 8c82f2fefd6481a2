// SPDX-License-Identifier: GPL-3.0-or-later
// What libraries keep for the life of the program: the options of Qt's player for ffmpeg, the
// fonts, what ffmpeg loads for the network (told of in some runs only).
extern "C" const char* __lsan_default_suppressions() {  // NOLINT(bugprone-reserved-identifier)
  return "leak:libavutil\nleak:libfontconfig\nleak:libsrt\n";
}
