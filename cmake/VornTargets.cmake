# What every target of the tree is built with, so that no folder can forget it.

# Off where the tree is configured by hand: a newer compiler's new warning stops no user. The presets,
# and so all our own checks, turn it on.
option(VORN_WERROR "Treat warnings as errors" OFF)
set(VORN_SANITIZE "" CACHE STRING "Sanitizers for the whole tree: address,undefined or thread")

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
# The daemon waits nearly all of its time: small code rather than CMake's -O3.
set(CMAKE_CXX_FLAGS_RELEASE "-O2 -DNDEBUG")

option(VORN_SCHEDULE_NOISE "Yield at random at locks and queue operations, most where threads meet" OFF)
option(VORN_COVERAGE "Count which lines and branches run" OFF)
option(VORN_FUZZ "Build the fuzz targets for libFuzzer, which clang brings" OFF)

include(CheckPIESupported)
check_pie_supported()

# Whether a target's own code is optimised, as that of the directory's variable of this name is.
define_property(TARGET PROPERTY VORN_OPTIMIZED INITIALIZE_FROM_VARIABLE VORN_OPTIMIZED)
set(VORN_OPTIMIZED ON)

add_library(vorn_options INTERFACE)
# Plain char is unsigned on the board; it is made so everywhere, so that a byte above 127 behaves
# the same on the developer's machine.
target_compile_options(vorn_options INTERFACE -funsigned-char -Wall -Wextra -Wpedantic -Wconversion
                                              -Wshadow)
# The 32-bit board too outlives 2038, and opens a log file of over 2 GB.
target_compile_definitions(vorn_options INTERFACE _FILE_OFFSET_BITS=64 _TIME_BITS=64)
if(VORN_COVERAGE)
  target_compile_definitions(vorn_options INTERFACE VORN_COVERAGE)
endif()
if(VORN_SCHEDULE_NOISE)
  target_compile_definitions(vorn_options INTERFACE VORN_SCHEDULE_NOISE)
endif()
if(CMAKE_UNITY_BUILD)
  # There no source is the main file, to which alone the compiler grants types without linkage.
  target_compile_options(vorn_options INTERFACE $<$<CXX_COMPILER_ID:GNU>:-Wno-subobject-linkage>)
endif()
if(VORN_WERROR)
  target_compile_options(vorn_options INTERFACE -Werror)
endif()
if(VORN_COVERAGE)
  target_link_options(vorn_options INTERFACE --coverage)
endif()
if(VORN_SANITIZE)
  string(MAKE_C_IDENTIFIER "VORN_SANITIZE_${VORN_SANITIZE}" sanitized)
  string(TOUPPER ${sanitized} sanitized)
  target_compile_definitions(vorn_options INTERFACE VORN_SANITIZE ${sanitized})
  target_compile_options(vorn_options INTERFACE -fsanitize=${VORN_SANITIZE}
                                                -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(vorn_options INTERFACE -fsanitize=${VORN_SANITIZE})
else()
  # Hardening that costs a daemon of this size nothing.
  set(fortified $<AND:$<CONFIG:Release>,$<BOOL:$<TARGET_PROPERTY:VORN_OPTIMIZED>>>) # it asks for -O1
  target_compile_options(vorn_options INTERFACE -fstack-protector-strong $<${fortified}:-U_FORTIFY_SOURCE>
                                                $<${fortified}:-D_FORTIFY_SOURCE=2>)
  target_link_options(vorn_options INTERFACE -Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack)
endif()

# vorn_count(NAME): counts what runs of the code under test; not of the tests.
function(vorn_count NAME)
  if(VORN_COVERAGE)
    # With atomic operations: the daemon has five threads.
    target_compile_options(${NAME} PRIVATE --coverage -fprofile-update=atomic)
  endif()
endfunction()

# vorn_library(NAME SOURCES file... [DEPENDS library...]): one static library per folder. Headers are
# included by their path from the root, as in "thread/Thread.h".
function(vorn_library NAME)
  cmake_parse_arguments(ARG "" "" "SOURCES;DEPENDS" ${ARGN})
  add_library(${NAME} STATIC ${ARG_SOURCES})
  target_include_directories(${NAME} PUBLIC "${PROJECT_SOURCE_DIR}")
  target_link_libraries(${NAME} PUBLIC ${ARG_DEPENDS} Threads::Threads PRIVATE vorn_options)
  vorn_count(${NAME})
  if(VORN_FUZZ)
    # Only the code under test tells libFuzzer where it has been.
    target_compile_options(${NAME} PRIVATE -fsanitize=fuzzer-no-link)
  endif()
endfunction()

# Where sanitizers instrument every line, a program's option parser, which is all templates, takes half
# a minute to optimise, for a moment's work.
add_library(vorn_program_options INTERFACE)
if(VORN_SANITIZE)
  target_compile_options(vorn_program_options INTERFACE -O0)
endif()

# vorn_program(NAME SOURCES file... [DEPENDS library...])
function(vorn_program NAME)
  cmake_parse_arguments(ARG "" "" "SOURCES;DEPENDS" ${ARGN})
  add_executable(${NAME} ${ARG_SOURCES})
  target_include_directories(${NAME} PRIVATE "${PROJECT_SOURCE_DIR}")
  target_link_libraries(${NAME} PRIVATE ${ARG_DEPENDS} vorn_options vorn_program_options)
  vorn_count(${NAME})
endfunction()
