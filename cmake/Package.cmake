# What `cpack` makes: a Debian package, and an archive of the same tree from the root directory down.
set(CPACK_GENERATOR TGZ)
find_program(ORV_DPKG dpkg)
mark_as_advanced(ORV_DPKG)
if(ORV_DPKG)
  list(APPEND CPACK_GENERATOR DEB)
endif()

set(CPACK_PACKAGE_NAME orv-cron-cleaner)
set(CPACK_PACKAGE_VENDOR Quarno)
set(CPACK_PACKAGE_CONTACT "Quarno Task Scheduling <scheduling@quarno.example>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "keep crontabs in step with the anti-malware task database")
set(CPACK_PACKAGE_DESCRIPTION
"OrvCronCleaner removes an anti-malware product's task lines from users'
crontabs, or adds them again, so that the crontabs agree with the product's
task database.

A clean can lose lines that are not the product's: of 68 users' crontabs from
public repositories, it loses at least one job in 29 and every job in 23.
Before a run, crontab_preview(8) shows what it would lose.

Neither installing nor removing this package changes a crontab.

The package includes the libraries and headers with which the product's other
programs create, change and delete tasks, and record their runs.")

# The product's directories have a fixed place outside the prefix, so the tree has to begin at "/".
set(CPACK_SET_DESTDIR ON)
set(CPACK_INSTALL_PREFIX /usr)
if(APPLE)
  set(CPACK_INSTALL_PREFIX /usr/local) # not even root can write to /usr there
endif()
set(CPACK_MONOLITHIC_INSTALL ON)
set(CPACK_INCLUDE_TOPLEVEL_DIRECTORY OFF)
set(CPACK_STRIP_FILES ON)
set(CPACK_PROJECT_CONFIG_FILE ${PROJECT_SOURCE_DIR}/packaging/before-packing.cmake)

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_DEPENDS "cron | cron-daemon")
set(CPACK_DEBIAN_PACKAGE_SUGGESTS "libsqlite3-dev, libpugixml-dev") # for those who build on the libraries
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/packaging/debian/postrm)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/packaging/debian/documents.cmake)
list(APPEND CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/packaging/debian/prerm)

include(CPack)
