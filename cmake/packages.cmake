# Looks for the libraries. AUTO becomes OFF in a cross build, and if a package is missing. Any other
# missing package is an error.

# Adds the package to the list, unless the variable `found` is true.
macro(need list found package)
  if(NOT ${found})
    list(APPEND ${list} ${package})
  endif()
endmacro()

set(missing)
set(missing_BUILD_TESTING)
set(missing_BUILD_SIMULATOR)

find_package(PkgConfig QUIET)
need(missing PKG_CONFIG_FOUND pkg-config)
if(PKG_CONFIG_FOUND)
  unset(pkgcfg_lib_CGICC_cgicc CACHE)  # LINK_STATIC may have changed
  pkg_check_modules(CGICC QUIET IMPORTED_TARGET cgicc)
  if(NOT CGICC_FOUND AND CMAKE_CROSSCOMPILING)
    message(FATAL_ERROR "No cgicc for the target: no cgicc.pc in \"$ENV{PKG_CONFIG_LIBDIR}\". "
      "Install cgicc into the sysroot, or give its folder as CROSS_CGICC, see cmake/cross.cmake.")
  endif()
endif()
need(missing CGICC_FOUND libcgicc-dev)

if(NOT CMAKE_CROSSCOMPILING)
  find_package(GTest QUIET)
  need(missing_BUILD_TESTING GTest_FOUND libgtest-dev)
endif()

find_path(ASIO_INCLUDE_DIR asio.hpp)
find_path(CLI11_INCLUDE_DIR CLI/CLI.hpp)
mark_as_advanced(ASIO_INCLUDE_DIR CLI11_INCLUDE_DIR)
need(missing_BUILD_SIMULATOR ASIO_INCLUDE_DIR libasio-dev)
need(missing_BUILD_SIMULATOR CLI11_INCLUDE_DIR libcli11-dev)

foreach(part BUILD_TESTING BUILD_SIMULATOR)
  string(JOIN " " packages ${missing_${part}})
  if(NOT ${part} STREQUAL "AUTO")
    if(${part})
      list(APPEND missing ${packages})
    endif()
  elseif(CMAKE_CROSSCOMPILING)
    set(${part} OFF)
  elseif(packages)
    set(${part} OFF)
    message(STATUS "Left out: ${part} (install ${packages})")
  endif()
endforeach()

if(missing)
  string(JOIN " " missing ${missing})
  message(FATAL_ERROR "Missing; install the Debian packages: ${missing}")
endif()
