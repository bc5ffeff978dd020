# What every CMakeLists.txt of the tree is written with.
#
#   vorn_add_library(NAME vsupt64 SOURCES ... [PUBLIC_LIBS ...] [PRIVATE_LIBS ...]
#                    [WHOLE_ARCHIVE_LIBS ...] [DEFINES ...])
#       A shared library in bin/ (libvsupt64.so, vsupt64.dll). The static
#       libraries of WHOLE_ARCHIVE_LIBS go in entirely, so that it exports
#       what they export.
#   vorn_add_static(NAME vorn_platform SOURCES ... [PUBLIC_LIBS] [PRIVATE_LIBS] [DEFINES])
#       A static library, fit to become part of a shared one.
#   vorn_add_module(NAME sysinv64 SOURCES ... [LIBS ...] [DEFINES ...])
#       A shared library in bin/ that is only ever loaded at run time.
#   vorn_add_executable(NAME ruvohost SOURCES ... [LIBS ...] [DEFINES ...])
#       A program in bin/.
#
#   vorn_add_test(NAME support_tests SOURCES ... [LIBS ...] [DEFINES ...]
#                 [KIND unit|integration|interop] [TIMEOUT seconds] [NO_PCH])
#       A GoogleTest program in tests/, its main() included, known to ctest and
#       to tests/run_suites.py.
#         unit         runs where it was built for; in the Windows build under wine
#         integration  drives the programs that RUVO_BIN and RUVO_CLIENT_BIN name;
#                      always a native program, run once more against the Windows
#                      programs
#         interop      as integration, and also with a native host and the
#                      Windows client
#   vorn_add_plugin(NAME testmonitor SOURCES ... [LIBS ...] [DEFINES ...])
#       As vorn_add_module, in tests/.
#   vorn_add_test_static(NAME vorn_test_support SOURCES ... [LIBS ...] [DEFINES ...])
#       Fakes and helpers that several test programs link.
#   vorn_add_fuzzer(NAME task_store SOURCES ... [LIBS ...])
#       What a folder of tests/fuzz/ holds: sources with a LLVMFuzzerTestOneInput()
#       and, in corpus/, inputs. In every build a unit suite fuzz_NAME_tests that
#       runs it over these and over changes of them (tests/fuzz/ReplayTest.cpp);
#       with VORN_FUZZERS also the fuzzer itself, fuzz/NAME.
#   vorn_add_benchmark(NAME support_benchmarks SOURCES ... [LIBS ...] [DEFINES ...])
#       A program in benchmarks/ that ./bench runs. Native builds only. One that
#       uses Google Benchmark lists vorn::benchmark among its LIBS.
#
#   vorn_platform_sources(OUTVAR Process Socket ...)
#       Of every base name the sources that belong to the target system: X.cpp,
#       and X_posix.cpp and X_linux.cpp, or X_windows.cpp. One at least must exist.
#   vorn_add_folders(FOLDER ...)
#       add_subdirectory() of each one that has a CMakeLists.txt.
#
# Third-party targets, the same names on every platform (cmake/ThirdParty.cmake):
# vorn::re2  vorn::cli11  vorn::json  vorn::gtest (with gmock and main)  vorn::benchmark
#
# Includes are written from the repository root. What a library shows to others
# carries VORN_EXPORT (runtime/platform/Export.h); all else stays hidden.

include_guard(GLOBAL)

set(VORN_BIN_DIR ${CMAKE_BINARY_DIR}/bin)
set(VORN_TEST_DIR ${CMAKE_BINARY_DIR}/tests)
set(VORN_FUZZ_DIR ${CMAKE_BINARY_DIR}/fuzz)
set(VORN_BENCHMARK_DIR ${CMAKE_BINARY_DIR}/benchmarks)

# ---- flags of our own code ---------------------------------------------------

add_library(vorn_warnings INTERFACE)
target_compile_options(vorn_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror)
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  target_compile_options(vorn_warnings INTERFACE -Wthread-safety -Wthread-safety-beta)
elseif(CMAKE_CXX_FLAGS_DEBUG MATCHES "-fsanitize=")
  # What the instrumentation adds makes GCC see faults of these kinds in the
  # standard library's own headers; the other builds look for them.
  target_compile_options(vorn_warnings INTERFACE
    -Wno-array-bounds -Wno-maybe-uninitialized -Wno-restrict
    -Wno-stringop-overflow -Wno-stringop-overread)
endif()

# Tests are compiled often and run once: the quick way.
add_library(vorn_test_flags INTERFACE)
if(CMAKE_BUILD_TYPE STREQUAL "Release")
  target_compile_options(vorn_test_flags INTERFACE -O0 -g0)
endif()

add_custom_target(vorn_programs COMMENT "libraries, modules and programs")

# ---- common parts of the functions below -------------------------------------

macro(_vorn_parse options)
  cmake_parse_arguments(PARSE_ARGV 0 arg "${options}" "NAME;KIND;TIMEOUT"
    "SOURCES;LIBS;PUBLIC_LIBS;PRIVATE_LIBS;WHOLE_ARCHIVE_LIBS;DEFINES")
  if(NOT arg_NAME OR NOT arg_SOURCES)
    message(FATAL_ERROR "${CMAKE_CURRENT_FUNCTION}: NAME and SOURCES are needed")
  endif()
  if(arg_UNPARSED_ARGUMENTS)
    message(FATAL_ERROR
      "${CMAKE_CURRENT_FUNCTION}(${arg_NAME}): not understood: ${arg_UNPARSED_ARGUMENTS}")
  endif()
endmacro()

function(_vorn_common target folder)
  target_include_directories(${target} PUBLIC ${PROJECT_SOURCE_DIR})
  target_link_libraries(${target} PRIVATE vorn_warnings PUBLIC Threads::Threads)
  set_target_properties(${target} PROPERTIES
    RUNTIME_OUTPUT_DIRECTORY ${folder}
    LIBRARY_OUTPUT_DIRECTORY ${folder}
    ARCHIVE_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/lib)
  if(WIN32)
    get_target_property(kind ${target} TYPE)
    if(NOT kind STREQUAL "STATIC_LIBRARY")
      set_target_properties(${target} PROPERTIES PREFIX "")
    endif()
    add_dependencies(${target} vorn_windows_runtime)
  else()
    set_target_properties(${target} PROPERTIES
      BUILD_RPATH_USE_ORIGIN ON
      BUILD_WITH_INSTALL_RPATH ON
      INSTALL_RPATH "$ORIGIN;$ORIGIN/../bin")
    # clang's sanitizers are in the programs alone.
    if(NOT VORN_FUZZERS)
      target_link_options(${target} PRIVATE -Wl,--no-undefined)
    endif()
  endif()
endfunction()

# Notes the sources of one target under tests/ for the check in vorn_finish().
function(_vorn_note_test_sources)
  foreach(source IN LISTS ARGN)
    cmake_path(ABSOLUTE_PATH source BASE_DIRECTORY ${CMAKE_CURRENT_SOURCE_DIR} NORMALIZE)
    set_property(GLOBAL APPEND PROPERTY VORN_TEST_SOURCES ${source})
  endforeach()
endfunction()

# The libgcc and libstdc++ of the cross compiler as DLLs beside our own:
# exceptions cross our libraries, so all must share one copy.
if(WIN32)
  set(runtime_stamp ${CMAKE_BINARY_DIR}/windows_runtime.stamp)
  set(runtime_dlls)
  foreach(dll libstdc++-6.dll libgcc_s_seh-1.dll libwinpthread-1.dll)
    execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-file-name=${dll}
      OUTPUT_VARIABLE found OUTPUT_STRIP_TRAILING_WHITESPACE)
    if(NOT IS_ABSOLUTE "${found}")
      message(FATAL_ERROR "${dll} of the cross compiler was not found")
    endif()
    list(APPEND runtime_dlls ${found})
  endforeach()
  add_custom_command(OUTPUT ${runtime_stamp}
    COMMAND ${CMAKE_COMMAND} -E make_directory ${VORN_BIN_DIR}
    COMMAND ${CMAKE_COMMAND} -E copy_if_different ${runtime_dlls} ${VORN_BIN_DIR}
    COMMAND ${CMAKE_COMMAND} -E touch ${runtime_stamp}
    DEPENDS ${runtime_dlls}
    COMMENT "Copying the compiler's runtime libraries")
  add_custom_target(vorn_windows_runtime DEPENDS ${runtime_stamp})
  add_dependencies(vorn_programs vorn_windows_runtime)
endif()

# ---- libraries and programs --------------------------------------------------

function(vorn_add_library)
  _vorn_parse("")
  add_library(${arg_NAME} SHARED ${arg_SOURCES})
  _vorn_common(${arg_NAME} ${VORN_BIN_DIR})
  target_compile_definitions(${arg_NAME} PRIVATE ${arg_DEFINES})
  target_link_libraries(${arg_NAME}
    PUBLIC ${arg_PUBLIC_LIBS} PRIVATE ${arg_PRIVATE_LIBS} ${arg_WHOLE_ARCHIVE_LIBS})
  # Their objects go in by name. The archives stay on the link line for what
  # they bring along, and give nothing more: all that they define is there.
  foreach(library IN LISTS arg_WHOLE_ARCHIVE_LIBS)
    target_sources(${arg_NAME} PRIVATE $<TARGET_OBJECTS:${library}>)
  endforeach()
  add_dependencies(vorn_programs ${arg_NAME})
endfunction()

function(vorn_add_static)
  _vorn_parse("")
  add_library(${arg_NAME} STATIC ${arg_SOURCES})
  _vorn_common(${arg_NAME} ${CMAKE_BINARY_DIR}/lib)
  target_compile_definitions(${arg_NAME} PRIVATE ${arg_DEFINES})
  target_link_libraries(${arg_NAME} PUBLIC ${arg_PUBLIC_LIBS} PRIVATE ${arg_PRIVATE_LIBS})
endfunction()

function(vorn_add_module)
  _vorn_parse("")
  add_library(${arg_NAME} MODULE ${arg_SOURCES})
  _vorn_common(${arg_NAME} ${VORN_BIN_DIR})
  target_compile_definitions(${arg_NAME} PRIVATE ${arg_DEFINES})
  target_link_libraries(${arg_NAME} PRIVATE ${arg_LIBS})
  add_dependencies(vorn_programs ${arg_NAME})
endfunction()

function(vorn_add_executable)
  _vorn_parse("")
  add_executable(${arg_NAME} ${arg_SOURCES})
  _vorn_common(${arg_NAME} ${VORN_BIN_DIR})
  target_compile_definitions(${arg_NAME} PRIVATE ${arg_DEFINES})
  target_link_libraries(${arg_NAME} PRIVATE ${arg_LIBS})
  add_dependencies(vorn_programs ${arg_NAME})
endfunction()

# ---- tests and benchmarks ----------------------------------------------------

function(vorn_add_test)
  _vorn_parse("NO_PCH")
  _vorn_note_test_sources(${arg_SOURCES})
  if(NOT arg_KIND)
    set(arg_KIND unit)
  elseif(NOT arg_KIND MATCHES "^(unit|integration|interop)$")
    message(FATAL_ERROR "vorn_add_test(${arg_NAME}): unknown KIND ${arg_KIND}")
  endif()
  if(NOT arg_TIMEOUT)
    set(arg_TIMEOUT 300)
  endif()
  if(WIN32 AND NOT arg_KIND STREQUAL "unit")
    return()
  endif()

  add_executable(${arg_NAME} ${arg_SOURCES})
  _vorn_common(${arg_NAME} ${VORN_TEST_DIR})
  target_compile_definitions(${arg_NAME} PRIVATE ${arg_DEFINES})
  target_link_libraries(${arg_NAME} PRIVATE ${arg_LIBS} vorn::gtest vorn_test_flags)
  if(TARGET vorn_test_pch AND NOT arg_NO_PCH AND NOT arg_DEFINES)
    target_precompile_headers(${arg_NAME} REUSE_FROM vorn_test_pch)
  endif()

  add_test(NAME ${arg_NAME} COMMAND ${arg_NAME})
  set_tests_properties(${arg_NAME} PROPERTIES
    TIMEOUT ${arg_TIMEOUT}
    ENVIRONMENT "RUVO_SOURCE_DIR=${PROJECT_SOURCE_DIR};RUVO_BIN=${VORN_BIN_DIR};RUVO_CLIENT_BIN=${VORN_BIN_DIR}")
  set_property(GLOBAL APPEND_STRING PROPERTY VORN_SUITES
    "${arg_NAME} ${arg_KIND} ${arg_TIMEOUT} $<TARGET_FILE_NAME:${arg_NAME}>\n")
endfunction()

function(vorn_add_plugin)
  _vorn_parse("")
  _vorn_note_test_sources(${arg_SOURCES})
  add_library(${arg_NAME} MODULE ${arg_SOURCES})
  _vorn_common(${arg_NAME} ${VORN_TEST_DIR})
  target_compile_definitions(${arg_NAME} PRIVATE ${arg_DEFINES})
  target_link_libraries(${arg_NAME} PRIVATE ${arg_LIBS} vorn_test_flags)
endfunction()

function(vorn_add_test_static)
  _vorn_parse("")
  _vorn_note_test_sources(${arg_SOURCES})
  add_library(${arg_NAME} STATIC ${arg_SOURCES})
  _vorn_common(${arg_NAME} ${CMAKE_BINARY_DIR}/lib)
  target_compile_definitions(${arg_NAME} PRIVATE ${arg_DEFINES})
  target_link_libraries(${arg_NAME} PUBLIC ${arg_LIBS} PRIVATE vorn_test_flags)
endfunction()

function(vorn_add_fuzzer)
  _vorn_parse("")
  vorn_add_test_static(NAME fuzz_${arg_NAME} SOURCES ${arg_SOURCES} LIBS ${arg_LIBS})

  # Each replay is a program of its own, so that a crash hides none of the others.
  set(name_source ${CMAKE_CURRENT_BINARY_DIR}/${arg_NAME}_name.cpp)
  file(GENERATE OUTPUT ${name_source} CONTENT "#include \"tests/fuzz/Replay.h\"
const char* FuzzTests::fuzzerName() { return \"${arg_NAME}\"; }\n")
  vorn_add_test(NAME fuzz_${arg_NAME}_tests
    SOURCES ${name_source} $<TARGET_OBJECTS:fuzz_replay>
    LIBS fuzz_${arg_NAME} fuzz_mutations test_support
    NO_PCH)

  if(VORN_FUZZERS)
    # The fuzzing library brings a main().
    set(empty ${CMAKE_CURRENT_BINARY_DIR}/${arg_NAME}_empty.cpp)
    file(GENERATE OUTPUT ${empty} CONTENT "")
    add_executable(fuzzer_${arg_NAME} ${empty})
    _vorn_common(fuzzer_${arg_NAME} ${VORN_FUZZ_DIR})
    target_link_libraries(fuzzer_${arg_NAME} PRIVATE fuzz_${arg_NAME})
    target_link_options(fuzzer_${arg_NAME} PRIVATE -fsanitize=fuzzer)
    set_target_properties(fuzzer_${arg_NAME} PROPERTIES
      OUTPUT_NAME ${arg_NAME}
      INSTALL_RPATH "$ORIGIN/../bin;$ORIGIN/../tests")
    set_property(GLOBAL APPEND PROPERTY VORN_FUZZER_TARGETS fuzzer_${arg_NAME})
    set_property(GLOBAL APPEND PROPERTY VORN_FUZZER_NAMES ${arg_NAME})
  endif()
endfunction()

function(vorn_add_benchmark)
  _vorn_parse("")
  if(WIN32)
    return()
  endif()
  add_executable(${arg_NAME} ${arg_SOURCES})
  _vorn_common(${arg_NAME} ${VORN_BENCHMARK_DIR})
  target_compile_definitions(${arg_NAME} PRIVATE ${arg_DEFINES})
  target_link_libraries(${arg_NAME} PRIVATE ${arg_LIBS})
  set_property(GLOBAL APPEND PROPERTY VORN_BENCHMARK_TARGETS ${arg_NAME})
endfunction()

# ---- choosing and collecting -------------------------------------------------

function(vorn_platform_sources outvar)
  if(WIN32)
    set(suffixes .cpp _windows.cpp)
  else()
    set(suffixes .cpp _posix.cpp)
    if(CMAKE_SYSTEM_NAME STREQUAL "Linux")
      list(APPEND suffixes _linux.cpp)
    endif()
  endif()
  set(sources)
  foreach(base IN LISTS ARGN)
    set(found)
    foreach(suffix IN LISTS suffixes)
      if(EXISTS ${CMAKE_CURRENT_SOURCE_DIR}/${base}${suffix})
        list(APPEND found ${base}${suffix})
      endif()
    endforeach()
    if(NOT found)
      message(FATAL_ERROR
        "${CMAKE_CURRENT_SOURCE_DIR}: ${base} has no source for ${CMAKE_SYSTEM_NAME}")
    endif()
    list(APPEND sources ${found})
  endforeach()
  set(${outvar} ${sources} PARENT_SCOPE)
endfunction()

macro(vorn_add_folders)
  foreach(folder ${ARGN})
    if(EXISTS ${CMAKE_CURRENT_SOURCE_DIR}/${folder}/CMakeLists.txt)
      add_subdirectory(${folder})
    endif()
  endforeach()
endmacro()

# Every source below tests/ belongs to exactly one target; the sources of the
# other platform are taken on trust.
function(_vorn_check_test_sources)
  get_property(noted GLOBAL PROPERTY VORN_TEST_SOURCES)
  file(GLOB_RECURSE present CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/tests/*.cpp)
  if(WIN32)
    list(FILTER present EXCLUDE REGEX "_(posix|linux)\\.cpp$")
  else()
    list(FILTER present EXCLUDE REGEX "_windows\\.cpp$")
  endif()
  set(complaints)
  foreach(source IN LISTS present)
    set(matches ${noted})
    list(FILTER matches INCLUDE REGEX "^${source}$")
    list(LENGTH matches count)
    if(NOT count EQUAL 1)
      cmake_path(RELATIVE_PATH source BASE_DIRECTORY ${PROJECT_SOURCE_DIR})
      string(APPEND complaints "\n  ${source} (${count})")
    endif()
  endforeach()
  if(complaints)
    if(VORN_STRICT_TEST_SOURCES)
      set(severity SEND_ERROR)
    else()
      set(severity WARNING)
    endif()
    message(${severity} "Test sources that do not belong to exactly one target:${complaints}")
  endif()
endfunction()

# Runs clang-tidy with the checks of .clang-tidy over the sources of the product.
function(_vorn_add_tidy_target)
  find_program(VORN_RUN_CLANG_TIDY NAMES run-clang-tidy-14 run-clang-tidy)
  if(VORN_RUN_CLANG_TIDY)
    add_custom_target(tidy
      COMMAND ${VORN_RUN_CLANG_TIDY} -quiet -p ${CMAKE_BINARY_DIR}
        "^${PROJECT_SOURCE_DIR}/(runtime|engines|notifier|jobstatus|arbiter|scheduler|remotecli|inventory|service|host|client)/"
      VERBATIM
      COMMENT "clang-tidy")
  endif()
endfunction()

function(vorn_finish)
  if(VORN_TESTS)
    get_property(suites GLOBAL PROPERTY VORN_SUITES)
    file(GENERATE OUTPUT ${VORN_TEST_DIR}/suites.txt
      CONTENT "# name kind seconds program\n${suites}")
    _vorn_check_test_sources()
  endif()
  get_property(benchmarks GLOBAL PROPERTY VORN_BENCHMARK_TARGETS)
  add_custom_target(vorn_benchmarks DEPENDS ${benchmarks})
  add_dependencies(vorn_benchmarks vorn_programs)
  list(JOIN benchmarks "\n" names)
  file(GENERATE OUTPUT ${VORN_BENCHMARK_DIR}/benchmarks.txt CONTENT "${names}\n")
  if(VORN_FUZZERS)
    get_property(fuzzers GLOBAL PROPERTY VORN_FUZZER_TARGETS)
    add_custom_target(vorn_fuzzers DEPENDS ${fuzzers})
    get_property(names GLOBAL PROPERTY VORN_FUZZER_NAMES)
    list(JOIN names "\n" names)
    file(GENERATE OUTPUT ${VORN_FUZZ_DIR}/fuzzers.txt CONTENT "${names}\n")
  endif()
  if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    _vorn_add_tidy_target()
  endif()
endfunction()
