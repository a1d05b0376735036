# What is installed, and packed by cpack. Component `program`: the CGI program, the headers of the
# seam, lighttpd's configuration. Component `host`: the host recorder's programs and files.
include(GNUInstallDirs)

set(RULE_LIBEXEC_DIR "${CMAKE_INSTALL_LIBEXECDIR}/rule_operation")
set(RULE_DATA_DIR "${CMAKE_INSTALL_DATADIR}/rule_operation")

install(TARGETS rule_operation.cgi RUNTIME DESTINATION "${RULE_LIBEXEC_DIR}" COMPONENT program)
install(DIRECTORY platform DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/rule_operation"
        COMPONENT program FILES_MATCHING PATTERN "*.h")
set(RULE_INSTALLED_PROGRAM "${CMAKE_INSTALL_FULL_LIBEXECDIR}/rule_operation/rule_operation.cgi")
# The host recorder's configuration, to which the program's path is added.
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS host/web_server/rule_endpoint.conf)
file(READ host/web_server/rule_endpoint.conf RULE_ENDPOINT_CONF)
file(WRITE "${CMAKE_CURRENT_BINARY_DIR}/lighttpd.conf"
     "var.rule_program = \"${RULE_INSTALLED_PROGRAM}\"\n${RULE_ENDPOINT_CONF}")
install(FILES "${CMAKE_CURRENT_BINARY_DIR}/lighttpd.conf"
        DESTINATION "${RULE_DATA_DIR}" COMPONENT program)
# What is linked in, as scripts/package writes it.
install(FILES "${CMAKE_CURRENT_BINARY_DIR}/rule_operation.spdx"
        DESTINATION "${RULE_DATA_DIR}" COMPONENT program OPTIONAL)

# The host recorder, when it is the platform of this build.
if(TARGET config_service)
    install(TARGETS config_service RUNTIME DESTINATION "${RULE_LIBEXEC_DIR}" COMPONENT host)
    install(FILES host/web_server/lighttpd.conf host/web_server/rule_endpoint.conf
                  host/recorder/cameras.txt
            DESTINATION "${RULE_DATA_DIR}/host" COMPONENT host)
endif()

if(PROJECT_IS_TOP_LEVEL)
    set(CPACK_GENERATOR TGZ)
    set(CPACK_PACKAGE_FILE_NAME "rule_operation-${PROJECT_VERSION}-${CMAKE_SYSTEM_PROCESSOR}")
    set(CPACK_ARCHIVE_COMPONENT_INSTALL ON)
    set(CPACK_COMPONENTS_ALL program)
    set(CPACK_PACKAGING_INSTALL_PREFIX "${CMAKE_INSTALL_PREFIX}")
    set(CPACK_STRIP_FILES ON)
    set(CPACK_PRE_BUILD_SCRIPTS "${CMAKE_CURRENT_SOURCE_DIR}/cmake/set_times.cmake")
    include(CPack)
endif()
