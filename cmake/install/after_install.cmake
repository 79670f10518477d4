# Run at the end of an installation. Not for a staged one: there the package's own scripts do this.
if(DEFINED ENV{DESTDIR} AND NOT "$ENV{DESTDIR}" STREQUAL "")
  return()
endif()

# catopen looks below /usr/share/locale only.
if(NOT CMAKE_INSTALL_PREFIX MATCHES "^/usr/?$")
  cmake_path(ABSOLUTE_PATH QX_LOCALEDIR BASE_DIRECTORY "${CMAKE_INSTALL_PREFIX}" OUTPUT_VARIABLE locale_dir)
  message(STATUS "For messages in the user's language set: "
    "NLSPATH=${locale_dir}/%L/LC_MESSAGES/%N:${locale_dir}/%l/LC_MESSAGES/%N")
endif()

# The directories of a system installation. Elsewhere the files are only there to be looked at.
if(NOT CMAKE_INSTALL_PREFIX MATCHES "^/usr(/local)?/?$")
  message(STATUS "Records need the directories /var/adm/vosk/stacks and /var/adm/vosk/dumps (mode 1777)")
  return()
endif()
find_program(SYSTEMD_TMPFILES systemd-tmpfiles)
if(SYSTEMD_TMPFILES)
  execute_process(COMMAND "${SYSTEMD_TMPFILES}" --create "${CMAKE_INSTALL_PREFIX}/lib/tmpfiles.d/qx_vosk.conf")
else()
  execute_process(COMMAND install -d -m 0755 /var/adm/vosk)
  execute_process(COMMAND install -d -m 1777 /var/adm/vosk/stacks /var/adm/vosk/dumps)
endif()
