# What is installed: the library with its headers, and what CMake, pkg-config and gdb know of it.
# Programs are installed where they are made.

# --- Headers ------------------------------------------------------------------------------------
#
# All of them but what a `detail` directory has that no installed header includes.

install( DIRECTORY platform/ types/ KezEvpn KezHelper switch shell
  DESTINATION "${KEZ_HEADER_ROOT}"
  COMPONENT development
  FILES_MATCHING PATTERN "*.h" PATTERN "KezEvpn/frame/detail" EXCLUDE )

# They keep the names that they have in the library's own assertions.
foreach( directory IN ITEMS Vex Ringlog Loom Rook ${KEZ_MODELS} )
  set( header_path "${KEZ_HEADER_ROOT}/${directory}" )
  target_compile_options( KezEvpn INTERFACE
    "$<INSTALL_INTERFACE:-fmacro-prefix-map=$<INSTALL_PREFIX>/${header_path}/=/src/platform/${directory}/>" )
endforeach()
foreach( directory IN ITEMS KezEvpn KezHelper switch shell )
  set( header_path "${KEZ_HEADER_ROOT}/${directory}" )
  target_compile_options( KezEvpn INTERFACE
    "$<INSTALL_INTERFACE:-fmacro-prefix-map=$<INSTALL_PREFIX>/${header_path}/=/src/${directory}/>" )
endforeach()

# --- Libraries ----------------------------------------------------------------------------------

install( TARGETS KezEvpn SimulatedSwitch Shell EXPORT KezEvpnTargets
  LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}"
    COMPONENT runtime NAMELINK_COMPONENT development
  ARCHIVE DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT development )

set( package_dir "${CMAKE_INSTALL_LIBDIR}/cmake/KezEvpn" )
install( EXPORT KezEvpnTargets NAMESPACE KezEvpn:: DESTINATION "${package_dir}"
  COMPONENT development )
configure_package_config_file( cmake/KezEvpnConfig.cmake.in
  "${PROJECT_BINARY_DIR}/KezEvpnConfig.cmake"
  INSTALL_DESTINATION "${package_dir}"
  NO_SET_AND_CHECK_MACRO )
write_basic_package_version_file( "${PROJECT_BINARY_DIR}/KezEvpnConfigVersion.cmake"
  COMPATIBILITY SameMajorVersion )
install( FILES
  "${PROJECT_BINARY_DIR}/KezEvpnConfig.cmake"
  "${PROJECT_BINARY_DIR}/KezEvpnConfigVersion.cmake"
  DESTINATION "${package_dir}"
  COMPONENT development )

# kez_pkg_config( name library description [required...] )
function( kez_pkg_config KEZ_PC_NAME KEZ_PC_LIBRARY KEZ_PC_DESCRIPTION )
  set( KEZ_PC_REQUIRES "${ARGN}" )
  configure_file( cmake/kezevpn.pc.in "${PROJECT_BINARY_DIR}/${KEZ_PC_NAME}.pc" @ONLY )
  install( FILES "${PROJECT_BINARY_DIR}/${KEZ_PC_NAME}.pc"
    DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig" COMPONENT development )
endfunction()
kez_pkg_config( kezevpn KezEvpn "${PROJECT_DESCRIPTION}" )
kez_pkg_config( kezevpn-simulated-switch KezSimulatedSwitch "Hardware for machines, simulated" kezevpn )
kez_pkg_config( kezevpn-shell KezShell "The command line of a host, and the door to it" kezevpn )

# gdb looks there when a process has the library.
set( library "${CMAKE_INSTALL_FULL_LIBDIR}/libKezEvpn.so.${PROJECT_VERSION}" )
cmake_path( GET library PARENT_PATH directory )
install( FILES gdb/printers.py
  DESTINATION "${CMAKE_INSTALL_DATADIR}/gdb/auto-load${directory}"
  RENAME "libKezEvpn.so.${PROJECT_VERSION}-gdb.py"
  COMPONENT development )

install( FILES README.md DESTINATION "${CMAKE_INSTALL_DATADIR}/doc/libkezevpn-dev"
  COMPONENT development )
install( DIRECTORY docs examples DESTINATION "${CMAKE_INSTALL_DATADIR}/doc/libkezevpn-dev"
  COMPONENT development )
