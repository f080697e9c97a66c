# Packages: `cmake --build BUILD --target package` makes Debian's and a tarball that can be unpacked anywhere.
set(components library development)
if(TARGET sve-run)
  list(APPEND components runner)
endif()
if(TARGET sve-report)
  list(APPEND components report)
endif()

set(CPACK_GENERATOR DEB TGZ)
set(CPACK_PACKAGE_NAME sve-stats-896)
set(CPACK_PACKAGE_VENDOR "the developers of sve_stats_896")
set(SVE_MAINTAINER "sve_stats_896 developers <sve-stats-896@debian.invalid>" CACHE STRING "The packages' maintainer")
set(CPACK_PACKAGE_CONTACT ${SVE_MAINTAINER})
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/packages)
set(CPACK_COMPONENTS_ALL ${components})
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_STRIP_FILES TRUE)
set(CPACK_ARCHIVE_COMPONENT_INSTALL OFF)
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/finish_package.cmake)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION TRUE)
set(architecture ${CMAKE_SYSTEM_PROCESSOR})
if(architecture MATCHES "^(aarch64|arm64)$")
  set(architecture arm64)
elseif(architecture MATCHES "^(x86_64|AMD64)$")
  set(architecture amd64)
endif()
set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE ${architecture})

string(TIMESTAMP build_date "%a, %d %b %Y %H:%M:%S +0000" UTC)

# debian_package(COMPONENT NAME SECTION "depends" "summary" "description")
macro(debian_package component name section depends summary description)
  string(TOUPPER ${component} upper)
  set(CPACK_DEBIAN_${upper}_PACKAGE_NAME ${name})
  set(CPACK_DEBIAN_${upper}_PACKAGE_SECTION ${section})
  set(CPACK_DEBIAN_${upper}_PACKAGE_DEPENDS "${depends}")
  set(CPACK_DEBIAN_${upper}_DESCRIPTION "${summary}\n${description}")
  install(FILES ${PROJECT_SOURCE_DIR}/cmake/copyright DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${name}
          COMPONENT ${component})
  file(WRITE ${PROJECT_BINARY_DIR}/${name}.changelog
    "${name} (${PROJECT_VERSION}) unstable; urgency=medium\n\n  * Built from source; CHANGELOG.md there tells what changed.\n\n"
    " -- ${SVE_MAINTAINER}  ${build_date}\n")
  install(FILES ${PROJECT_BINARY_DIR}/${name}.changelog RENAME changelog
          DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${name} COMPONENT ${component})
endmacro()

# What the C and C++ libraries of the build have to be, at least.
set(c_library "libc6 (>= 2.36)")
set(cxx_library "libstdc++6 (>= 12), libgcc-s1 (>= 3.0)")
set(library_package libsve-stats-896-${PROJECT_VERSION_MAJOR})
debian_package(library ${library_package} libs "${c_library}, ${cxx_library}"
  "model of the SVE instruction set at 896 bits, shared library"
  "Executes single SVE instructions of AArch64 on a state in memory, exact to the\nbit, on any processor.")
debian_package(development libsve-stats-896-dev libdevel "${library_package} (= ${PROJECT_VERSION})"
  "model of the SVE instruction set at 896 bits, development files"
  "Headers, a CMake package and a pkg-config file for libsve_stats_896, and the\nreference of its operations.")
set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_EXTRA ${PROJECT_BINARY_DIR}/triggers ${PROJECT_BINARY_DIR}/shlibs)
file(WRITE ${PROJECT_BINARY_DIR}/triggers "activate-noawait ldconfig\n")
set(libraries "")
foreach(length ${SVE_VECTOR_BITS} ${further_lengths})
  string(APPEND libraries "libsve_stats_${length} ${PROJECT_VERSION_MAJOR} ${library_package}\n")
endforeach()
file(WRITE ${PROJECT_BINARY_DIR}/shlibs "${libraries}")
if(TARGET sve-run)
  set(CPACK_DEBIAN_RUNNER_PACKAGE_CONTROL_EXTRA ${PROJECT_BINARY_DIR}/triggers)
  install(FILES ${PROJECT_SOURCE_DIR}/cmake/sve-run.lintian-overrides RENAME sve-run
          DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides COMPONENT runner)
  set(CPACK_DEBIAN_RUNNER_PACKAGE_RECOMMENDS sve-report)
  debian_package(runner sve-run utils "${c_library}"
    "runs AArch64 programs that use SVE on processors without it"
    "Serves each SVE instruction of an unmodified program by a software model with a\nvector length of 896 bits, or another that is asked for, exact to the bit; all others run natively.")
endif()
if(TARGET sve-report)
  debian_package(report sve-report utils "${c_library}, ${cxx_library}, libdw1 (>= 0.188), libelf1 (>= 0.188)"
    "reports of what SVE programs have executed"
    "Makes pages, JSON and text of what sve-run has counted, by instruction, function,\nsource line and loop, and compares two runs.")
endif()
include(CPack)
