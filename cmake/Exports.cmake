# kez_exports( target namespaces... )
# The shared library 'target' exports what these namespaces declare: neither what it uses of others,
# such as instances of the standard library's templates, nor inline functions, which whoever calls
# them has of his own. What exists once a process, such as variables in inline functions and what the
# language keeps of a class, is exported, so that it stays one with users that hide theirs.
# tests/exported-symbols compares the outcome with what it is meant to be.
function( kez_exports target )
  set( KEZ_EXPORTED "_ZTAX*;" ) # values of templates' parameters
  foreach( namespace IN LISTS ARGN )
    string( LENGTH "${namespace}" length )
    # Functions and variables, variables in functions, guards of both; of classes and their bases.
    foreach( what IN ITEMS _Z _ZZ _ZGV _ZGVZ _ZT? _ZTh*_ _ZTv*_ )
      foreach( constant IN ITEMS "" K )
        string( APPEND KEZ_EXPORTED "\n    ${what}N${constant}${length}${namespace}*;" )
      endforeach()
    endforeach()
  endforeach()
  set( script "${PROJECT_BINARY_DIR}/${target}.map" )
  file( CONFIGURE OUTPUT "${script}" CONTENT "{
  global:
    ${KEZ_EXPORTED}
  local:
    *;
};
" )
  target_link_options( ${target} PRIVATE "-Wl,--version-script=${script}" )
  set_target_properties( ${target} PROPERTIES LINK_DEPENDS "${script}" )
endfunction()
