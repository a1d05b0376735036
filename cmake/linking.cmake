# How the program is linked; docs/porting.md says which to choose. RULE_LINK is one of
#
#   static  everything from archives: the program needs no file but its own
#   mixed   from archives what RULE_MIXED_ARCHIVES names, everything else shared
#   shared  every library shared
#
# or empty: static, or shared if an archive is missing; the message then names the archive.
set(RULE_LINK "" CACHE STRING "How the program is linked: static, mixed, shared or empty")
set_property(CACHE RULE_LINK PROPERTY STRINGS "" static mixed shared)
set(RULE_MIXED_ARCHIVES JSONCPP CACHE STRING
    "What is linked from archives with RULE_LINK=mixed: any of JSONCPP, JSON_C, LIBSTDCXX")
set(RULE_ARCHIVE_DIR "${CMAKE_CURRENT_SOURCE_DIR}/build/archives/${CMAKE_LIBRARY_ARCHITECTURE}" CACHE PATH
    "Archives that the system does not have, from scripts/lib/make-archives")

find_library(JSONCPP_ARCHIVE libjsoncpp.a)
find_library(JSONCPP_ARCHIVE libjsoncpp.a
             PATHS "${RULE_ARCHIVE_DIR}" NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH)
find_library(JSON_C_ARCHIVE libjson-c.a)

include(CheckCXXSourceCompiles)
set(CMAKE_REQUIRED_LINK_OPTIONS -static)
check_cxx_source_compiles("#include <string>\nint main() { return std::string().size() > 0; }"
                          RULE_COMPILER_HAS_ARCHIVES)
# One bit instead of 24 bytes for each of the program's own addresses, if the C library supports it.
set(PACK_RELOCATIONS -Wl,-z,pack-relative-relocs)
set(CMAKE_REQUIRED_LINK_OPTIONS -Wl,--fatal-warnings ${PACK_RELOCATIONS})
check_cxx_source_compiles("#include <cstdlib>
                          static_assert(__GLIBC_PREREQ(2, 36));
                          int main() {}" RULE_LINKER_PACKS_RELOCATIONS)
unset(CMAKE_REQUIRED_LINK_OPTIONS)

# The shared libraries that a target is linked with, directly or through other targets.
function(find_shared_libraries target result)
    set(found)
    get_target_property(type ${target} TYPE)
    get_target_property(libraries ${target} INTERFACE_LINK_LIBRARIES)
    if(type STREQUAL "STATIC_LIBRARY")
        get_target_property(libraries ${target} LINK_LIBRARIES)
    elseif(type STREQUAL "SHARED_LIBRARY")
        list(APPEND found ${target})
    endif()
    foreach(library IN LISTS libraries)
        if(TARGET "${library}")
            find_shared_libraries("${library}" more)
            list(APPEND found ${more})
        elseif(library MATCHES "\\.so[.0-9]*$")
            list(APPEND found "${library}")
        endif()
    endforeach()
    list(REMOVE_DUPLICATES found)
    set(${result} ${found} PARENT_SCOPE)
endfunction()

# The archives that are missing for a static link.
function(find_missing_archives result)
    find_shared_libraries(rule_platform missing)
    list(FILTER missing EXCLUDE REGEX "/libjson(cpp|-c)\\.so")
    list(TRANSFORM missing PREPEND "archive for ")
    if(NOT JSONCPP_ARCHIVE)
        list(APPEND missing "libjsoncpp.a (scripts/lib/make-archives builds it)")
    endif()
    if(NOT JSON_C_ARCHIVE)
        list(APPEND missing libjson-c.a)
    endif()
    if(NOT RULE_COMPILER_HAS_ARCHIVES)
        list(APPEND missing "libc.a and libstdc++.a for the compiler")
    endif()
    set(${result} ${missing} PARENT_SCOPE)
endfunction()

# Sets how the program is linked, once it and the platform are defined.
function(link_program program)
    set(linking ${RULE_LINK})
    find_missing_archives(missing)
    list(JOIN missing ", no " missing)
    if(RULE_LINK STREQUAL "")
        set(linking static)
        if(missing)
            set(linking shared)
            set(reason ": there is no ${missing}")
        endif()
    elseif(RULE_LINK STREQUAL "static" AND missing)
        message(FATAL_ERROR "RULE_LINK is static, but there is no ${missing}")
    endif()

    set(archives)
    if(linking STREQUAL "static")
        set(archives JSONCPP JSON_C)
        set_target_properties(${program} PROPERTIES RULE_STATIC ON)
        # The linker warns of functions that load modules of the C library at run time.
        target_link_options(${program} PRIVATE $<$<BOOL:${RULE_WERROR}>:-Wl,--fatal-warnings>)
        target_link_options(${program} PRIVATE
            $<$<BOOL:${RULE_LINKER_PACKS_RELOCATIONS}>:${PACK_RELOCATIONS}>)
    elseif(linking STREQUAL "mixed")
        set(archives ${RULE_MIXED_ARCHIVES})
    elseif(NOT linking STREQUAL "shared")
        message(FATAL_ERROR "RULE_LINK is '${RULE_LINK}', none of static, mixed, shared")
    endif()
    if("LIBSTDCXX" IN_LIST archives)
        target_link_options(${program} PRIVATE -static-libstdc++ -static-libgcc)
        list(REMOVE_ITEM archives LIBSTDCXX)
    endif()
    foreach(library IN LISTS archives)
        if(NOT ${library}_ARCHIVE)
            message(FATAL_ERROR "RULE_MIXED_ARCHIVES: there is no archive for '${library}'; the list may"
                    " have JSONCPP, JSON_C and LIBSTDCXX")
        endif()
        set(shared ${${library}_LINK_LIBRARIES})
        set(is_shared $<STREQUAL:$<TARGET_PROPERTY:TYPE>,SHARED_LIBRARY>)
        set_target_properties(PkgConfig::${library} PROPERTIES
            INTERFACE_LINK_LIBRARIES "$<IF:${is_shared},${shared},${${library}_ARCHIVE}>")
    endforeach()

    set(inputs "${PROJECT_BINARY_DIR}/${program}.inputs")
    target_link_options(${program} PRIVATE "LINKER:--dependency-file=${inputs}")
    add_custom_command(TARGET ${program} POST_BUILD COMMAND "${CMAKE_COMMAND}" "-DINPUTS=${inputs}"
                       "-DPROGRAM=$<TARGET_FILE:${program}>"
                       -P "${PROJECT_SOURCE_DIR}/cmake/check_linking.cmake" VERBATIM)

    message(NOTICE "The program is linked ${linking}${reason}")
    file(WRITE "${PROJECT_BINARY_DIR}/linking.txt" "the program is linked ${linking}${reason}\n")
endfunction()
