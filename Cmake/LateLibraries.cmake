# Libraries that Windows does not always load from its own folder by itself: a file of their name beside the
# program would be loaded in their place at its start. So they are loaded at the first call, when the program
# has seen to the search order (Updater/Run/DllSearch). All others are "known DLLs" of every Windows since 7,
# or, as comctl32, found through the manifest.

# ls_late_library(NAME FUNCTION@BYTES...): makes the target LsLate_NAME to link with in NAME's place. BYTES are
# those of the arguments, as the 32-bit names have them.
function(ls_late_library name)
  add_library(LsLate_${name} INTERFACE)
  if(MSVC)
    target_link_libraries(LsLate_${name} INTERFACE ${name} delayimp)
    target_link_options(LsLate_${name} INTERFACE /DELAYLOAD:${name}.dll)
    return()
  endif()

  set(functions ${ARGN})
  set(prefix _)
  if(LS_ARCH STREQUAL x64)
    list(TRANSFORM functions REPLACE "@.*" "")
    set(prefix "")
  endif()
  list(JOIN functions "\n" lines)
  set(folder ${CMAKE_BINARY_DIR}/late)
  file(GENERATE OUTPUT ${folder}/${name}.def CONTENT "LIBRARY ${name}.dll\nEXPORTS\n${lines}\n")
  add_custom_command(
    OUTPUT ${folder}/${name}.a
    COMMAND ${CMAKE_DLLTOOL} --kill-at --input-def ${name}.def --output-delaylib ${name}.a
    WORKING_DIRECTORY ${folder} # what is given here becomes part of symbols
    DEPENDS ${folder}/${name}.def
    VERBATIM)
  add_custom_target(LsLateFile_${name} DEPENDS ${folder}/${name}.a)
  add_dependencies(LsLate_${name} LsLateFile_${name})
  target_link_libraries(LsLate_${name} INTERFACE ${folder}/${name}.a)
  # The linker takes a function's first entry, the one that loads, for one that nobody needs.
  list(TRANSFORM functions PREPEND "-Wl,-u,${prefix}")
  target_link_options(LsLate_${name} INTERFACE ${functions})
endfunction()

ls_late_library(wininet
  HttpAddRequestHeadersA@16 HttpOpenRequestA@32 HttpOpenRequestW@32 HttpQueryInfoA@20 HttpSendRequestA@20
  InternetCloseHandle@4 InternetConnectA@32 InternetConnectW@32
  InternetGetConnectedStateExA@16 InternetGetCookieW@16 InternetGetLastResponseInfoA@12 InternetOpenA@20
  InternetOpenW@20 InternetQueryDataAvailable@16 InternetReadFile@16 InternetSetOptionW@16)
ls_late_library(crypt32
  CertFreeCertificateContext@4 CertNameToStrA@20 CertNameToStrW@20 CryptMsgClose@4 CryptMsgGetAndVerifySigner@24
  CryptQueryObject@44)
ls_late_library(wintrust WinVerifyTrust@12)
ls_late_library(version GetFileVersionInfoSizeW@8 GetFileVersionInfoW@16 VerQueryValueW@16)
