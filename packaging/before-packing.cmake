# Run by cpack before it packs anything, once for each kind of package: stops if that cannot be made, or would be wrong.

# An archive keeps the owner that its files have on this disk. Unpacked by root, it would give the scratch directory to
# whoever has the user id of its builder. (CMake 4.1 can set an owner, older ones cannot.)
if(CPACK_GENERATOR STREQUAL "TGZ")
  execute_process(COMMAND id -u OUTPUT_VARIABLE user OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
  if(NOT user EQUAL 0)
    message(FATAL_ERROR "make the archive as root or under fakeroot")
  endif()
endif()

# Without these tools, cpack would make a package that depends on nothing, or fail without naming the missing package.
if(CPACK_GENERATOR STREQUAL "DEB")
  set(missing "")
  foreach(needed IN ITEMS "dpkg-shlibdeps dpkg-dev" "file file")
    string(REPLACE " " ";" needed ${needed})
    list(GET needed 0 tool)
    list(GET needed 1 package)
    find_program(found_${tool} ${tool} PATHS ENV PATH NO_DEFAULT_PATH NO_CACHE)
    if(NOT found_${tool})
      string(APPEND missing " ${package}")
    endif()
  endforeach()
  if(missing)
    message(FATAL_ERROR "for a Debian package, first run: apt-get install${missing}")
  endif()
endif()
