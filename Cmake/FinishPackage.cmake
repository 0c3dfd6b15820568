# Run by CPack in the folder that becomes the zip: adds the checksums, and gives all files the time of the
# commit (SOURCE_DATE_EPOCH), since a zip holds times.
file(GLOB_RECURSE files LIST_DIRECTORIES false RELATIVE ${CPACK_TEMPORARY_DIRECTORY} ${CPACK_TEMPORARY_DIRECTORY}/*)
list(REMOVE_ITEM files SHA256SUMS)
list(SORT files)
set(sums "")
foreach(file IN LISTS files)
  file(SHA256 ${CPACK_TEMPORARY_DIRECTORY}/${file} sum)
  string(APPEND sums "${sum}  ${file}\n")
endforeach()
file(WRITE ${CPACK_TEMPORARY_DIRECTORY}/SHA256SUMS "${sums}")
if(DEFINED ENV{SOURCE_DATE_EPOCH})
  execute_process(COMMAND find . -exec touch -h -d @$ENV{SOURCE_DATE_EPOCH} {} +
    WORKING_DIRECTORY ${CPACK_TEMPORARY_DIRECTORY} COMMAND_ERROR_IS_FATAL ANY)
endif()
