# kez_manual( program what )
# The manual page of a program is made of what it answers to help, and says in few words 'what' it
# does. Without help2man there is none.

find_program( KEZ_HELP2MAN help2man )
find_program( KEZ_GZIP gzip REQUIRED )

function( kez_manual program what )
  if( NOT KEZ_HELP2MAN )
    return()
  endif()
  set( page "${PROJECT_BINARY_DIR}/${program}.1" )
  add_custom_command( OUTPUT "${page}.gz"
    COMMAND "${KEZ_HELP2MAN}" --no-info --help-option=help --version-option=--version
      "--name=${what}" "--output=${page}" $<TARGET_FILE:${program}>
    COMMAND "${KEZ_GZIP}" --no-name --best --force --keep "${page}"
    DEPENDS ${program}
    VERBATIM )
  add_custom_target( manual-${program} ALL DEPENDS "${page}.gz" )
  install( FILES "${page}.gz" DESTINATION "${CMAKE_INSTALL_MANDIR}/man1" COMPONENT tools )
endfunction()
