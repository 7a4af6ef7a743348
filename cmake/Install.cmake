# What `cmake --install` installs: the programs and the libraries under the prefix, and the product's directories at
# their fixed place.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(orvHeaders ${CMAKE_INSTALL_INCLUDEDIR}/OrvScheduling)
set(orvPlatformHeaders ${orvHeaders}/platform)
set(orvPackage ${CMAKE_INSTALL_LIBDIR}/cmake/OrvScheduling)
# The paths of the task database and of the scratch copies of crontabs are constants of the library, whatever the
# prefix.
set(orvVar /usr/local/Quarno/Kestrelcore/var)

set(orvDirectories
  ${CMAKE_INSTALL_SBINDIR}
  ${orvHeaders}
  ${orvPlatformHeaders}
  ${orvPackage}
  ${CMAKE_INSTALL_LIBDIR}/pkgconfig
  ${CMAKE_INSTALL_MANDIR}/man3
  ${CMAKE_INSTALL_MANDIR}/man8
  ${CMAKE_INSTALL_DOCDIR}
  ${orvVar})
if(NOT APPLE)
  list(APPEND orvDirectories ${orvPlatformHeaders}/CoreFoundation)
endif()
install(CODE "set(orvDirectories \"${orvDirectories}\")")
install(SCRIPT cmake/MakeDirectories.cmake)

# In sbin, because only root can edit and read other users' crontabs.
install(TARGETS OrvCronCleaner crontab_preview RUNTIME DESTINATION ${CMAKE_INSTALL_SBINDIR})

set_target_properties(OrvScheduling PROPERTIES EXPORT_NAME Scheduling)
set_target_properties(OrvLogger PROPERTIES EXPORT_NAME Logger)
set_target_properties(OrvCoreFoundation PROPERTIES EXPORT_NAME CoreFoundation)
install(TARGETS OrvScheduling kblutils OrvLogger OrvCoreFoundation
  EXPORT OrvSchedulingTargets
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  INCLUDES DESTINATION ${orvHeaders} ${orvPlatformHeaders})

# The headers that a user of the libraries includes. The others are for the project's own sources.
install(FILES
  Common/CfRef.h
  Common/CrontabText.h
  Common/PassLock.h
  Common/TaskEditor.h
  Common/TaskInfo.h
  Common/TaskInterface.h
  Common/db/SqliteDb.h
  Common/include/Constants.h
  Common/include/OrvException.h
  DESTINATION ${orvHeaders})
install(FILES platform/OrvLogger/OrvLogger.h DESTINATION ${orvPlatformHeaders})
if(NOT APPLE)
  install(FILES platform/CoreFoundation/include/CoreFoundation/CoreFoundation.h
    DESTINATION ${orvPlatformHeaders}/CoreFoundation)
endif()

configure_package_config_file(cmake/OrvSchedulingConfig.cmake.in ${PROJECT_BINARY_DIR}/OrvSchedulingConfig.cmake
  INSTALL_DESTINATION ${orvPackage}
  NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/OrvSchedulingConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES
  ${PROJECT_BINARY_DIR}/OrvSchedulingConfig.cmake
  ${PROJECT_BINARY_DIR}/OrvSchedulingConfigVersion.cmake
  cmake/SqliteTarget.cmake
  DESTINATION ${orvPackage})
if(APPLE)
  install(FILES cmake/SdkSqlite.cmake DESTINATION ${orvPackage})
endif()
install(EXPORT OrvSchedulingTargets NAMESPACE Orv:: DESTINATION ${orvPackage})

# For builds without CMake. The libraries are static, so a program links all of them, each before those that it needs.
set(orvPcRequires sqlite3)
if(ORV_LOGGER_LIBRARY)
  set(orvPcLogger ${ORV_LOGGER_LIBRARY})
else()
  set(orvPcLogger -lOrvLogger)
endif()
if(APPLE)
  set(orvPcLibs "-lOrvScheduling -lkblutils ${orvPcLogger} -framework CoreFoundation")
else()
  set(orvPcLibs "-lOrvScheduling -lkblutils -lOrvCoreFoundation ${orvPcLogger}")
  list(APPEND orvPcRequires pugixml)
endif()
list(JOIN orvPcRequires ", " orvPcRequires)
# Relative to the file itself, so that the tree can be moved, unless a folder was given as an absolute path.
file(RELATIVE_PATH orvPcUp /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
set(orvPcPrefix "\${pcfiledir}/${orvPcUp}")
set(orvPcLibdir "\${prefix}/${CMAKE_INSTALL_LIBDIR}")
set(orvPcIncludedir "\${prefix}/${CMAKE_INSTALL_INCLUDEDIR}")
if(IS_ABSOLUTE ${CMAKE_INSTALL_LIBDIR})
  set(orvPcPrefix ${CMAKE_INSTALL_PREFIX})
  set(orvPcLibdir ${CMAKE_INSTALL_LIBDIR})
endif()
if(IS_ABSOLUTE ${CMAKE_INSTALL_INCLUDEDIR})
  set(orvPcIncludedir ${CMAKE_INSTALL_INCLUDEDIR})
endif()
configure_file(cmake/OrvScheduling.pc.in ${PROJECT_BINARY_DIR}/OrvScheduling.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/OrvScheduling.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

install(FILES
  man/man3/CrontabText.3
  man/man3/LogMsg.3
  man/man3/OrvConstants.3
  man/man3/OrvException.3
  man/man3/OrvScheduling.3
  man/man3/PassLock.3
  man/man3/SqliteDb.3
  man/man3/TaskEditor.3
  man/man3/TaskInfo.3
  man/man3/TaskInterface.3
  DESTINATION ${CMAKE_INSTALL_MANDIR}/man3)
install(FILES man/man8/OrvCronCleaner.8 man/man8/crontab_preview.8 DESTINATION ${CMAKE_INSTALL_MANDIR}/man8)

# The sources of the examples, to read and to build.
install(DIRECTORY docs/ DESTINATION ${CMAKE_INSTALL_DOCDIR} FILES_MATCHING PATTERN *.md)
install(DIRECTORY examples DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(FILES tools/crontab_preview/TerminalText.cpp tools/crontab_preview/TerminalText.h
  DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples)

# The scratch directory gets copies of all users' crontabs, which only root may read.
install(DIRECTORY DESTINATION ${orvVar}
  DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
install(DIRECTORY DESTINATION ${orvVar}/tmp DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE)
