# Run at the beginning of an install: makes those of the directories in orvDirectories that are missing, with their
# parents, so that all may search them. Left to CMake they would get what the umask leaves, and with one of 077 the task
# lines of users other than root could not start what lies below.
foreach(directory IN LISTS orvDirectories)
  cmake_path(ABSOLUTE_PATH directory BASE_DIRECTORY "${CMAKE_INSTALL_PREFIX}")
  set(directory "$ENV{DESTDIR}${directory}")
  set(missing)
  while(directory AND NOT EXISTS "${directory}") # empty above a relative DESTDIR
    list(PREPEND missing "${directory}")
    cmake_path(GET directory PARENT_PATH directory)
  endwhile()
  foreach(each IN LISTS missing)
    file(MAKE_DIRECTORY "${each}")
    file(CHMOD "${each}"
      PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
  endforeach()
endforeach()
