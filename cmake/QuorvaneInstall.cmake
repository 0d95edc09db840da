# What `cmake --install` puts where, and the packages CPack makes of it. Three components:
#   runtime      libQuorvane.so.13 (and .13.0.0): what a Host application needs to run
#   development  the headers, the libQuorvane.so link, the CMake package, quorvane.pc,
#                quorvane-status and quorvane-trace with its forwarding library: what a Host
#                developer needs to build and debug
#   simulator    the stand-ins for the FPGA interface library, the device service and the Host
#                runtime, their headers, the demo and the example target description
# The stand-ins carry the real libraries' names, so they go to a folder of their own
# (lib/quorvane-simulator) where the system's loader never looks: installing the library never
# installs, or shadows, a driver. The installed libQuorvane has no RUNPATH; it finds the driver
# where the system keeps it.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(QUORVANE_SIMULATOR_LIBDIR ${CMAKE_INSTALL_LIBDIR}/quorvane-simulator)
set(QUORVANE_SIMULATOR_INCLUDEDIR ${CMAKE_INSTALL_INCLUDEDIR}/quorvane-simulator)
set(QUORVANE_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/Quorvane)
set(QUORVANE_PKGCONFIGDIR ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# ---- runtime and development -----------------------------------------------------------------
install(TARGETS Quorvane EXPORT QuorvaneTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development
    INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(FILES ${QUORVANE_PUBLIC_HEADERS} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)
install(TARGETS quorvane-status RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT development)
if(TARGET quorvane-status-manpage)
    install(FILES ${PROJECT_BINARY_DIR}/tools/quorvane-status.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1
        COMPONENT development)
endif()
# The forwarding library is named libQuorvane.so.13 in lib/quorvane-trace, where quorvane-trace
# finds it beside its own folder and the system's loader never looks.
install(TARGETS quorvane-trace RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT development)
install(FILES $<TARGET_FILE:quorvane_trace_forwarder> DESTINATION ${QUORVANE_TRACE_LIBDIR} RENAME libQuorvane.so.13
    PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE
    COMPONENT development)
install(FILES tools/trace/README.md DESTINATION ${CMAKE_INSTALL_DOCDIR} RENAME quorvane-trace.md COMPONENT development)
install(EXPORT QuorvaneTargets NAMESPACE Quorvane:: DESTINATION ${QUORVANE_CMAKEDIR} COMPONENT development)

configure_package_config_file(cmake/QuorvaneConfig.cmake.in ${PROJECT_BINARY_DIR}/QuorvaneConfig.cmake
    INSTALL_DESTINATION ${QUORVANE_CMAKEDIR}
    PATH_VARS CMAKE_INSTALL_INCLUDEDIR QUORVANE_SIMULATOR_LIBDIR QUORVANE_SIMULATOR_INCLUDEDIR)
# Exports and status codes keep their meaning within a major version (the SONAME's).
write_basic_package_version_file(${PROJECT_BINARY_DIR}/QuorvaneConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/QuorvaneConfig.cmake ${PROJECT_BINARY_DIR}/QuorvaneConfigVersion.cmake
    DESTINATION ${QUORVANE_CMAKEDIR} COMPONENT development)

# pkg-config files locate the prefix from their own folder, so the installed tree can move.
function(quorvane_pkgconfig name component)
    file(RELATIVE_PATH QUORVANE_PC_TO_PREFIX ${CMAKE_INSTALL_PREFIX}/${QUORVANE_PKGCONFIGDIR} ${CMAKE_INSTALL_PREFIX})
    string(REGEX REPLACE "/$" "" QUORVANE_PC_TO_PREFIX "${QUORVANE_PC_TO_PREFIX}")
    configure_file(cmake/${name}.pc.in ${PROJECT_BINARY_DIR}/${name}.pc @ONLY)
    install(FILES ${PROJECT_BINARY_DIR}/${name}.pc DESTINATION ${QUORVANE_PKGCONFIGDIR} COMPONENT ${component})
endfunction()
quorvane_pkgconfig(quorvane development)
quorvane_pkgconfig(quorvane-simulator simulator)

# ---- simulator ------------------------------------------------------------------------------
# libBrenn.so.13 and libMoskSrv.so.13 are found by their SONAME; libHostRuntime.so, which has
# no version, is what a Host program for the simulator links.
install(TARGETS Brenn MoskSrv HostRuntime
    LIBRARY DESTINATION ${QUORVANE_SIMULATOR_LIBDIR} COMPONENT simulator NAMELINK_SKIP)
install(FILES platform/include/HostRuntime.h platform/host/HostSim.h platform/include/BrennDll.h
    platform/brenn/BrennSim.h DESTINATION ${QUORVANE_SIMULATOR_INCLUDEDIR} COMPONENT simulator)
install(FILES platform/brenn/TargetDescription.md platform/brenn/examples/acquisition-board.target
    DESTINATION ${CMAKE_INSTALL_DATADIR}/quorvane-simulator COMPONENT simulator)
# The demo finds the stand-ins and the library beside its own folder, wherever the tree lands.
set_target_properties(quorvane-demo PROPERTIES INSTALL_RPATH
    "$ORIGIN/../${QUORVANE_SIMULATOR_LIBDIR};$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")
# As DT_RPATH rather than DT_RUNPATH: only DT_RPATH also serves the needs of the libraries the
# demo loads, and libQuorvane, which has no search path of its own, needs libMoskSrv.so.13 from
# lib/quorvane-simulator (directly, or when quorvane-trace's forwarding library loads it).
target_link_options(quorvane-demo PRIVATE -Wl,--disable-new-dtags)
install(TARGETS quorvane-demo RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT simulator)

# ---- packages -------------------------------------------------------------------------------
set(CPACK_PACKAGE_NAME quorvane)
set(CPACK_PACKAGE_VENDOR "Quorvane")
set(CPACK_PACKAGE_CONTACT "Quorvane developers")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Library between a Host application and an FPGA driver")
set(CPACK_GENERATOR DEB)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS OFF)
set(CPACK_COMPONENTS_ALL runtime development simulator)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libquorvane13)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libquorvane-dev)
set(CPACK_DEBIAN_SIMULATOR_PACKAGE_NAME quorvane-simulator)
set(CPACK_COMPONENT_DEVELOPMENT_DEPENDS runtime)
set(CPACK_COMPONENT_SIMULATOR_DEPENDS runtime)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION "libQuorvane.so.13, for Host applications that use it")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "Headers, CMake package, pkg-config file, quorvane-status and quorvane-trace")
set(CPACK_COMPONENT_SIMULATOR_DESCRIPTION
    "A simulated FPGA target, device service and Host runtime, and the demo, for trying the library without hardware")
include(CPack)
