# Run by cpack before it packs anything. An archive keeps the owner that its files have on this disk; unpacked by root, it
# would give the scratch directory of all users' crontabs to whoever has the number of the one who built it. (CMake 4.1
# can be told an owner, older ones cannot.)
if(CPACK_GENERATOR STREQUAL "TGZ")
  execute_process(COMMAND id -u OUTPUT_VARIABLE user OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
  if(NOT user EQUAL 0)
    message(FATAL_ERROR "make the archive as root or under fakeroot")
  endif()
endif()
