# The packages that cpack makes of a build, by the conventions of Debian: the shared library; what
# is compiled against it; the programs. `scripts/package` configures such a build.

set( KEZ_PACKAGE_runtime libkezevpn${PROJECT_VERSION_MAJOR} )
set( KEZ_PACKAGE_development libkezevpn-dev )
set( KEZ_PACKAGE_tools kezevpn-tools )

# Each says what has changed, and under which terms it may be used.
find_program( KEZ_GZIP gzip REQUIRED )
set( changes "${PROJECT_BINARY_DIR}/changelog.gz" )
add_custom_command( OUTPUT "${changes}"
  COMMAND "${KEZ_GZIP}" --no-name --best --stdout "${PROJECT_SOURCE_DIR}/CHANGELOG.md" > "${changes}"
  DEPENDS "${PROJECT_SOURCE_DIR}/CHANGELOG.md"
  VERBATIM )
add_custom_target( changelog ALL DEPENDS "${changes}" )
foreach( component IN ITEMS runtime development tools )
  install( FILES "${changes}" "${PROJECT_SOURCE_DIR}/cmake/copyright"
    DESTINATION "${CMAKE_INSTALL_DATADIR}/doc/${KEZ_PACKAGE_${component}}" COMPONENT ${component} )
endforeach()

set( CPACK_GENERATOR DEB )
set( CPACK_PACKAGE_NAME kezevpn )
set( CPACK_PACKAGE_VENDOR "the KezEvpn maintainers" )
set( CPACK_PACKAGE_CONTACT "KezEvpn maintainers <maintainers@example.org>" )
set( CPACK_PACKAGE_VERSION "${PROJECT_VERSION}" )
set( CPACK_COMPONENTS_ALL runtime development tools )
set( CPACK_STRIP_FILES OFF ) # debug information is split off instead
set( CPACK_DEB_COMPONENT_INSTALL ON )
set( CPACK_DEBIAN_FILE_NAME DEB-DEFAULT )
set( CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON )
set( CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS "${PROJECT_BINARY_DIR}" )
set( CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON )
set( CPACK_DEBIAN_DEBUGINFO_PACKAGE OFF )
set( CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON )

set( CPACK_DEBIAN_RUNTIME_PACKAGE_NAME "${KEZ_PACKAGE_runtime}" )
set( CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs )
set( CPACK_COMPONENT_RUNTIME_DESCRIPTION "EVPN forwarding state for a switch's agent - library
 State machines that turn a switch's EVPN control state into forwarding
 state, and the platform that they stand on.
 .
 This package has the shared library." )

set( CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME "${KEZ_PACKAGE_development}" )
set( CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel )
set( CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "${KEZ_PACKAGE_runtime} (= ${PROJECT_VERSION})" )
set( CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "EVPN forwarding state for a switch's agent - development
 State machines that turn a switch's EVPN control state into forwarding
 state, and the platform that they stand on.
 .
 This package has the headers, the simulated switch, the shell library,
 and what CMake and pkg-config read." )

set( CPACK_DEBIAN_TOOLS_PACKAGE_NAME "${KEZ_PACKAGE_tools}" )
set( CPACK_DEBIAN_TOOLS_PACKAGE_SECTION net )
set( CPACK_COMPONENT_TOOLS_DESCRIPTION "EVPN forwarding state for a switch's agent - programs
 An agent that runs the state machines of libKezEvpn over a simulated
 switch, in a shell or as a daemon, and a program that reads the tables
 and traces that such agents leave." )

include( CPack )
