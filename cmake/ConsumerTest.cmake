# Installs a build into a prefix of its own, then builds and runs the example consumer against it,
# as somebody outside the tree would: by find_package alone.
#
# BUILD_DIR, SOURCE_DIR, GENERATOR, BUILD_TYPE, CXX_COMPILER and CXX_FLAGS are given.

function( step what )
  execute_process( COMMAND ${ARGN}
    RESULT_VARIABLE result
    OUTPUT_VARIABLE output
    ERROR_VARIABLE output )
  if( NOT result STREQUAL "0" )
    message( FATAL_ERROR "${what} failed (${result}):\n${output}" )
  endif()
  set( output "${output}" PARENT_SCOPE )
endfunction()

set( work "${BUILD_DIR}/consumer" )
file( REMOVE_RECURSE "${work}" )

step( "Installing" "${CMAKE_COMMAND}" --install "${BUILD_DIR}" --prefix "${work}/prefix" )
function( build name source )
  step( "Configuring ${name}" "${CMAKE_COMMAND}"
    -S "${source}" -B "${work}/${name}" -G "${GENERATOR}"
    "-DCMAKE_BUILD_TYPE=${BUILD_TYPE}"
    "-DCMAKE_CXX_COMPILER=${CXX_COMPILER}"
    "-DCMAKE_CXX_FLAGS=${CXX_FLAGS}"
    "-DCMAKE_PREFIX_PATH=${work}/prefix"
    # The installed package only: neither one of the system nor one of a build tree will do.
    "-DCMAKE_FIND_USE_PACKAGE_REGISTRY=OFF"
    "-DCMAKE_FIND_USE_CMAKE_SYSTEM_PATH=OFF" )
  step( "Building ${name}" "${CMAKE_COMMAND}" --build "${work}/${name}" )
  step( "Running ${name}" "${work}/${name}/${name}" )
  set( output "${output}" PARENT_SCOPE )
endfunction()

# What README shows is a program, and prints what it says.
file( READ "${SOURCE_DIR}/../../README.md" readme )
if( NOT readme MATCHES "```cpp\n([^`]*)```" )
  message( FATAL_ERROR "README shows no program" )
endif()
file( WRITE "${work}/readme-source/main.cpp" "${CMAKE_MATCH_1}" )
file( WRITE "${work}/readme-source/CMakeLists.txt" "cmake_minimum_required( VERSION 3.25 )
project( Readme LANGUAGES CXX )
find_package( KezEvpn 1.0 REQUIRED )
add_executable( readme main.cpp )
target_link_libraries( readme PRIVATE KezEvpn::KezEvpn )
" )
build( readme "${work}/readme-source" )
if( NOT output STREQUAL "Ethernet1\n" )
  message( FATAL_ERROR "README's program printed:\n${output}" )
endif()

# Its users' warnings find nothing in the headers, which they take for their own.
file( GLOB_RECURSE headers RELATIVE "${work}/prefix/include/kezevpn" "${work}/prefix/include/kezevpn/*.h" )
if( headers STREQUAL "" )
  message( FATAL_ERROR "No headers were installed" )
endif()
list( TRANSFORM headers REPLACE "(.+)" "#include \"\\1\"" )
list( JOIN headers "\n" includes )
file( WRITE "${work}/headers-source/main.cpp" "${includes}\nint main() {}\n" )
file( WRITE "${work}/headers-source/CMakeLists.txt" "cmake_minimum_required( VERSION 3.25 )
project( Headers LANGUAGES CXX )
set( CMAKE_NO_SYSTEM_FROM_IMPORTED ON )
find_package( KezEvpn 1.0 REQUIRED )
add_executable( headers main.cpp )
target_compile_options( headers PRIVATE -Wall -Wextra -Wpedantic -Wshadow -Werror )
target_link_libraries( headers PRIVATE KezEvpn::KezEvpn KezEvpn::SimulatedSwitch KezEvpn::Shell )
" )
build( headers "${work}/headers-source" )

build( consumer "${SOURCE_DIR}" )
if( output STREQUAL "" )
  message( FATAL_ERROR "The consumer ran but printed nothing" )
endif()
message( STATUS "The consumer printed:\n${output}" )

# The installed agent finds the installed library.
file( GET_RUNTIME_DEPENDENCIES
  EXECUTABLES "${work}/prefix/bin/kez-agent"
  RESOLVED_DEPENDENCIES_VAR resolved
  UNRESOLVED_DEPENDENCIES_VAR unresolved
  PRE_INCLUDE_REGEXES "^libKezEvpn"
  PRE_EXCLUDE_REGEXES ".*" )
cmake_path( NORMAL_PATH resolved )
cmake_path( GET resolved PARENT_PATH found_in )
if( NOT found_in STREQUAL "${work}/prefix/lib" )
  message( FATAL_ERROR "The installed agent does not find the installed library" )
endif()
