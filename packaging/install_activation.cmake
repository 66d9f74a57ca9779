# Installs the file by which the bus starts PROGRAM when NAME is called; PROGRAM and the folder SERVICES
# are absolute or relative to the prefix, which is known only now. SCRATCH is a folder for the file.

# The bus takes the line apart as a shell does, after it has undone the file's own escapes.
function(quote_for_bus path quoted)
  if(path MATCHES "[^A-Za-z0-9_./+-]")
    string(REPLACE [[\]] [[\\]] path "${path}")
    string(REPLACE [[']] [['\\'']] path "${path}")
    set(path "'${path}'")
  endif()
  set(${quoted} "${path}" PARENT_SCOPE)
endfunction()

foreach(path PROGRAM SERVICES)
  cmake_path(ABSOLUTE_PATH ${path} BASE_DIRECTORY "${CMAKE_INSTALL_PREFIX}" NORMALIZE)
endforeach()
quote_for_bus("${PROGRAM}" QUOTED_PROGRAM)
configure_file("${CMAKE_CURRENT_LIST_DIR}/activation.service.in" "${SCRATCH}/${NAME}.service" @ONLY)
file(INSTALL "${SCRATCH}/${NAME}.service" DESTINATION "${SERVICES}")
