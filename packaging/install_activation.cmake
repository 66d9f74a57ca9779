# Installs the file by which the bus starts PROGRAM when NAME is called. With a UNIT, installs that into
# UNITS, and has a bus that asks systemd start it, if BY_UNIT. PROGRAM and the folders SERVICES and UNITS
# are absolute or relative to the prefix, which is known only now. SCRATCH is a folder for the files.

# The bus takes the line apart as a shell does, after it has undone the file's own escapes.
function(quote_for_bus path quoted)
  if(path MATCHES "[^A-Za-z0-9_./+-]")
    string(REPLACE [[\]] [[\\]] path "${path}")
    string(REPLACE [[']] [['\\'']] path "${path}")
    set(path "'${path}'")
  endif()
  set(${quoted} "${path}" PARENT_SCOPE)
endfunction()

# systemd undoes the escapes of C in a quoted path, and fills in its specifiers.
function(quote_for_systemd path quoted)
  if(path MATCHES "[^A-Za-z0-9_./+-]")
    string(REPLACE [[\]] [[\\]] path "${path}")
    string(REPLACE [["]] [[\"]] path "${path}")
    string(REPLACE "%" "%%" path "${path}")
    set(path "\"${path}\"")
  endif()
  set(${quoted} "${path}" PARENT_SCOPE)
endfunction()

# No function: the manifest is a variable of whoever installs.
macro(install_filled template name folder)
  configure_file("${CMAKE_CURRENT_LIST_DIR}/${template}.in" "${SCRATCH}/${name}" @ONLY)
  file(INSTALL "${SCRATCH}/${name}" DESTINATION "${folder}")
endmacro()

foreach(path PROGRAM SERVICES UNITS)
  cmake_path(ABSOLUTE_PATH ${path} BASE_DIRECTORY "${CMAKE_INSTALL_PREFIX}" NORMALIZE)
endforeach()
set(SYSTEMD_SERVICE "")
if(UNIT)
  quote_for_systemd("${PROGRAM}" QUOTED_PROGRAM)
  install_filled(${UNIT} ${UNIT} "${UNITS}")
  if(BY_UNIT)
    set(SYSTEMD_SERVICE "SystemdService=${UNIT}\n")
  endif()
endif()
quote_for_bus("${PROGRAM}" QUOTED_PROGRAM)
install_filled(activation.service ${NAME}.service "${SERVICES}")
