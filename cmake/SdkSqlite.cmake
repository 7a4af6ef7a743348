# On a Mac, the programs use the system's SQLite, which the SDK has. CMake might find another one, from Homebrew or
# MacPorts, that is missing where the programs are installed. Sets SQLite3_INCLUDE_DIR and SQLite3_LIBRARY in the cache,
# where find_package(SQLite3) looks first. Installed with the CMake package, because its users link the same library.
set(orvSdk "${CMAKE_OSX_SYSROOT}")
if(NOT IS_DIRECTORY "${orvSdk}") # the name of an SDK or, if empty, the default one
  if(NOT orvSdk)
    set(orvSdk macosx)
  endif()
  execute_process(COMMAND xcrun --sdk ${orvSdk} --show-sdk-path
    OUTPUT_VARIABLE orvSdk OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
endif()
find_path(SQLite3_INCLUDE_DIR sqlite3.h PATHS "${orvSdk}/usr/include" NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH)
find_library(SQLite3_LIBRARY sqlite3 PATHS "${orvSdk}/usr/lib" NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH)
