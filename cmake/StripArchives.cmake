# Run by cpack before it makes packages: takes the debug information out of static libraries, and
# whose and when their members are.
find_program( strip strip REQUIRED )
file( GLOB_RECURSE archives "${CPACK_TEMPORARY_DIRECTORY}/*.a" )
foreach( archive IN LISTS archives )
  execute_process( COMMAND "${strip}" --strip-debug --enable-deterministic-archives "${archive}"
    COMMAND_ERROR_IS_FATAL ANY )
endforeach()
