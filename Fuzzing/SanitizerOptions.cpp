// SPDX-License-Identifier: GPL-3.0-or-later
// Freed memory that the sanitizer keeps aside would fill the memory ceiling by itself.
extern "C" const char* __asan_default_options() {
  return "quarantine_size_mb=16";
}
