# What every target of this tree is compiled with, and where it comes out.

set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

# The library's place is lib/, the simulated card's and its stand-ins' sim/lib/, the programs' bin/.
set(KOVA_LIBRARY_DIR ${PROJECT_BINARY_DIR}/lib)
set(KOVA_SIM_LIBRARY_DIR ${PROJECT_BINARY_DIR}/sim/lib)
set(KOVA_PROGRAM_DIR ${PROJECT_BINARY_DIR}/bin)

# Flags of our own code only: nobody who embeds the tree inherits one of them.
add_library(kova_build_flags INTERFACE)
target_compile_features(kova_build_flags INTERFACE cxx_std_20)
target_compile_options(kova_build_flags INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wold-style-cast -Wcast-align
  -Wnon-virtual-dtor -Woverloaded-virtual -Wnull-dereference -Wformat=2 -Wimplicit-fallthrough
  $<$<BOOL:${KOVA_DEVELOPER}>:-Werror>
  # Half-cent rounding must not depend on the machine.
  -ffp-contract=off
  # A call into another shared object goes straight through the GOT.
  -fno-plt
  # The build says the same wherever the tree lies.
  -ffile-prefix-map=${PROJECT_SOURCE_DIR}/=)
if(KOVA_SANITIZE)
  target_compile_options(kova_build_flags INTERFACE
    -fsanitize=${KOVA_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(kova_build_flags INTERFACE -fsanitize=${KOVA_SANITIZE})
  # The code that a sanitizer puts in makes gcc see uninitialised values in its own library.
  target_compile_options(kova_build_flags INTERFACE $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>)
endif()

# kova_target(NAME): our flags, hidden symbols, position-independent code.
function(kova_target name)
  target_link_libraries(${name} PRIVATE $<BUILD_INTERFACE:kova_build_flags>)
  set_target_properties(${name} PROPERTIES
    CXX_EXTENSIONS OFF
    CXX_VISIBILITY_PRESET hidden
    C_VISIBILITY_PRESET hidden
    VISIBILITY_INLINES_HIDDEN ON
    POSITION_INDEPENDENT_CODE ON)
endfunction()

# kova_program(NAME): a program in bin/ that finds the tree's shared objects from wherever the tree lies.
function(kova_program name)
  kova_target(${name})
  set_target_properties(${name} PROPERTIES
    RUNTIME_OUTPUT_DIRECTORY ${KOVA_PROGRAM_DIR}
    BUILD_RPATH_USE_ORIGIN ON)
endfunction()

# kova_link_time_optimisation(NAME...): in release builds, where it was seen to help.
function(kova_link_time_optimisation)
  set_target_properties(${ARGN} PROPERTIES INTERPROCEDURAL_OPTIMIZATION_RELEASE ON)
endfunction()

# kova_split_debug_information(NAME): in release builds, debug information goes into a file of its own beside the
# shared object, where debuggers look for it. Called where the target is made.
function(kova_split_debug_information name)
  if(NOT CMAKE_BUILD_TYPE STREQUAL "Release" OR NOT CMAKE_OBJCOPY)
    return()
  endif()
  add_custom_command(TARGET ${name} POST_BUILD
    COMMAND ${CMAKE_OBJCOPY} --only-keep-debug $<TARGET_FILE_NAME:${name}> $<TARGET_FILE_NAME:${name}>.debug
    COMMAND ${CMAKE_OBJCOPY} --strip-debug --add-gnu-debuglink=$<TARGET_FILE_NAME:${name}>.debug
            $<TARGET_FILE_NAME:${name}>
    BYPRODUCTS ${KOVA_LIBRARY_DIR}/lib${name}.so.${PROJECT_VERSION}.debug
    WORKING_DIRECTORY $<TARGET_FILE_DIR:${name}>
    VERBATIM)
endfunction()
