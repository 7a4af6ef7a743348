# Runs at the beginning of an install. Makes the missing ones of orvDirectories, with their parents, so that everybody
# can search them. CMake would apply the umask. With 077, the task lines of users other than root could then not start
# the task manager.
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
