# SPDX-License-Identifier: Apache-2.0
# kissfft in its double-precision build, as the static target kissfft_double.
# The float build that Debian and Android ship may live in the same audio
# process, so the double build is linked statically and never leaves
# libvandro.so (its export list and --exclude-libs keep every kissfft symbol
# local). Three routes, chosen with -DVANDRO_KISSFFT=package|source|debian:
#
#   package  an installed static double build, through kissfft's own CMake
#            package. kissfft's CMake build compiles with -ffast-math, so the
#            coefficients may differ from the other routes in the last digits.
#   source   -DVANDRO_KISSFFT_SOURCE_DIR=DIR: an unpacked tree of Debian's
#            kissfft 131.1.0 source package, patches applied, checked file by
#            file against cmake/kissfft-source.sha256 and compiled here.
#   debian   Debian only: apt-get source fetches that package into the build
#            tree (network), then as the source route.
#
# Without the option: source when a directory is given, else package when a
# static double build is installed, else debian on a Debian workstation.

set(VANDRO_KISSFFT "" CACHE STRING "Where kissfft's double build comes from: package, source or debian (empty: detect)")
set_property(CACHE VANDRO_KISSFFT PROPERTY STRINGS "" package source debian)
set(VANDRO_KISSFFT_SOURCE_DIR "" CACHE PATH
    "An unpacked kissfft 131.1.0 source tree (Debian's source package, patches applied): the source route")
set(VANDRO_KISSFFT_WORK "${CMAKE_BINARY_DIR}/_deps/kissfft" CACHE PATH
    "The debian route: where Debian's kissfft source package is fetched and unpacked")

# The pinned Debian version, read where the debian route's sums live.
file(STRINGS "${CMAKE_CURRENT_LIST_DIR}/kissfft-debian.sha256" _kissfft_deb REGEX "^# version ")
string(REGEX REPLACE "^# version ([^ ]+).*$" "\\1" _kissfft_deb "${_kissfft_deb}")   # 131.1.0-4.1~deb12u1
string(REGEX REPLACE "-[^-]+$" "" _kissfft_up "${_kissfft_deb}")                      # 131.1.0

set(_kissfft_help "Give an unpacked kissfft ${_kissfft_up} source tree with -DVANDRO_KISSFFT_SOURCE_DIR=DIR (Debian's source package: apt-get source kissfft=${_kissfft_deb}, or a copy of another build's _deps/kissfft/kissfft-${_kissfft_up}), or install kissfft's static double build (its CMake build with -DKISSFFT_DATATYPE=double -DKISSFFT_STATIC=ON) and point CMAKE_PREFIX_PATH at it")

# A static double build of kissfft's CMake package, looked for without asking
# kissfft's config for a component it may not have: Debian's libkissfft-dev is
# float only, and its config stops configure with a fatal error when asked for
# double. Without components the config only loads what is installed.
function(vandro_kissfft_package_dir out)
  find_package(kissfft CONFIG QUIET)
  if(kissfft_FOUND AND EXISTS "${kissfft_DIR}/kissfft-double-static-targets.cmake")
    set(${out} "${kissfft_DIR}" PARENT_SCOPE)
  else()
    set(${out} "" PARENT_SCOPE)
  endif()
endfunction()

# Checks each pinned file of a kissfft source tree; stops configure on the
# first that is missing or differs.
function(vandro_kissfft_check_tree dir)
  file(STRINGS "${CMAKE_CURRENT_LIST_DIR}/kissfft-source.sha256" _pins REGEX "^[0-9a-f]+  ")
  foreach(_pin ${_pins})
    string(REGEX REPLACE "^([0-9a-f]+)  (.+)$" "\\1;\\2" _pin "${_pin}")
    list(GET _pin 0 _want)
    list(GET _pin 1 _name)
    if(NOT EXISTS "${dir}/${_name}")
      message(FATAL_ERROR "kissfft source ${dir}: ${_name} is missing (expected Debian's kissfft ${_kissfft_up} tree)")
    endif()
    file(SHA256 "${dir}/${_name}" _got)
    if(NOT _got STREQUAL _want)
      message(FATAL_ERROR "kissfft source ${dir}: ${_name} differs from Debian's kissfft ${_kissfft_deb} "
        "with its patches applied (SHA-256 ${_got}, expected ${_want}; cmake/kissfft-source.sha256)")
    endif()
  endforeach()
endfunction()

function(vandro_is_debian out)
  set(${out} FALSE PARENT_SCOPE)
  if(ANDROID OR NOT EXISTS /etc/os-release)
    return()
  endif()
  file(STRINGS /etc/os-release _id REGEX "^ID=")
  find_program(_apt_get apt-get)
  find_program(_dpkg_source dpkg-source)
  if(_id STREQUAL "ID=debian" AND _apt_get AND _dpkg_source)
    set(${out} TRUE PARENT_SCOPE)
  endif()
endfunction()

vandro_kissfft_package_dir(_kissfft_package)
vandro_is_debian(_kissfft_debian)
set(_kissfft_route "${VANDRO_KISSFFT}")
if(_kissfft_route STREQUAL "")
  if(VANDRO_KISSFFT_SOURCE_DIR)
    set(_kissfft_route source)
  elseif(_kissfft_package)
    set(_kissfft_route package)
  elseif(_kissfft_debian)
    set(_kissfft_route debian)
  else()
    message(FATAL_ERROR "kissfft: no double build found and no source tree given. ${_kissfft_help}.")
  endif()
elseif(NOT _kissfft_route MATCHES "^(package|source|debian)$")
  message(FATAL_ERROR "VANDRO_KISSFFT=${VANDRO_KISSFFT}: use package, source or debian (or leave it empty to detect)")
endif()

if(_kissfft_route STREQUAL "package")
  if(NOT _kissfft_package)
    message(FATAL_ERROR "VANDRO_KISSFFT=package: no static double build of kissfft is installed "
      "(kissfft_DIR=${kissfft_DIR}; Debian's libkissfft-dev is float only). ${_kissfft_help}.")
  endif()
  find_package(kissfft CONFIG REQUIRED COMPONENTS double STATIC)  # kissfft_DIR: the one just checked
  add_library(kissfft_double INTERFACE)
  target_link_libraries(kissfft_double INTERFACE kissfft::kissfft-double)
  # Its headers sit in include/kissfft; the seam includes "kiss_fft.h".
  get_target_property(_kissfft_includes kissfft::kissfft-double INTERFACE_INCLUDE_DIRECTORIES)
  target_include_directories(kissfft_double SYSTEM INTERFACE ${_kissfft_includes})
  target_compile_definitions(kissfft_double INTERFACE kiss_fft_scalar=double)
  message(STATUS "kissfft (double): package ${_kissfft_package} (built by kissfft's CMake with -ffast-math: "
    "coefficients may differ from the source route's in the last digits)")
  return()
endif()

if(_kissfft_route STREQUAL "debian")
  if(NOT _kissfft_debian)
    message(FATAL_ERROR "VANDRO_KISSFFT=debian needs a Debian workstation build with apt-get and dpkg-source. ${_kissfft_help}.")
  endif()
  execute_process(
    COMMAND bash "${CMAKE_CURRENT_LIST_DIR}/fetch-kissfft.sh"
            "${VANDRO_KISSFFT_WORK}" "${CMAKE_CURRENT_LIST_DIR}/kissfft-debian.sha256"
    OUTPUT_VARIABLE _kissfft_out
    RESULT_VARIABLE _kissfft_rc)
  if(NOT _kissfft_rc EQUAL 0)
    message(FATAL_ERROR "Could not obtain Debian's kissfft source package (see the lines above). ${_kissfft_help}.")
  endif()
  string(REGEX REPLACE ".*\n([^\n]+)\n?$" "\\1" _kissfft_tree "\n${_kissfft_out}")
else()
  if(NOT VANDRO_KISSFFT_SOURCE_DIR)
    message(FATAL_ERROR "VANDRO_KISSFFT=source needs -DVANDRO_KISSFFT_SOURCE_DIR=DIR. ${_kissfft_help}.")
  endif()
  get_filename_component(_kissfft_tree "${VANDRO_KISSFFT_SOURCE_DIR}" ABSOLUTE)
endif()
vandro_kissfft_check_tree("${_kissfft_tree}")
message(STATUS "kissfft (double): ${_kissfft_route} route, sources ${_kissfft_tree}")

add_library(kissfft_double STATIC "${CMAKE_CURRENT_LIST_DIR}/../platform/kissfft_double.c")
set_target_properties(kissfft_double PROPERTIES
  POSITION_INDEPENDENT_CODE ON
  C_VISIBILITY_PRESET hidden)
# Public: every translation unit that includes a kissfft header must see the
# double build, or it would lay out kiss_fft_cpx as floats.
target_compile_definitions(kissfft_double PUBLIC kiss_fft_scalar=double)
target_include_directories(kissfft_double SYSTEM PUBLIC "${_kissfft_tree}")
target_link_libraries(kissfft_double PRIVATE m)
