# The Debian packages that CPack makes of an installation, one for each use:
#
#   vorn-plugins    component plugins: what programs load at run time
#   libvorn-dev     components headers and host: what programs are built with. The host library is
#                   static, so there is no package of it to run them
#   vorn-settings   component tool: whatever is installed under that component
#
# To be included after the last install(). Configure the preset "package", build, run cpack.

find_program(VORN_GZIP gzip)
find_program(VORN_SHLIBDEPS dpkg-shlibdeps)
if(NOT VORN_GZIP OR NOT VORN_SHLIBDEPS)
    message(STATUS "packages: left out, not found: gzip or dpkg-shlibdeps")
    return()
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME ${PROJECT_NAME})
set(CPACK_PACKAGE_VENDOR "The vorn developers")
set(CPACK_PACKAGE_CONTACT "The vorn developers <developers@vorn.invalid>")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "") # every package has its own
set(CPACK_STRIP_FILES ON)
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_LIST_DIR}/compress_manuals.cmake)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_COMPONENTS_GROUPING ONE_PER_GROUP)
set(CPACK_COMPONENTS_ALL "")
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(VORN_PACKAGE_VERSION ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})
string(TIMESTAMP VORN_PACKAGE_DATE "%a, %d %b %Y %H:%M:%S +0000" UTC) # or SOURCE_DATE_EPOCH

set(VORN_PACKAGE_CHANGELOG
"@package@ (@VORN_PACKAGE_VERSION@) unstable; urgency=medium

  * Version @PROJECT_VERSION@; CHANGELOG.md of the sources says what changed.

 -- @CPACK_PACKAGE_CONTACT@  @VORN_PACKAGE_DATE@
")
# What lintian is told to expect, with the reason.
set(VORN_PACKAGE_OVERRIDES
"# It goes to no archive that keeps a list of wishes for packages.
@package@: initial-upload-closes-no-bugs
# The licence names its authors and no year.
@package@: copyright-without-copyright-notice
")

# vorn_package(PACKAGE COMPONENTS name... SECTION name SUMMARY line DESCRIPTION line...
#     [DEPENDS text] [SHLIBDEPS])
# The package of those components, with what every Debian package says of itself. A macro, for the
# sake of the variables that CPack reads.
macro(vorn_package name)
    set(package ${name})
    cmake_parse_arguments(arg
        "SHLIBDEPS" "SECTION;SUMMARY;DEPENDS" "COMPONENTS;DESCRIPTION" ${ARGN})

    set(share ${PROJECT_BINARY_DIR}/packaging/${package})
    set(changelog ${share}/doc/${package}/changelog.Debian)
    file(CONFIGURE OUTPUT ${changelog} CONTENT "${VORN_PACKAGE_CHANGELOG}" @ONLY)
    execute_process(COMMAND ${VORN_GZIP} -9nf ${changelog})
    configure_file(LICENSE ${share}/doc/${package}/copyright COPYONLY)
    file(CONFIGURE OUTPUT ${share}/lintian/overrides/${package}
        CONTENT "${VORN_PACKAGE_OVERRIDES}" @ONLY)
    list(GET arg_COMPONENTS 0 component)
    # EXCLUDE_FROM_ALL: in the package and in no other installation.
    install(DIRECTORY ${share}/ DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}
        COMPONENT ${component} EXCLUDE_FROM_ALL)

    foreach(component IN LISTS arg_COMPONENTS)
        string(TOUPPER ${component} upper)
        set(CPACK_COMPONENT_${upper}_GROUP ${package})
        list(APPEND CPACK_COMPONENTS_ALL ${component})
    endforeach()
    string(TOUPPER ${package} upper)
    list(JOIN arg_DESCRIPTION "\n" description)
    set(CPACK_DEBIAN_${upper}_PACKAGE_NAME ${package})
    set(CPACK_DEBIAN_${upper}_DESCRIPTION "${arg_SUMMARY}\n${description}")
    set(CPACK_DEBIAN_${upper}_PACKAGE_SECTION ${arg_SECTION})
    set(CPACK_DEBIAN_${upper}_PACKAGE_DEPENDS "${arg_DEPENDS}")
    set(CPACK_DEBIAN_${upper}_PACKAGE_SHLIBDEPS ${arg_SHLIBDEPS})
endmacro()

set(VORN_SAME_PLUGINS "vorn-plugins (= ${VORN_PACKAGE_VERSION})")
vorn_package(vorn-plugins COMPONENTS plugins SECTION libs SHLIBDEPS
    SUMMARY "settings store that lives inside a program (plugins)"
    DESCRIPTION
        "Programs keep typed settings by path, watch them, merge layers of them and"
        "write them in transactions, through one table of functions. This package"
        "holds the plugins that they load: the store, and the dictionary service"
        "that it keeps its tree in.")
vorn_package(libvorn-dev COMPONENTS host headers SECTION libdevel DEPENDS "${VORN_SAME_PLUGINS}"
    SUMMARY "settings store that lives inside a program (development files)"
    DESCRIPTION
        "Headers, the static host library that loads the plugins, and what CMake and"
        "pkg-config need to find them.")
if(TARGET vorn-settings)
    vorn_package(vorn-settings COMPONENTS tool SECTION utils SHLIBDEPS
        DEPENDS "${VORN_SAME_PLUGINS}"
        SUMMARY "command-line tool for settings in JSON files"
        DESCRIPTION
            "Reads, writes, watches, merges and compares settings files from the shell"
            "or a script, and leaves what it is not told to change as it is.")
endif()

include(CPack)
