# One interface target that every target of this project links: warnings, sanitizers, exact floating point.
add_library(vx_options INTERFACE)

target_compile_options(vx_options INTERFACE
  -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Wold-style-cast -Wnon-virtual-dtor -Woverloaded-virtual
  -Wimplicit-fallthrough
  # GCC 12 warns of overlaps inside std::string's own code (its bug 105651).
  $<$<CXX_COMPILER_ID:GNU>:-Wno-restrict>
  # As GCC has it: -Wconversion is about values that change, not about their signs.
  $<$<CXX_COMPILER_ID:Clang>:-Wno-sign-conversion>
  $<$<BOOL:${VX_WARNINGS_AS_ERRORS}>:-Werror>
  # Sampling thresholds and dequantized values are compared bit for bit, so a multiply and an add stay two steps.
  -ffp-contract=off
  # Error records carry paths of the source tree, not of the machine that built it.
  -fmacro-prefix-map=${CMAKE_SOURCE_DIR}/=)

if(VX_SANITIZE)
  target_compile_options(vx_options INTERFACE
    -fsanitize=${VX_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(vx_options INTERFACE -fsanitize=${VX_SANITIZE})
endif()

# For tests: to optimise them takes longer than it saves. The libraries that they test are compiled as always.
set(VX_TEST_OPTIONS $<$<CONFIG:Release>:-O0>)
