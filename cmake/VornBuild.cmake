# Build rules shared by every part of the project.

if(NOT CMAKE_BUILD_TYPE AND NOT CMAKE_CONFIGURATION_TYPES)
    set(CMAKE_BUILD_TYPE Release CACHE STRING "Kind of build" FORCE)
endif()
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/bin)
set(CMAKE_ARCHIVE_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/lib)
# Beside bin/, where the host looks for them.
set(VORN_PLUGIN_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/plugins)
set(VORN_PLUGIN_INSTALL_DIR lib/vorn/plugins)

include(CheckCXXCompilerFlag)
check_cxx_compiler_flag(-fno-gnu-unique VORN_HAS_NO_GNU_UNIQUE)
check_cxx_compiler_flag("-ffile-prefix-map=a=b" VORN_HAS_FILE_PREFIX_MAP)

add_library(vorn_warnings INTERFACE)
target_compile_options(vorn_warnings INTERFACE
    -Wall -Wextra -Wpedantic -Wmissing-field-initializers -Wunused-function
    $<$<BOOL:${VORN_WERROR}>:-Werror>)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
    # g++ 12 sees overlapping copies in plain string concatenation (its bug 105651).
    target_compile_options(vorn_warnings INTERFACE -Wno-restrict)
endif()
if(VORN_HAS_FILE_PREFIX_MAP)
    target_compile_options(vorn_warnings INTERFACE
        "-ffile-prefix-map=${PROJECT_SOURCE_DIR}/=")
endif()

# vorn_add_plugin(NAME SOURCE...)
# The library lib<NAME>.plugin.so: nothing visible but the five entry points, and nothing that
# keeps it mapped after dlclose.
function(vorn_add_plugin name)
    string(REPLACE "." "_" target ${name}_plugin)
    add_library(${target} MODULE ${ARGN})
    set_target_properties(${target} PROPERTIES
        OUTPUT_NAME ${name}.plugin
        LIBRARY_OUTPUT_DIRECTORY ${VORN_PLUGIN_OUTPUT_DIRECTORY}
        CXX_STANDARD 20
        CXX_STANDARD_REQUIRED ON
        CXX_VISIBILITY_PRESET hidden
        VISIBILITY_INLINES_HIDDEN ON
        LINK_DEPENDS ${PROJECT_SOURCE_DIR}/cmake/plugin.map)
    target_compile_options(${target} PRIVATE -fno-rtti
        $<$<BOOL:${VORN_HAS_NO_GNU_UNIQUE}>:-fno-gnu-unique>)
    target_link_options(${target} PRIVATE
        "LINKER:--version-script=${PROJECT_SOURCE_DIR}/cmake/plugin.map" LINKER:--as-needed)
    target_link_libraries(${target} PRIVATE vorn::headers vorn_warnings)
    install(TARGETS ${target}
        LIBRARY DESTINATION ${VORN_PLUGIN_INSTALL_DIR} COMPONENT plugins)
endfunction()

# vorn_optional_part(PART DIRECTORY PACKAGES name... PKG_CONFIG name...)
# Adds the directory when VORN_BUILD_<PART> allows it and every library is found; says so.
function(vorn_optional_part part directory)
    cmake_parse_arguments(arg "" "" "PACKAGES;PKG_CONFIG" ${ARGN})
    set(wanted ${VORN_BUILD_${part}})
    string(TOLOWER ${part} what)
    if(NOT wanted STREQUAL "AUTO" AND NOT wanted)
        message(STATUS "${what}: off")
        return()
    endif()
    set(missing "")
    foreach(package IN LISTS arg_PACKAGES)
        find_package(${package} QUIET)
        if(NOT ${package}_FOUND)
            list(APPEND missing ${package})
        endif()
    endforeach()
    if(arg_PKG_CONFIG)
        find_package(PkgConfig QUIET)
        foreach(module IN LISTS arg_PKG_CONFIG)
            if(PkgConfig_FOUND)
                string(MAKE_C_IDENTIFIER ${module} prefix)
                pkg_check_modules(${prefix} QUIET IMPORTED_TARGET ${module})
            endif()
            if(NOT PkgConfig_FOUND OR NOT ${prefix}_FOUND)
                list(APPEND missing ${module})
            endif()
        endforeach()
    endif()
    if(NOT missing)
        message(STATUS "${what}: on")
        add_subdirectory(${directory})
    elseif(wanted STREQUAL "AUTO")
        list(JOIN missing ", " names)
        message(STATUS "${what}: left out, not found: ${names}")
    else()
        list(JOIN missing ", " names)
        message(FATAL_ERROR "VORN_BUILD_${part} is ${wanted}, but these are missing: ${names}")
    endif()
endfunction()
