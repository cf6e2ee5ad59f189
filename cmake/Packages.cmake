# The packages that cpack makes of a build, by the conventions of Debian: the shared library; what
# is compiled against it; the programs. `scripts/package` configures such a build.

set( KEZ_PACKAGE_runtime libkezevpn${PROJECT_VERSION_MAJOR} )
set( KEZ_PACKAGE_development libkezevpn-dev )
set( KEZ_PACKAGE_tools kezevpn-tools )

set( KEZ_PACKAGE_VERSION "${PROJECT_VERSION}-1" )
set( CPACK_PACKAGE_CONTACT "KezEvpn maintainers <maintainers@example.org>" )

# Each says what has changed, and under which terms it may be used.
set( files "${PROJECT_SOURCE_DIR}/cmake/package" )
string( TIMESTAMP date "%a, %d %b %Y %H:%M:%S +0000" UTC ) # SOURCE_DATE_EPOCH, if there is one
configure_file( "${files}/changelog.Debian.in" "${PROJECT_BINARY_DIR}/changelog.Debian" @ONLY )
set( changes "${PROJECT_BINARY_DIR}/changelog.gz" "${PROJECT_BINARY_DIR}/changelog.Debian.gz" )
add_custom_command( OUTPUT ${changes}
  COMMAND "${KEZ_GZIP}" --no-name --best --stdout "${PROJECT_SOURCE_DIR}/CHANGELOG.md" > changelog.gz
  COMMAND "${KEZ_GZIP}" --no-name --best --stdout changelog.Debian > changelog.Debian.gz
  DEPENDS "${PROJECT_SOURCE_DIR}/CHANGELOG.md" "${PROJECT_BINARY_DIR}/changelog.Debian"
  VERBATIM )
add_custom_target( changelog ALL DEPENDS ${changes} )
foreach( component IN ITEMS runtime development tools )
  install( FILES ${changes} "${files}/copyright"
    DESTINATION "${CMAKE_INSTALL_DATADIR}/doc/${KEZ_PACKAGE_${component}}" COMPONENT ${component} )
endforeach()

set( CPACK_GENERATOR DEB )
set( CPACK_PACKAGE_NAME kezevpn )
set( CPACK_PACKAGE_VENDOR "the KezEvpn maintainers" )
set( CPACK_PACKAGE_VERSION "${KEZ_PACKAGE_VERSION}" )
set( CPACK_PACKAGE_DESCRIPTION_SUMMARY "EVPN forwarding state for a switch's agent" )
set( about "State machines that turn a switch's EVPN control state into forwarding
state, and the platform that they stand on.

" )
set( CPACK_COMPONENTS_ALL runtime development tools )
set( CPACK_DEB_COMPONENT_INSTALL ON )
set( CPACK_DEBIAN_FILE_NAME DEB-DEFAULT )
set( CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON )

# Debug information is split off into packages of its own; static libraries have none.
set( CPACK_STRIP_FILES OFF )
set( CPACK_DEBIAN_DEBUGINFO_PACKAGE ON )
set( CPACK_PRE_BUILD_SCRIPTS "${PROJECT_SOURCE_DIR}/cmake/StripArchives.cmake" )

set( CPACK_DEBIAN_RUNTIME_PACKAGE_NAME "${KEZ_PACKAGE_runtime}" )
set( CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs )
set( CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON )
configure_file( "${files}/shlibs.in" "${PROJECT_BINARY_DIR}/shlibs" @ONLY )
set( CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA "${PROJECT_BINARY_DIR}/shlibs" "${files}/triggers" )
set( CPACK_COMPONENT_RUNTIME_DESCRIPTION "${about}This package has the shared library." )

set( CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME "${KEZ_PACKAGE_development}" )
set( CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel )
set( CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "${KEZ_PACKAGE_runtime} (= ${KEZ_PACKAGE_VERSION})" )
set( CPACK_DEBIAN_DEVELOPMENT_DEBUGINFO_PACKAGE OFF )
set( CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "${about}This package has the headers, the simulated switch, the shell library,
what CMake, pkg-config and gdb read, documentation and examples." )

set( CPACK_DEBIAN_TOOLS_PACKAGE_NAME "${KEZ_PACKAGE_tools}" )
set( CPACK_DEBIAN_TOOLS_PACKAGE_SECTION net )
set( CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "${KEZ_PACKAGE_runtime} (= ${KEZ_PACKAGE_VERSION})" )
set( CPACK_DEBIAN_TOOLS_PACKAGE_SHLIBDEPS ON )
set( CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS "${PROJECT_BINARY_DIR}" )
foreach( script IN ITEMS postinst prerm postrm )
  list( APPEND CPACK_DEBIAN_TOOLS_PACKAGE_CONTROL_EXTRA "${files}/${script}" )
endforeach()
set( CPACK_COMPONENT_TOOLS_DESCRIPTION "${about}This package has an agent that runs the state machines over a
simulated switch, in a shell or as a daemon; a program that reads the
tables and traces that such agents leave; and two that try agents, one
alone with random inputs and several joined, with frames sent through." )

include( CPack )
