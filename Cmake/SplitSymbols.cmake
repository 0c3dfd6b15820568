# ls_split_symbols(TARGET): in a release build the program is stripped and its symbols lie beside it as
# TARGET.exe.debug, found again through the debug link.
function(ls_split_symbols target)
  if(MSVC OR NOT CMAKE_BUILD_TYPE STREQUAL "Release")
    return()
  endif()
  # Each tool would write the time of day into the file's header.
  set(timeless ${CMAKE_COMMAND} -E env SOURCE_DATE_EPOCH=0)
  add_custom_command(TARGET ${target} POST_BUILD
    COMMAND ${timeless} ${CMAKE_OBJCOPY} --only-keep-debug $<TARGET_FILE:${target}> $<TARGET_FILE:${target}>.debug
    COMMAND ${timeless} ${CMAKE_STRIP} --strip-all $<TARGET_FILE:${target}>
    COMMAND ${timeless} ${CMAKE_OBJCOPY} --add-gnu-debuglink=$<TARGET_FILE:${target}>.debug $<TARGET_FILE:${target}>
    VERBATIM)
endfunction()
