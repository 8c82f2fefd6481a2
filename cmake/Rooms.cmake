# SPDX-License-Identifier: GPL-3.0-or-later
# A room is one folder of the source tree and one library. It sees the headers of the rooms it
# names and of no others: each room publishes itself through a link of its own in the build tree,
# so that an include against the arrows of docs/architecture.md does not compile.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
if(NOT CMAKE_BUILD_TYPE)
  set(CMAKE_BUILD_TYPE Release)
endif()

add_library(tallowmark_warnings INTERFACE)
target_compile_options(tallowmark_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wnon-virtual-dtor
  -Wold-style-cast -Woverloaded-virtual -Wzero-as-null-pointer-constant -Werror
  # Designated initialisers leave fields at their defaults on purpose.
  -Wno-missing-field-initializers)

# GCC's range analysis reports overruns inside its own standard library that cannot happen
# (gcc.gnu.org PR105329 and kin); clang and the sanitizers watch the same ground.
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  target_compile_options(tallowmark_warnings INTERFACE
    # In a batch the files of a room meet, and GCC minds even the types of their functions.
    -Wno-shadow -Wshadow=local
    -Wno-restrict -Wno-stringop-overflow -Wno-array-bounds -Wno-stringop-overread -Wno-dangling-reference)
  if(CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
    get_target_property(_warnings tallowmark_warnings INTERFACE_COMPILE_OPTIONS)
    list(REMOVE_ITEM _warnings -Wno-dangling-reference)
    set_target_properties(tallowmark_warnings PROPERTIES INTERFACE_COMPILE_OPTIONS "${_warnings}")
  endif()
endif()

if(TALLOWMARK_SANITIZE)
  add_compile_options(-fsanitize=${TALLOWMARK_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${TALLOWMARK_SANITIZE})
endif()

# For a folder in which sanitized tests spend little time and the compiler much.
macro(tallowmark_compile_quickly)
  if(TALLOWMARK_SANITIZE)
    add_compile_options(-O0)
  endif()
endmacro()

# tallowmark_room(NAME FOLDER SOURCES … ROOMS … LIBRARIES …)
# FOLDER is relative to the source tree (MediaKit/Container); ROOMS are published on, LIBRARIES stay
# inside.
function(tallowmark_room name folder)
  cmake_parse_arguments(ROOM "" "" "SOURCES;ROOMS;LIBRARIES" ${ARGN})
  set(published ${CMAKE_BINARY_DIR}/rooms/${name})
  get_filename_component(parent ${published}/${folder} DIRECTORY)
  file(MAKE_DIRECTORY ${parent})
  file(CREATE_LINK ${CMAKE_SOURCE_DIR}/${folder} ${published}/${folder} SYMBOLIC)
  list(TRANSFORM ROOM_SOURCES PREPEND ${CMAKE_SOURCE_DIR}/${folder}/)
  add_library(${name} STATIC ${ROOM_SOURCES})
  target_include_directories(${name} PUBLIC ${published})
  target_link_libraries(${name} PUBLIC ${ROOM_ROOMS} PRIVATE ${ROOM_LIBRARIES} tallowmark_warnings)
endfunction()
