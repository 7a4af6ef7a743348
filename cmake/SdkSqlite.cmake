# On a Mac, SQLite is the system's, by way of the SDK: another one, which Homebrew or MacPorts may have put in the way,
# would not be there where the program is installed. Leaves SQLite3_INCLUDE_DIR and SQLite3_LIBRARY in the cache, where
# find_package(SQLite3) takes them from. Installed beside the CMake package, whose users link the same library.
set(orvSdk "${CMAKE_OSX_SYSROOT}")
if(NOT IS_DIRECTORY "${orvSdk}") # the name of an SDK, or none: the compiler's own choice
  if(NOT orvSdk)
    set(orvSdk macosx)
  endif()
  execute_process(COMMAND xcrun --sdk ${orvSdk} --show-sdk-path
    OUTPUT_VARIABLE orvSdk OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
endif()
find_path(SQLite3_INCLUDE_DIR sqlite3.h PATHS "${orvSdk}/usr/include" NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH)
find_library(SQLite3_LIBRARY sqlite3 PATHS "${orvSdk}/usr/lib" NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH)
