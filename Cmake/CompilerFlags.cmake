# Flags that every target of the project gets, through the interface library LsFlags.
add_library(LsFlags INTERFACE)
target_compile_features(LsFlags INTERFACE cxx_std_20)
set(CMAKE_CXX_EXTENSIONS OFF)

target_include_directories(LsFlags INTERFACE ${CMAKE_SOURCE_DIR}/Source ${CMAKE_SOURCE_DIR})
target_compile_definitions(LsFlags INTERFACE
  UNICODE _UNICODE WIN32_LEAN_AND_MEAN NOMINMAX STRICT
  _WIN32_WINNT=0x0601 WINVER=0x0601 NTDDI_VERSION=0x06010000 # Windows 7 is the oldest system served
  _WIN32_IE=0x0800)

if(MSVC)
  target_compile_options(LsFlags INTERFACE
    /W4 /WX /utf-8 /permissive- /Zc:__cplusplus /EHsc
    /d1trimfile:${CMAKE_SOURCE_DIR}\\ # exceptions name their file below the source tree
    /wd4127) # conditions that are constant in one architecture only
  target_compile_definitions(LsFlags INTERFACE _CRT_SECURE_NO_WARNINGS)
  set(CMAKE_MSVC_RUNTIME_LIBRARY "MultiThreaded$<$<CONFIG:Debug>:Debug>" CACHE INTERNAL "")
else()
  target_compile_options(LsFlags INTERFACE $<$<COMPILE_LANGUAGE:CXX>:
    -Wall -Wextra -Werror -Wshadow -Wnon-virtual-dtor
    -Wno-cast-function-type # GetProcAddress
    -fmacro-prefix-map=${CMAKE_SOURCE_DIR}/= # exceptions name their file below the source tree
    -fdebug-prefix-map=${CMAKE_SOURCE_DIR}=.
    -fstack-protector-strong>)
  target_link_options(LsFlags INTERFACE
    -static -municode -fstack-protector-strong
    -Wl,--dynamicbase,--nxcompat,--no-insert-timestamp
    $<$<STREQUAL:${LS_ARCH},x64>:-Wl,--high-entropy-va>)

  # Release: small (it is downloaded, and it waits for the network and the disk, not for the processor), with
  # symbols that are split off afterwards. Debug: assertions in the library, and
  # undefined behaviour ends the program at once (there is no UBSan run time for MinGW).
  set(CMAKE_CXX_FLAGS_RELEASE "-Os -g -DNDEBUG" CACHE STRING "" FORCE)
  set(CMAKE_CXX_FLAGS_DEBUG "-Og -g -D_GLIBCXX_ASSERTIONS" CACHE STRING "" FORCE)
  target_compile_options(LsFlags INTERFACE $<$<COMPILE_LANGUAGE:CXX>:
    -ffunction-sections -fdata-sections
    $<$<CONFIG:Debug>:-fsanitize=undefined -fsanitize-undefined-trap-on-error>>)
  target_link_options(LsFlags INTERFACE -Wl,--gc-sections)
endif()
