# How what is installed finds the rest of it: by the way from its own folder, so that the tree may be
# moved. Folders that were given as absolute stay where they are.

# tarn_path_between(VARIABLE FROM TO): the way from one installed folder to another.
function(tarn_path_between variable from to)
  cmake_path(ABSOLUTE_PATH from BASE_DIRECTORY "${CMAKE_INSTALL_PREFIX}" NORMALIZE)
  cmake_path(ABSOLUTE_PATH to BASE_DIRECTORY "${CMAKE_INSTALL_PREFIX}" NORMALIZE)
  cmake_path(RELATIVE_PATH to BASE_DIRECTORY "${from}")
  set(${variable} "${to}" PARENT_SCOPE)
endfunction()

tarn_path_between(TARN_PLUGINDIR_FROM_LIBEXEC ${TARN_LIBEXECDIR} ${TARN_PLUGINDIR})
tarn_path_between(TARN_LIBDIR_FROM_BIN ${CMAKE_INSTALL_BINDIR} ${CMAKE_INSTALL_LIBDIR})
tarn_path_between(TARN_LIBDIR_FROM_LIBEXEC ${TARN_LIBEXECDIR} ${CMAKE_INSTALL_LIBDIR})
# For pkg-config, from the folder of its files.
set(pc ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
tarn_path_between(TARN_LIBDIR_FROM_PC ${pc} ${CMAKE_INSTALL_LIBDIR})
tarn_path_between(TARN_INCLUDEDIR_FROM_PC ${pc} ${CMAKE_INSTALL_INCLUDEDIR})

# The way to an absolute folder from a relative one is known for the prefix given here alone.
foreach(folder BINDIR LIBDIR LIBEXECDIR INCLUDEDIR)
  if(IS_ABSOLUTE "${CMAKE_INSTALL_${folder}}")
    install(CODE "
      if(NOT CMAKE_INSTALL_PREFIX STREQUAL [[${CMAKE_INSTALL_PREFIX}]])
        message(FATAL_ERROR
          [[CMAKE_INSTALL_${folder} is absolute: give the prefix when configuring, not to --prefix.]])
      endif()")
  endif()
endforeach()
