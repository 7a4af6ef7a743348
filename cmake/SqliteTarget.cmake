# CMake 4.3 calls the library SQLite3::SQLite3 and warns of its old name, SQLite::SQLite3. Included after
# find_package(SQLite3), gives it the new name in older versions, too. Installed with the CMake package.
if(NOT TARGET SQLite3::SQLite3)
  add_library(SQLite3::SQLite3 INTERFACE IMPORTED)
  target_link_libraries(SQLite3::SQLite3 INTERFACE SQLite::SQLite3)
endif()
