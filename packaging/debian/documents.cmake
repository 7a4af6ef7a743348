# Run by cpack on the tree that it is about to pack: adds what only a Debian package has, puts the documents where
# Debian has them, and compresses the manual pages.
if(NOT CPACK_GENERATOR STREQUAL "DEB")
  return()
endif()

set(share ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/usr/share)
set(documents ${share}/doc/${CPACK_PACKAGE_NAME})

function(add_document name path) # configure_file makes the directories, and ignores DESTDIR
  configure_file(${CMAKE_CURRENT_LIST_DIR}/${name} ${path}
    FILE_PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ COPYONLY)
endfunction()

file(RENAME ${share}/doc/OrvScheduling ${documents}) # GNUInstallDirs names it after the project
add_document(copyright ${documents}/copyright)
add_document(changelog ${documents}/changelog)
add_document(lintian-overrides ${share}/lintian/overrides/${CPACK_PACKAGE_NAME})

file(GLOB pages ${share}/man/man*/*) # of the staged tree, not of the sources
execute_process(COMMAND gzip --best --no-name ${documents}/changelog ${pages} COMMAND_ERROR_IS_FATAL ANY)
