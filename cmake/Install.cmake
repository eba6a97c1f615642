# What "cmake --install" puts where. The two libraries of the streaming stack belong to the server that has them: the
# stand-ins go into a private directory that only zuis-host knows.
include(CMakePackageConfigHelpers)

set(ZUIS_INSTALL_INCLUDEDIR ${CMAKE_INSTALL_INCLUDEDIR}/ZuInputStream)
set(ZUIS_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/ZuInputStream)
set(ZUIS_INSTALL_PRIVATEDIR ${CMAKE_INSTALL_LIBDIR}/zuis-tools)

# ---- the library and what is needed to build against it
install(TARGETS InputStreamShared LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT library)
# One folder: the headers reach each other by name.
install(FILES
    ${PROJECT_SOURCE_DIR}/StreamSdk/helpers/input/ZuInputStream.h
    ${PROJECT_SOURCE_DIR}/StreamSdk/include/TelemetrySender.h
    ${PROJECT_SOURCE_DIR}/StreamSdk/include/ZuStream.h
    ${PROJECT_SOURCE_DIR}/StreamSdk/include/ZuStreamInput.h
    DESTINATION ${ZUIS_INSTALL_INCLUDEDIR} COMPONENT development)
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/ZuInputStreamConfig.cmake.in
    ${PROJECT_BINARY_DIR}/ZuInputStreamConfig.cmake
    INSTALL_DESTINATION ${ZUIS_INSTALL_CMAKEDIR}
    PATH_VARS ZUIS_INSTALL_INCLUDEDIR CMAKE_INSTALL_LIBDIR
    NO_CHECK_REQUIRED_COMPONENTS_MACRO)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/ZuInputStreamConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES
    ${PROJECT_BINARY_DIR}/ZuInputStreamConfig.cmake
    ${PROJECT_BINARY_DIR}/ZuInputStreamConfigVersion.cmake
    DESTINATION ${ZUIS_INSTALL_CMAKEDIR} COMPONENT development)
# Relative, so that the installed tree can be moved.
file(RELATIVE_PATH ZUIS_PC_TO_PREFIX /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
configure_file(${PROJECT_SOURCE_DIR}/cmake/ZuInputStream.pc.in ${PROJECT_BINARY_DIR}/ZuInputStream.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/ZuInputStream.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
install(FILES ${PROJECT_SOURCE_DIR}/man/libInputStreamShared.7
    DESTINATION ${CMAKE_INSTALL_MANDIR}/man7 COMPONENT development)
install(FILES ${PROJECT_SOURCE_DIR}/README.md
    DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT development)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/docs ${PROJECT_SOURCE_DIR}/examples
    DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT development
    PATTERN CMakeLists.txt EXCLUDE
    PATTERN Doxyfile EXCLUDE)

# ---- the tools
if(NOT TARGET zuis-host)
    return()
endif()
install(TARGETS zuis-host zuis-desktop zuis-pads DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
install(TARGETS ZuStreamServer ZuStreamBase LIBRARY DESTINATION ${ZUIS_INSTALL_PRIVATEDIR} COMPONENT tools)
install(PROGRAMS ${PROJECT_SOURCE_DIR}/tools/linux/EnableRemoteInput.sh
    DESTINATION ${CMAKE_INSTALL_SBINDIR} COMPONENT tools)
install(FILES ${PROJECT_SOURCE_DIR}/tools/linux/70-zuis-uinput.rules
    DESTINATION lib/udev/rules.d COMPONENT tools)
install(FILES ${PROJECT_SOURCE_DIR}/tools/linux/zuis-uinput.conf
    DESTINATION lib/modules-load.d COMPONENT tools)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/tools/host/sessions
    DESTINATION ${CMAKE_INSTALL_DATADIR}/zuis-tools COMPONENT tools FILES_MATCHING PATTERN "*.jsonl")
install(FILES
    ${PROJECT_SOURCE_DIR}/man/zuis-host.1
    ${PROJECT_SOURCE_DIR}/man/zuis-desktop.1
    ${PROJECT_SOURCE_DIR}/man/zuis-pads.1
    DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools)
install(FILES ${PROJECT_SOURCE_DIR}/man/EnableRemoteInput.sh.8
    DESTINATION ${CMAKE_INSTALL_MANDIR}/man8 COMPONENT tools)
