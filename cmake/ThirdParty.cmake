# The libraries that are not ours, under one name each on every platform.
# Natively they are the system's packages. For Windows the headers and the
# static libraries come from the folder that windows-thirdparty.sh prepares.

include_guard(GLOBAL)

# _vorn_headers(NAME FOLDER): a library of headers only. Natively the compiler
# finds them by itself; for Windows the one folder of /usr/include is linked
# into a place of its own, for the rest of /usr/include must stay unseen.
function(_vorn_headers name folder)
  add_library(vorn_${name} INTERFACE)
  add_library(vorn::${name} ALIAS vorn_${name})
  if(WIN32)
    if(NOT EXISTS /usr/include/${folder})
      message(FATAL_ERROR "/usr/include/${folder} is needed: install its package")
    endif()
    set(place ${CMAKE_BINARY_DIR}/headers/${name})
    file(MAKE_DIRECTORY ${place})
    file(CREATE_LINK /usr/include/${folder} ${place}/${folder} SYMBOLIC)
    target_include_directories(vorn_${name} SYSTEM INTERFACE ${place})
  endif()
endfunction()

_vorn_headers(cli11 CLI)
_vorn_headers(json nlohmann)

add_library(vorn_re2 INTERFACE)
add_library(vorn::re2 ALIAS vorn_re2)
if(WIN32)
  execute_process(
    COMMAND bash ${CMAKE_CURRENT_LIST_DIR}/windows-thirdparty.sh re2
    OUTPUT_VARIABLE re2_folder OUTPUT_STRIP_TRAILING_WHITESPACE
    RESULT_VARIABLE failed)
  if(failed)
    message(FATAL_ERROR "The third-party libraries for Windows could not be prepared")
  endif()
  target_include_directories(vorn_re2 SYSTEM INTERFACE ${re2_folder}/include)
  target_link_libraries(vorn_re2 INTERFACE ${re2_folder}/lib/libre2.a)
else()
  find_library(VORN_RE2_LIBRARY re2 REQUIRED)
  mark_as_advanced(VORN_RE2_LIBRARY)
  target_link_libraries(vorn_re2 INTERFACE ${VORN_RE2_LIBRARY} Threads::Threads)
endif()

if(VORN_TESTS)
  add_library(vorn_gtest INTERFACE)
  add_library(vorn::gtest ALIAS vorn_gtest)
  if(WIN32)
    set(BUILD_GMOCK ON)
    set(INSTALL_GTEST OFF)
    set(BUILD_SHARED_LIBS OFF)
    add_subdirectory(/usr/src/googletest ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL)
    foreach(part gtest gmock gmock_main)
      target_compile_options(${part} PRIVATE -w -O1)
      get_target_property(folders ${part} INTERFACE_INCLUDE_DIRECTORIES)
      target_include_directories(vorn_gtest SYSTEM INTERFACE ${folders})
      set_target_properties(${part} PROPERTIES
        INTERFACE_SYSTEM_INCLUDE_DIRECTORIES "${folders}")
    endforeach()
    target_link_libraries(vorn_gtest INTERFACE gmock_main gmock gtest)
  else()
    find_package(GTest REQUIRED)
    target_link_libraries(vorn_gtest INTERFACE GTest::gmock_main GTest::gmock GTest::gtest)
  endif()
endif()

if(VORN_BENCHMARKS AND NOT WIN32)
  find_package(benchmark REQUIRED)
  add_library(vorn_benchmark INTERFACE)
  add_library(vorn::benchmark ALIAS vorn_benchmark)
  target_link_libraries(vorn_benchmark INTERFACE benchmark::benchmark)
endif()
