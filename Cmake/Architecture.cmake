# LS_ARCH names the folder of the outputs: x86 or x64.
if(NOT LS_ARCH)
  if(CMAKE_SIZEOF_VOID_P EQUAL 4)
    set(LS_ARCH x86)
  else()
    set(LS_ARCH x64)
  endif()
endif()

# Only a release build fills the folder that people take the program from.
if(CMAKE_BUILD_TYPE STREQUAL "Release")
  set(_output ${CMAKE_SOURCE_DIR}/out/${LS_ARCH})
else()
  set(_output ${CMAKE_BINARY_DIR}/out)
endif()
set(LS_OUTPUT_DIR ${_output} CACHE PATH "Folder that receives Updater.exe")
unset(_output)
