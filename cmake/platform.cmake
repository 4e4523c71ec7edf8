# SPDX-License-Identifier: Apache-2.0
# The platform seams: Android's liblog for every log line, and the raw-capture
# property read through libcutils' property_get (on the host, a shim over
# android-base's in-process property store).

add_library(vandro_platform INTERFACE)
if(ANDROID)
  target_link_libraries(vandro_platform INTERFACE log)
else()
  find_path(ANDROID_LOG_INCLUDE_DIR android/log.h PATH_SUFFIXES android REQUIRED)
  find_library(ANDROID_LIBLOG log PATH_SUFFIXES android REQUIRED)
  find_library(ANDROID_LIBBASE base PATH_SUFFIXES android REQUIRED)
  target_include_directories(vandro_platform SYSTEM INTERFACE "${ANDROID_LOG_INCLUDE_DIR}")
  target_link_libraries(vandro_platform INTERFACE "${ANDROID_LIBLOG}" "${ANDROID_LIBBASE}")
  get_filename_component(_android_libdir "${ANDROID_LIBLOG}" DIRECTORY)
  # Debian keeps the Android libraries out of the default search path.
  target_link_options(vandro_platform INTERFACE "LINKER:-rpath,${_android_libdir}")
endif()
