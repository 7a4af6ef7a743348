# Run by cpack before it packs anything, once for each kind of package: stops where one could not be made, or not well.

# An archive keeps the owner that its files have on this disk; unpacked by root, it would give the scratch directory of all
# users' crontabs to whoever has the number of the one who built it. (CMake 4.1 can be told an owner, older ones cannot.)
if(CPACK_GENERATOR STREQUAL "TGZ")
  execute_process(COMMAND id -u OUTPUT_VARIABLE user OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
  if(NOT user EQUAL 0)
    message(FATAL_ERROR "make the archive as root or under fakeroot")
  endif()
endif()

# Without them cpack would make a package that depends on nothing, or fail with a message that names no package.
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
