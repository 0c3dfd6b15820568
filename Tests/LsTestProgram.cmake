# ls_add_test_program(NAME PREFIX LIBRARIES...): a doctest program of this folder's *.cpp. Each file named
# XyzTests.cpp becomes one CTest test, PREFIX.Xyz, so the list of files is the list of tests.
# Tests that share a registry run one after the other, also under "ctest -j": the end-to-end tests have one
# Wine prefix, all others another.
function(ls_add_test_program name prefix)
  file(GLOB sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*.cpp ${CMAKE_CURRENT_SOURCE_DIR}/*.h)
  if(NOT sources)
    return()
  endif()
  add_executable(${name} ${sources})
  target_link_libraries(${name} PRIVATE TestSupport ${ARGN})
  set(registry ${LS_ARCH})
  if(prefix STREQUAL Run)
    string(APPEND registry -run)
  endif()
  foreach(source IN LISTS sources)
    get_filename_component(base ${source} NAME_WE)
    if(base MATCHES "^(.+)Tests$")
      set(test ${prefix}.${CMAKE_MATCH_1})
      add_test(NAME ${test} COMMAND ${name} --source-file=*${base}.cpp)
      # Under Wine a program that crashes in 32-bit code can end with code 0 and say nothing, and a filter
      # that matches no case succeeds: only the framework's own word counts.
      set_tests_properties(${test} PROPERTIES
        TIMEOUT 1200 # 100,000 INI files take six minutes on a busy machine
        RESOURCE_LOCK registry-${registry}
        # Away from Greenwich on every machine, so that nobody takes local time for UTC unnoticed.
        ENVIRONMENT "WINEPREFIX=${CMAKE_SOURCE_DIR}/build/wine-${registry};TZ=LST-5:45"
        PASS_REGULAR_EXPRESSION "test cases: *[1-9][^!]*Status: SUCCESS!")
      if(test MATCHES "Mutation") # test.sh runs these in the debug build too
        set_tests_properties(${test} PROPERTIES LABELS Mutation)
      endif()
    endif()
  endforeach()
endfunction()
