# kissfft in its double-precision build, from Debian's source package.
# The float build that Debian ships may live in the same audio process, so this
# one is a static, position-independent library whose symbols stay hidden.

set(VANDRO_KISSFFT_WORK "${CMAKE_BINARY_DIR}/_deps/kissfft" CACHE PATH
    "Where Debian's kissfft source package is fetched and unpacked")

execute_process(
  COMMAND bash "${CMAKE_CURRENT_LIST_DIR}/fetch-kissfft.sh"
          "${VANDRO_KISSFFT_WORK}" "${CMAKE_CURRENT_LIST_DIR}/kissfft.sha256"
  OUTPUT_VARIABLE _kissfft_out
  RESULT_VARIABLE _kissfft_rc)
if(NOT _kissfft_rc EQUAL 0)
  message(FATAL_ERROR "Could not obtain Debian's kissfft source package (see the lines above)")
endif()
string(REGEX REPLACE ".*\n([^\n]+)\n?$" "\\1" KISSFFT_SOURCE_DIR "\n${_kissfft_out}")
message(STATUS "kissfft (double) sources: ${KISSFFT_SOURCE_DIR}")

add_library(kissfft_double STATIC "${CMAKE_CURRENT_LIST_DIR}/../platform/kissfft_double.c")
set_target_properties(kissfft_double PROPERTIES
  POSITION_INDEPENDENT_CODE ON
  C_VISIBILITY_PRESET hidden)
# Public: every translation unit that includes a kissfft header must see the
# double build, or it would lay out kiss_fft_cpx as floats.
target_compile_definitions(kissfft_double PUBLIC kiss_fft_scalar=double)
target_include_directories(kissfft_double SYSTEM PUBLIC "${KISSFFT_SOURCE_DIR}")
target_link_libraries(kissfft_double PRIVATE m)
