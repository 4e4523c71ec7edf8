# SPDX-License-Identifier: Apache-2.0
# Eigen 3 (dense, and the unsupported Splines module), by package or by path:
# -DEIGEN3_INCLUDE_DIR=DIR takes an unpacked Eigen tree (the NDK route, where
# no package is installed for the target); otherwise Eigen's own CMake package.
set(EIGEN3_INCLUDE_DIR "" CACHE PATH "An Eigen 3 source tree (holding Eigen/ and unsupported/); empty: find_package(Eigen3)")
if(EIGEN3_INCLUDE_DIR)
  foreach(_eigen_header Eigen/Dense unsupported/Eigen/Splines)
    if(NOT EXISTS "${EIGEN3_INCLUDE_DIR}/${_eigen_header}")
      message(FATAL_ERROR "EIGEN3_INCLUDE_DIR=${EIGEN3_INCLUDE_DIR} has no ${_eigen_header}: give the top of an Eigen 3 tree")
    endif()
  endforeach()
  add_library(Eigen3::Eigen INTERFACE IMPORTED)
  target_include_directories(Eigen3::Eigen SYSTEM INTERFACE "${EIGEN3_INCLUDE_DIR}")
  message(STATUS "Eigen 3: ${EIGEN3_INCLUDE_DIR}")
else()
  find_package(Eigen3 3.3 REQUIRED NO_MODULE)
endif()
