# Installs the headers, the libraries, the CMake package, the pkg-config file, the GDB printers and the documents.
include(CMakePackageConfigHelpers)

set(config_dir ${CMAKE_INSTALL_LIBDIR}/cmake/tavnomcl)
if(TAVNOMCL_HOST_LIBRARY)
    set(libraries tavnomcl)
    string(REGEX REPLACE "^([^-/])" "-l\\1" TAVNOMCL_PC_HOST "${TAVNOMCL_HOST_LIBRARY}")
else()
    set(libraries tavnomcl tavnohost)
    set(TAVNOMCL_PC_HOST -ltavnohost)
endif()
install(TARGETS ${libraries} EXPORT tavnomclTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT dev
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT dev)
install(DIRECTORY mcl host DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/tavnomcl COMPONENT dev
    FILES_MATCHING PATTERN "*.h" PATTERN "*_p.h" EXCLUDE)
install(EXPORT tavnomclTargets NAMESPACE tavnomcl:: DESTINATION ${config_dir} COMPONENT dev)
configure_package_config_file(cmake/tavnomclConfig.cmake.in tavnomclConfig.cmake INSTALL_DESTINATION ${config_dir})
write_basic_package_version_file(tavnomclConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/tavnomclConfig.cmake ${PROJECT_BINARY_DIR}/tavnomclConfigVersion.cmake
    DESTINATION ${config_dir} COMPONENT dev)
string(REGEX REPLACE "[^/]+" ".." TAVNOMCL_PC_TO_PREFIX "${CMAKE_INSTALL_LIBDIR}/pkgconfig")
configure_file(cmake/tavnomcl.pc.in tavnomcl.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/tavnomcl.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT dev)

# The printers go where GDB looks for them: beside the library or, for a library in /usr, into GDB's auto-load folder.
if(BUILD_SHARED_LIBS)
    set(printers_dir ${CMAKE_INSTALL_LIBDIR})
    if(CMAKE_INSTALL_PREFIX STREQUAL "/usr")
        set(printers_dir ${CMAKE_INSTALL_DATADIR}/gdb/auto-load${CMAKE_INSTALL_FULL_LIBDIR})
    endif()
    install(FILES gdb/tavnomcl_printers.py DESTINATION ${printers_dir} COMPONENT dev
        RENAME libtavnomcl.so.${PROJECT_VERSION}-gdb.py)
endif()

install(FILES LICENSE README.md CHANGELOG.md CONTRIBUTING.md SECURITY.md DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT dev)
install(DIRECTORY docs DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT dev
    FILES_MATCHING PATTERN "*.md" PATTERN "*.svg" PATTERN "*.cc" PATTERN "*.out" PATTERN "*.desc")
