# `cpack -G DEB` after a shared release build with -DCMAKE_INSTALL_PREFIX=/usr: scripts/check-packages
# does it and tries the result.
set(CPACK_PACKAGE_VENDOR "Paperloom")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "Paperloom maintainers <maintainers@paperloom.example>" CACHE STRING
    "Who answers for the Debian packages")
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/paperloom)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_COMPONENTS_ALL "")

find_program(GZIP gzip REQUIRED)
execute_process(COMMAND ${GZIP} -9nc ${PROJECT_SOURCE_DIR}/cmake/debian/changelog
                OUTPUT_FILE ${PROJECT_BINARY_DIR}/changelog.gz COMMAND_ERROR_IS_FATAL ANY)

# debian_package(COMPONENT NAME SECTION section DEPENDS list RECOMMENDS list SUMMARY line TEXT paragraph)
# makes the package NAME of what is installed as COMPONENT.
macro(debian_package component name)
  cmake_parse_arguments(arg "" "SECTION;DEPENDS;RECOMMENDS;SUMMARY;TEXT" "" ${ARGN})
  string(TOUPPER ${component} key)
  list(APPEND CPACK_COMPONENTS_ALL ${component})
  set(CPACK_DEBIAN_${key}_PACKAGE_NAME ${name})
  set(CPACK_DEBIAN_${key}_PACKAGE_SECTION ${arg_SECTION})
  set(CPACK_DEBIAN_${key}_PACKAGE_DEPENDS "${arg_DEPENDS}")
  set(CPACK_DEBIAN_${key}_PACKAGE_RECOMMENDS "${arg_RECOMMENDS}")
  set(CPACK_COMPONENT_${key}_DESCRIPTION "${arg_SUMMARY}\n${arg_TEXT}")
  set(CPACK_DEBIAN_${key}_DESCRIPTION "${arg_SUMMARY}\n${arg_TEXT}")
  foreach(file IN ITEMS ${PROJECT_SOURCE_DIR}/cmake/debian/copyright ${PROJECT_BINARY_DIR}/changelog.gz)
    install(FILES ${file} DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/${name} COMPONENT ${component} EXCLUDE_FROM_ALL)
  endforeach()
endmacro()

set(same_library "libpaperloom${PROJECT_VERSION_MAJOR} (= ${PROJECT_VERSION})")
# What is loaded late is none of what the binaries name.
debian_package(library libpaperloom${PROJECT_VERSION_MAJOR} SECTION libs
  DEPENDS "libcurl4 (>= 7.88), libssl3, libbrotli1, libgif7"
  SUMMARY "news for reading applications (shared library)"
  TEXT "Paperloom fetches and models the news, keeps a copy for the time without\na network, and deals with the reader's account. This package holds what\nprograms need to run.")
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)  # where there is a library
set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/cmake/debian/triggers)
debian_package(development libpaperloom-dev SECTION libdevel
  DEPENDS "${same_library}, libexpected-dev"
  SUMMARY "news for reading applications (headers)"
  TEXT "Paperloom fetches and models the news, keeps a copy for the time without\na network, and deals with the reader's account. This package holds what\nprograms are built with, by CMake or pkg-config.")
if(PAPERLOOM_TESTING)
  debian_package(testing paperloom-testing-dev SECTION libdevel
    DEPENDS "libpaperloom-dev (= ${PROJECT_VERSION}), zlib1g-dev, libssl-dev"
    SUMMARY "news for reading applications (test kit)"
    TEXT "Paperloom fetches and models the news, keeps a copy for the time without\na network, and deals with the reader's account. This package holds what\ntests of such programs need: a sample newspaper that misbehaves on request,\nservers that say what they are told, and a clock that the test moves.")
endif()
if(PAPERLOOM_APPS)
  debian_package(reader paperloom SECTION net
    DEPENDS "${same_library}" RECOMMENDS "libchafa0, libsecret-1-0"
    SUMMARY "reader of the news for the terminal"
    TEXT "Shows the front page, stories and pictures of a news service, keeps them\nfor the time without a network, and knows the reader's account. Without a\nservice it reads the sample newspaper that it brings along.")
endif()
include(CPack)
