# What every target shares: language level, warnings, hardening, sanitizers.

set(CMAKE_C_STANDARD 11)
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

if(NOT CMAKE_BUILD_TYPE AND NOT CMAKE_CONFIGURATION_TYPES)
  set(CMAKE_BUILD_TYPE Release CACHE STRING "Debug, Release, RelWithDebInfo or MinSizeRel" FORCE)
endif()
set(CMAKE_CXX_FLAGS_RELEASE "-O2 -DNDEBUG")
set(CMAKE_C_FLAGS_RELEASE "-O2 -DNDEBUG")

# A list such as "address;undefined" or "thread"; the presets set it.
set(QX_VOSK_SANITIZE "" CACHE STRING "Sanitizers to build everything with")
if(QX_VOSK_SANITIZE)
  list(JOIN QX_VOSK_SANITIZE "," sanitizers)
  add_compile_options(-fsanitize=${sanitizers} -fno-sanitize-recover=all -fno-omit-frame-pointer -g1)
  add_link_options(-fsanitize=${sanitizers})
  # Instrumented code hides from the compiler what is set where: with it, this warning finds faults in <regex>.
  add_compile_options($<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>)
endif()
if(QX_VOSK_FUZZ AND CMAKE_CXX_COMPILER_ID STREQUAL "Clang" AND NOT QX_VOSK_SANITIZE STREQUAL "memory")
  add_compile_options(-fsanitize=fuzzer-no-link)  # what is fuzzed tells the fuzzer where it has been
endif()
if(QX_VOSK_SANITIZE STREQUAL "memory")
  # The C++ library itself is not instrumented; what it offers as templates becomes part of our objects, which are.
  add_compile_options($<$<COMPILE_LANGUAGE:CXX>:-D_GLIBCXX_EXTERN_TEMPLATE=0>)
endif()
option(QX_VOSK_COVERAGE "Instrument for coverage" OFF)
if(QX_VOSK_COVERAGE)
  add_compile_options(--coverage -O0 -g)
  add_link_options(--coverage)
endif()

# The distribution's build flags may bring _FORTIFY_SOURCE; the library must call the plain routines, not its wrappers.
set(QX_NO_FORTIFY -U_FORTIFY_SOURCE)

add_library(qx_warnings INTERFACE)
target_compile_options(qx_warnings INTERFACE
  -Wall -Wextra -Werror -Wconversion -Wshadow -Wformat=2 -Wundef -Wcast-align -Wvla
  $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor -Woverloaded-virtual>)

# Hardening that both libraries carry; tests read it back from the built files.
add_library(qx_hardening INTERFACE)
target_compile_options(qx_hardening INTERFACE -fstack-protector-strong -fstack-clash-protection -fcf-protection=full)
target_link_options(qx_hardening INTERFACE -Wl,-z,relro,-z,now,-z,noexecstack)

# Library code: no exceptions, no RTTI, nothing visible that is not exported by name, no thread-safe statics.
add_library(qx_library_code INTERFACE)
target_compile_options(qx_library_code INTERFACE ${QX_NO_FORTIFY} -fvisibility=$<IF:$<BOOL:${QX_VOSK_OPEN}>,default,hidden>
  $<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions -fno-rtti -fvisibility-inlines-hidden -fno-threadsafe-statics>)
# Programs call it from several threads, whose counts must not get in each other's way.
target_compile_options(qx_library_code INTERFACE $<$<BOOL:${QX_VOSK_COVERAGE}>:-fprofile-update=atomic>)
target_link_libraries(qx_library_code INTERFACE qx_warnings qx_hardening)

# qx_shared_library(target version-script): SONAME links, exports by list, no undefined symbol, no C++ runtime.
function(qx_shared_library target version_script)
  # The C linker leaves the C++ runtime out, but CMake would name it for the sake of the C++ objects.
  set(CMAKE_CXX_IMPLICIT_LINK_LIBRARIES "" PARENT_SCOPE)
  set_target_properties(${target} PROPERTIES
    VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR}
    LINKER_LANGUAGE C LINK_DEPENDS "${version_script}")
  target_link_options(${target} PRIVATE "-Wl,--version-script=${version_script}")
  if(NOT QX_VOSK_SANITIZE)
    target_link_options(${target} PRIVATE -Wl,-z,defs)
    if(NOT QX_VOSK_COVERAGE)
      # The system's start files have nothing to do for libraries without constructors, and where they lack the CET
      # marks the linker takes them from the whole file.
      target_link_options(${target} PRIVATE -nostartfiles)
    endif()
  endif()
endfunction()

# qx_find_beside(target rpath install-dir component): a library or program of ours finds our libraries by `rpath`, in the build tree and
# where it is installed; in /usr and /usr/local the system's search finds them. The prefix is known for certain only when
# the installation runs.
function(qx_find_beside target rpath install_dir component)
  # As when installed, because CMake would pad the entry of the build tree with one that means the current directory.
  set_target_properties(${target} PROPERTIES BUILD_WITH_INSTALL_RPATH ON INSTALL_RPATH "${rpath}")
  install(CODE "
    if(CMAKE_INSTALL_PREFIX MATCHES \"^/usr(/local)?/?$\")
      set(installed \"${install_dir}\")
      cmake_path(ABSOLUTE_PATH installed BASE_DIRECTORY \"\${CMAKE_INSTALL_PREFIX}\")
      set(installed \"\$ENV{DESTDIR}\${installed}/$<TARGET_FILE_NAME:${target}>\")
      if(EXISTS \"\${installed}\")
        file(RPATH_REMOVE FILE \"\${installed}\")
      endif()
    endif()" COMPONENT ${component})
endfunction()
