# CPack runs this after it has installed the files and before it builds the packages. Moves the debug information of
# programs and shared libraries to the component Debug, and compresses manual pages.

file(GLOB_RECURSE files LIST_DIRECTORIES OFF ${CPACK_TEMPORARY_DIRECTORY}/*)
foreach(file IN LISTS files)
  if(IS_SYMLINK ${file})
    continue()
  endif()
  file(READ ${file} magic LIMIT 4 HEX)
  if(file MATCHES "/man/")
    execute_process(COMMAND gzip -9n ${file} COMMAND_ERROR_IS_FATAL ANY)
  elseif(magic STREQUAL 7f454c46)
    execute_process(COMMAND readelf --notes ${file} OUTPUT_VARIABLE notes COMMAND_ERROR_IS_FATAL ANY)
    string(REGEX REPLACE ".*Build ID: (..)([0-9a-f]+).*" "\\1;\\2" id "${notes}")
    list(GET id 0 directory)
    list(GET id 1 name)
    string(PREPEND directory ${CPACK_TEMPORARY_DIRECTORY}/Debug/usr/lib/debug/.build-id/)
    file(MAKE_DIRECTORY ${directory})
    execute_process(COMMAND objcopy --only-keep-debug --compress-debug-sections ${file} ${directory}/${name}.debug
      COMMAND_ERROR_IS_FATAL ANY)
    execute_process(COMMAND strip --remove-section=.comment ${file} COMMAND_ERROR_IS_FATAL ANY)
  endif()
endforeach()
