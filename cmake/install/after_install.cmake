# Run at the end of an installation. Not for a staged one: there the package's own scripts do this.
if(DEFINED ENV{DESTDIR} AND NOT "$ENV{DESTDIR}" STREQUAL "")
  return()
endif()

# catopen looks below /usr/share/locale only.
if(NOT CMAKE_INSTALL_PREFIX MATCHES "^/usr/?$")
  cmake_path(ABSOLUTE_PATH CMAKE_INSTALL_PREFIX NORMALIZE OUTPUT_VARIABLE prefix)  # where it is a relative one
  cmake_path(ABSOLUTE_PATH QX_LOCALEDIR BASE_DIRECTORY "${prefix}" OUTPUT_VARIABLE locale_dir)
  set(path "${locale_dir}/%L/LC_MESSAGES/%N:${locale_dir}/%l/LC_MESSAGES/%N")
  if(path MATCHES "[^a-zA-Z0-9_./:%+,@~-]")
    set(path "'${path}'")
  endif()
  message(STATUS "For messages in the user's language set: NLSPATH=${path}")
endif()

# The directories of a system installation. Elsewhere the files are only there to be looked at.
set(needed "Records need the directories /var/adm/vosk/stacks and /var/adm/vosk/dumps (mode 1777)")
if(NOT CMAKE_INSTALL_PREFIX MATCHES "^/usr(/local)?/?$")
  message(STATUS "${needed}")
  return()
endif()

# As systemd-tmpfiles does: what is there in a directory's place stays, and where a link leads to is not opened.
function(make_directory mode directory)
  if(IS_SYMLINK "${directory}" OR (EXISTS "${directory}" AND NOT IS_DIRECTORY "${directory}"))
    message(STATUS "\"${directory}\" is not a directory; it is left as it is")
  else()
    execute_process(COMMAND install -d -m ${mode} "${directory}")
  endif()
endfunction()

find_program(SYSTEMD_TMPFILES systemd-tmpfiles)
if(SYSTEMD_TMPFILES)
  execute_process(COMMAND "${SYSTEMD_TMPFILES}" --create "${CMAKE_INSTALL_PREFIX}/lib/tmpfiles.d/qx_vosk.conf")
else()
  make_directory(0755 /var/adm/vosk)
  make_directory(1777 /var/adm/vosk/stacks)
  make_directory(1777 /var/adm/vosk/dumps)
endif()
if(NOT IS_DIRECTORY /var/adm/vosk/stacks OR NOT IS_DIRECTORY /var/adm/vosk/dumps)
  message(STATUS "${needed}")
endif()
message(STATUS "For programs to find the libraries run once: ldconfig")
