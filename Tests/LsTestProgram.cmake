# ls_add_test_program(NAME PREFIX LIBRARIES...): a doctest program of this folder's *.cpp. Each file named
# XyzTests.cpp becomes one CTest test, PREFIX.Xyz, so the list of files is the list of tests.
# Tests of one architecture share a registry and run one after the other; that is the caller's matter
# (test.sh runs ctest without -j, and both architectures at once).
function(ls_add_test_program name prefix)
  file(GLOB sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*.cpp ${CMAKE_CURRENT_SOURCE_DIR}/*.h)
  if(NOT sources)
    return()
  endif()
  add_executable(${name} ${sources})
  target_link_libraries(${name} PRIVATE TestSupport ${ARGN})
  foreach(source IN LISTS sources)
    get_filename_component(base ${source} NAME_WE)
    if(base MATCHES "^(.+)Tests$")
      set(test ${prefix}.${CMAKE_MATCH_1})
      add_test(NAME ${test} COMMAND ${name} --source-file=*${base}.cpp)
      # Under Wine a program that crashes in 32-bit code can end with code 0 and say nothing, and a filter
      # that matches no case succeeds: only the framework's own word counts.
      set_tests_properties(${test} PROPERTIES
        TIMEOUT 1200 # 100,000 INI files take six minutes on a busy machine
        PASS_REGULAR_EXPRESSION "test cases: *[1-9][^!]*Status: SUCCESS!")
      if(test MATCHES "Mutation") # test.sh runs these in the debug build too
        set_tests_properties(${test} PROPERTIES LABELS Mutation)
      endif()
    endif()
  endforeach()
endfunction()
