# How the program is linked, as RULE_LINK says: static (everything from archives: it needs no file but its
# own), mixed (from archives what RULE_MIXED_ARCHIVES names), shared, or empty: static, or shared if an archive
# is missing. docs/porting.md says which to choose. This file comes before the platform, whose own searches then
# find an archive before a shared library if the program is to be static.
set(RULE_LINK "" CACHE STRING "How the program is linked: static, mixed, shared or empty")
set(RULE_MIXED_ARCHIVES JSONCPP CACHE STRING
    "What is linked from archives with RULE_LINK=mixed: any of JSONCPP, JSON_C, LIBSTDCXX")
set(RULE_ARCHIVE_DIR "${CMAKE_CURRENT_SOURCE_DIR}/build/archives/${CMAKE_LIBRARY_ARCHITECTURE}" CACHE PATH
    "Archives that the system does not have, from scripts/lib/make-archives")

set(archives JSONCPP JSON_C)
if(RULE_LINK STREQUAL "mixed")
    set(archives ${RULE_MIXED_ARCHIVES})
elseif(RULE_LINK STREQUAL "shared")
    set(archives)
elseif(NOT RULE_LINK MATCHES "^(static)?$")
    message(FATAL_ERROR "RULE_LINK is '${RULE_LINK}', none of static, mixed, shared")
endif()
if(NOT "${archives}" MATCHES "^((JSONCPP|JSON_C|LIBSTDCXX)(;|$))*$")
    message(FATAL_ERROR "RULE_MIXED_ARCHIVES is '${archives}', a list of JSONCPP, JSON_C and LIBSTDCXX")
endif()

# Defines the target PkgConfig::LIBRARY, from an archive if the list `archives` contains LIBRARY.
function(import_library library module)
    if(library IN_LIST archives)
        set(CMAKE_FIND_LIBRARY_SUFFIXES .a)
        list(PREPEND CMAKE_LIBRARY_PATH "${RULE_ARCHIVE_DIR}")
        list(APPEND CMAKE_FIND_ROOT_PATH "${RULE_ARCHIVE_DIR}")
    endif()
    pkg_check_modules(${library} REQUIRED IMPORTED_TARGET ${module})
    if(NOT pkgcfg_lib_${library}_${module})
        set(missing_archives ${missing_archives} lib${module}.a PARENT_SCOPE)
    endif()
endfunction()
find_package(PkgConfig REQUIRED)
import_library(JSONCPP jsoncpp)
import_library(JSON_C json-c)
if(RULE_LINK MATCHES "^(static)?$" AND NOT missing_archives)
    set(CMAKE_FIND_LIBRARY_SUFFIXES .a .so)
endif()

# Chooses how the program is linked, once the missing archives are known, including those of the platform.
function(link_program program)
    set(linking "${RULE_LINK}")
    list(JOIN missing_archives ", no " missing)
    if(missing AND linking)
        message(FATAL_ERROR "RULE_LINK is ${linking}, but there is no ${missing}: see docs/porting.md")
    elseif(missing)
        set(linking "shared, so that each request takes about twice as long: there is no ${missing}")
        set_target_properties(PkgConfig::JSONCPP PROPERTIES INTERFACE_LINK_LIBRARIES "${JSONCPP_LDFLAGS}")
        set_target_properties(PkgConfig::JSON_C PROPERTIES INTERFACE_LINK_LIBRARIES "${JSON_C_LDFLAGS}")
    elseif(linking MATCHES "^(static)?$")
        set(linking static)
        set_target_properties(${program} PROPERTIES RULE_STATIC ON)
    endif()
    target_link_options(${program} PRIVATE
        "$<$<IN_LIST:LIBSTDCXX,${archives}>:-static-libstdc++;-static-libgcc>")
    message(NOTICE "The program is linked ${linking}")
    file(WRITE "${PROJECT_BINARY_DIR}/linking.txt" "the program is linked ${linking}\n")
endfunction()
