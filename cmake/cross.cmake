# For a GCC cross tool chain, as firmware builders have it:
#   CROSS_PREFIX   the beginning of its tools' names; with their folder, unless PATH has it
#   CROSS_SYSROOT  the folder of the target's files; the compiler's own sysroot by default
#   CROSS_CGICC    for a sysroot without cgicc: a folder laid out like a sysroot that has it. The paths
#                  in its cgicc.pc are those of this machine
# cmake -DCMAKE_TOOLCHAIN_FILE=cmake/cross.cmake -DCROSS_PREFIX=/opt/arm/bin/arm-linux- ...

# CMake's own trial projects read this file too, and get these only through the environment.
foreach(variable CROSS_PREFIX CROSS_SYSROOT CROSS_CGICC)
  if(DEFINED ${variable})
    set(ENV{${variable}} "${${variable}}")
  else()
    set(${variable} "$ENV{${variable}}")
  endif()
endforeach()
if(NOT CROSS_PREFIX)
  message(FATAL_ERROR "CROSS_PREFIX names no tool chain")
endif()
set(CMAKE_C_COMPILER ${CROSS_PREFIX}gcc)
set(CMAKE_CXX_COMPILER ${CROSS_PREFIX}g++)
set(CMAKE_AR ${CROSS_PREFIX}gcc-ar)  # as those of the binutils may not know GCC's objects
set(CMAKE_RANLIB ${CROSS_PREFIX}gcc-ranlib)

execute_process(COMMAND ${CMAKE_CXX_COMPILER} -dumpmachine
  OUTPUT_VARIABLE machine OUTPUT_STRIP_TRAILING_WHITESPACE RESULT_VARIABLE failure)
if(failure)
  message(FATAL_ERROR "No compiler \"${CMAKE_CXX_COMPILER}\" (CROSS_PREFIX): ${failure}")
endif()
set(CMAKE_SYSTEM_NAME Linux)
string(REGEX REPLACE "-.*" "" CMAKE_SYSTEM_PROCESSOR ${machine})

if(CROSS_SYSROOT)
  set(CMAKE_SYSROOT ${CROSS_SYSROOT})
endif()
if(CROSS_CGICC)
  set(root ${CROSS_CGICC})
  set(ENV{PKG_CONFIG_SYSROOT_DIR} "")
elseif(CROSS_SYSROOT)
  set(root ${CROSS_SYSROOT})
  set(ENV{PKG_CONFIG_SYSROOT_DIR} ${root})
else()
  execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-sysroot
    OUTPUT_VARIABLE root OUTPUT_STRIP_TRAILING_WHITESPACE)
  set(ENV{PKG_CONFIG_SYSROOT_DIR} ${root})
endif()

# Never take this machine's own libraries for the target's.
set(CMAKE_FIND_ROOT_PATH ${root})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
foreach(kind LIBRARY INCLUDE PACKAGE)
  set(CMAKE_FIND_ROOT_PATH_MODE_${kind} ONLY)
endforeach()
set(ENV{PKG_CONFIG_PATH} "")
set(ENV{PKG_CONFIG_LIBDIR} "${root}/usr/lib/${machine}/pkgconfig:${root}/usr/lib/pkgconfig")
