# Every folder of src/ is a room and every room a target. A target sees its own headers and those of the rooms it
# declares, and nothing else: each room's folder is staged behind a root of its own (build/inc/<room>/<room> is a
# link to src/<room>), and only declared roots stand on the search path.

function(hierfit_stage room)
  set(root ${CMAKE_BINARY_DIR}/inc/${room})
  file(MAKE_DIRECTORY ${root})
  file(CREATE_LINK ${CMAKE_SOURCE_DIR}/src/${room} ${root}/${room} SYMBOLIC)
endfunction()

# hierfit_room(NAME KIND [ROOMS a b] [LIBRARIES x y] [EXCEPT file.cpp])
# KIND is OBJECT, STATIC or INTERFACE. Rooms named after ROOMS are the only ones whose headers may be included.
# EXCEPT names sources that belong to another target (the top translation units of a folder).
function(hierfit_room room kind)
  cmake_parse_arguments(arg "" "" "ROOMS;LIBRARIES;EXCEPT" ${ARGN})
  hierfit_stage(${room})
  if(kind STREQUAL "INTERFACE")
    add_library(${room} INTERFACE)
    target_include_directories(${room} INTERFACE ${CMAKE_BINARY_DIR}/inc/${room})
    set(scope INTERFACE)
  else()
    file(GLOB_RECURSE sources CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/src/${room}/*.cpp)
    foreach(name ${arg_EXCEPT})
      list(REMOVE_ITEM sources ${CMAKE_SOURCE_DIR}/src/${room}/${name})
    endforeach()
    add_library(${room} ${kind} ${sources})
    target_include_directories(${room} PUBLIC ${CMAKE_BINARY_DIR}/inc/${room})
    set_target_properties(${room} PROPERTIES POSITION_INDEPENDENT_CODE ON)
    target_link_libraries(${room} PRIVATE hierfit_warnings)
    set(scope PUBLIC)
  endif()
  target_link_libraries(${room} ${scope} ${arg_ROOMS} ${arg_LIBRARIES})
endfunction()

# hierfit_part(NAME FOLDER KIND [ROOMS a b]): a target of its own for a folder inside a room, src/FOLDER, so that another
# room may include "FOLDER/..." without seeing the rest of the room. The room itself leaves the sources out by EXCEPT.
function(hierfit_part part folder kind)
  cmake_parse_arguments(arg "" "" "ROOMS" ${ARGN})
  set(root ${CMAKE_BINARY_DIR}/inc/${part})
  cmake_path(GET folder PARENT_PATH parent)
  file(MAKE_DIRECTORY ${root}/${parent})
  file(CREATE_LINK ${CMAKE_SOURCE_DIR}/src/${folder} ${root}/${folder} SYMBOLIC)
  file(GLOB sources CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/src/${folder}/*.cpp)
  add_library(${part} ${kind} ${sources})
  target_include_directories(${part} PUBLIC ${root})
  set_target_properties(${part} PROPERTIES POSITION_INDEPENDENT_CODE ON)
  target_link_libraries(${part} PRIVATE hierfit_warnings PUBLIC ${arg_ROOMS})
endfunction()

# hierfit_test(ROOM libraries...): one test program for a room, from tests/<room>/*.cpp.
function(hierfit_test room)
  file(GLOB_RECURSE sources CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/tests/${room}/*.cpp)
  if(NOT sources)
    return()
  endif()
  add_executable(test_${room} ${sources})
  target_include_directories(test_${room} PRIVATE ${CMAKE_SOURCE_DIR}/tests)
  target_compile_definitions(test_${room} PRIVATE
    HIERFIT_TEST_DATA="${CMAKE_SOURCE_DIR}/tests/data" HIERFIT_SOURCE_DIR="${CMAKE_SOURCE_DIR}")
  target_link_libraries(test_${room} PRIVATE ${ARGN} hierfit_warnings GTest::gmock GTest::gtest_main)
  target_precompile_headers(test_${room} PRIVATE <gmock/gmock.h> <gtest/gtest.h>)
  gtest_discover_tests(test_${room} DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 120 PROPERTIES TIMEOUT 600)
endfunction()
