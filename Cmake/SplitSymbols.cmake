# ls_split_symbols(TARGET): in a release build the program is stripped and its symbols lie beside it as
# TARGET.exe.debug, found again through the debug link.
function(ls_split_symbols target)
  if(MSVC OR NOT CMAKE_BUILD_TYPE STREQUAL "Release")
    return()
  endif()
  add_custom_command(TARGET ${target} POST_BUILD
    COMMAND ${CMAKE_OBJCOPY} --only-keep-debug $<TARGET_FILE:${target}> $<TARGET_FILE:${target}>.debug
    COMMAND ${CMAKE_STRIP} --strip-all $<TARGET_FILE:${target}>
    COMMAND ${CMAKE_OBJCOPY} --add-gnu-debuglink=$<TARGET_FILE:${target}>.debug $<TARGET_FILE:${target}>
    VERBATIM)
endfunction()
