# What is installed, and packed by cpack, as the component `program`: the CGI program, the platform headers,
# lighttpd's configuration, and the list of what is linked in.
include(GNUInstallDirs)

set(RULE_LIBEXEC_DIR "${CMAKE_INSTALL_LIBEXECDIR}/rule_operation")
set(RULE_DATA_DIR "${CMAKE_INSTALL_DATADIR}/rule_operation")

install(TARGETS rule_operation.cgi RUNTIME DESTINATION "${RULE_LIBEXEC_DIR}" COMPONENT program)
install(DIRECTORY platform DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/rule_operation"
        COMPONENT program FILES_MATCHING PATTERN "*.h")
# Two files are written during installation: lighttpd's lines with the program's path under the prefix that is
# chosen then, and the list of what is linked in.
string(CONFIGURE [[
    set(path "@RULE_LIBEXEC_DIR@/rule_operation.cgi")
    cmake_path(ABSOLUTE_PATH path BASE_DIRECTORY "${CMAKE_INSTALL_PREFIX}")
    file(READ "@CMAKE_CURRENT_SOURCE_DIR@/host/web_server/rule_endpoint.conf" endpoint)
    file(WRITE "@CMAKE_CURRENT_BINARY_DIR@/lighttpd.conf" "var.rule_program = \"${path}\"\n${endpoint}")
    execute_process(COMMAND python3 "@CMAKE_CURRENT_SOURCE_DIR@/cmake/linked_libraries.py"
                            "@CMAKE_CURRENT_BINARY_DIR@" @PROJECT_VERSION@
                    OUTPUT_FILE "@CMAKE_CURRENT_BINARY_DIR@/rule_operation.spdx" RESULT_VARIABLE result)
    if(NOT result EQUAL 0)
        file(REMOVE "@CMAKE_CURRENT_BINARY_DIR@/rule_operation.spdx")
        message(WARNING "The list of what is linked in, rule_operation.spdx, is missing: it needs Python 3")
    endif()
]] write_files @ONLY)
install(CODE "${write_files}" COMPONENT program)
install(FILES "${CMAKE_CURRENT_BINARY_DIR}/lighttpd.conf"
        DESTINATION "${RULE_DATA_DIR}" COMPONENT program)
install(FILES "${CMAKE_CURRENT_BINARY_DIR}/rule_operation.spdx"
        DESTINATION "${RULE_DATA_DIR}" COMPONENT program OPTIONAL)

if(PROJECT_IS_TOP_LEVEL)
    set(CPACK_GENERATOR TGZ)
    set(CPACK_PACKAGE_FILE_NAME "rule_operation-${PROJECT_VERSION}-${CMAKE_SYSTEM_PROCESSOR}")
    set(CPACK_ARCHIVE_COMPONENT_INSTALL ON)
    set(CPACK_COMPONENTS_ALL program)
    set(CPACK_SET_DESTDIR ON)
    set(CPACK_STRIP_FILES ON)
    set(CPACK_PRE_BUILD_SCRIPTS "${CMAKE_CURRENT_SOURCE_DIR}/cmake/set_times.cmake")
    include(CPack)
endif()
