// SPDX-License-Identifier: GPL-3.0-or-later
// What libraries keep for the life of the program: the options of Qt's player for ffmpeg, the
// fonts, what ffmpeg loads for the network (told of in some runs only).
extern "C" const char* __lsan_default_suppressions() {
  return "leak:libavutil\nleak:libfontconfig\nleak:libsrt\n";
}

// Qt is not instrumented, and its locks are its own: what it allocates on one thread and frees on
// another looks unguarded. What code of ours does on its threads is watched all the same.
extern "C" const char* __tsan_default_suppressions() {
  return "called_from_lib:libQt6Core.so\n";
}
