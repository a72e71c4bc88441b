# The files that `cmake --install` installs. The components correspond to the Debian packages: runtime, development, tools,
# session-runtime, session-development, host-development, mqtt and wireshark. debian/*.install names the files of each package.

include(CMakePackageConfigHelpers)

# All headers under include/ are public. scripts/test-install compiles each header by itself.
set(headers_folder ${CMAKE_INSTALL_INCLUDEDIR}/csclient)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/ DESTINATION ${headers_folder} COMPONENT development
    FILES_MATCHING PATTERN "*.h" PATTERN session EXCLUDE)

install(TARGETS csclient_shared csclient_static EXPORT csclientTargets
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development)

set(config_folder ${CMAKE_INSTALL_LIBDIR}/cmake/csclient)
install(EXPORT csclientTargets NAMESPACE csclient:: DESTINATION ${config_folder} COMPONENT development)
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/csclientConfig.cmake.in ${PROJECT_BINARY_DIR}/csclientConfig.cmake
    INSTALL_DESTINATION ${config_folder} NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/csclientConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/csclientConfig.cmake ${PROJECT_BINARY_DIR}/csclientConfigVersion.cmake
    DESTINATION ${config_folder} COMPONENT development)

# The session and the host each have an export set of their own, so that the client library can be installed without them.
if(TARGET csclient-session_shared)
    install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/session DESTINATION ${headers_folder} COMPONENT session-development
        FILES_MATCHING PATTERN "*.h")
    install(TARGETS csclient-session_shared csclient-session_static EXPORT csclient-sessionTargets
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT session-development
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT session-runtime NAMELINK_COMPONENT session-development)
    install(EXPORT csclient-sessionTargets NAMESPACE csclient:: DESTINATION ${config_folder} COMPONENT session-development)
endif()
if(TARGET csclient_host)
    # LoopbackHost.h, and the headers that it includes.
    install(FILES ${PROJECT_SOURCE_DIR}/host/LoopbackHost.h ${PROJECT_SOURCE_DIR}/host/HostEvent.h
        ${PROJECT_SOURCE_DIR}/host/HostOptions.h ${PROJECT_SOURCE_DIR}/host/Scenario.h ${PROJECT_SOURCE_DIR}/host/Value.h
        DESTINATION ${headers_folder}/host COMPONENT host-development)
    foreach(header IN ITEMS Actions Expectation Message Trigger ValueSource)
        install(FILES ${PROJECT_SOURCE_DIR}/host/scenario/${header}.h
            DESTINATION ${headers_folder}/host/scenario COMPONENT host-development)
    endforeach()
    install(TARGETS csclient_host EXPORT csclient-hostTargets
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT host-development)
    install(EXPORT csclient-hostTargets NAMESPACE csclient:: DESTINATION ${config_folder} COMPONENT host-development)
endif()

# The directories may be absolute. They are then not below the prefix.
foreach(folder IN ITEMS INCLUDEDIR LIBDIR)
    if(IS_ABSOLUTE "${CMAKE_INSTALL_${folder}}")
        set(pc_${folder} "${CMAKE_INSTALL_${folder}}")
    else()
        set(pc_${folder} "\${prefix}/${CMAKE_INSTALL_${folder}}")
    endif()
endforeach()
configure_file(${CMAKE_CURRENT_LIST_DIR}/csclient.pc.in ${PROJECT_BINARY_DIR}/csclient.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/csclient.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
if(TARGET csclient-session_shared)
    configure_file(${CMAKE_CURRENT_LIST_DIR}/csclient-session.pc.in ${PROJECT_BINARY_DIR}/csclient-session.pc @ONLY)
    install(FILES ${PROJECT_BINARY_DIR}/csclient-session.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
        COMPONENT session-development)
    install(FILES ${PROJECT_SOURCE_DIR}/man/csclient-session.3 DESTINATION ${CMAKE_INSTALL_MANDIR}/man3
        COMPONENT session-development)
endif()

install(FILES ${PROJECT_SOURCE_DIR}/man/csclient.3 DESTINATION ${CMAKE_INSTALL_MANDIR}/man3 COMPONENT development)

# Files that link the shared library find it in the directory where it was installed, unless the system looks there anyway.
if(NOT CMAKE_INSTALL_PREFIX MATCHES "^/usr(/local)?/?$")
    if(TARGET csclient-session_shared)
        set_target_properties(csclient-session_shared PROPERTIES INSTALL_RPATH "$ORIGIN")
    endif()
    if(BUILD_SHARED_LIBS)
        file(RELATIVE_PATH from_tools_to_libraries ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
        set(tools_rpath "$ORIGIN/${from_tools_to_libraries}")
    endif()
endif()
foreach(tool IN ITEMS cspublish cshost csx)
    if(TARGET ${tool})
        set_target_properties(${tool} PROPERTIES INSTALL_RPATH "${tools_rpath}")
        install(TARGETS ${tool} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
        install(FILES ${PROJECT_SOURCE_DIR}/man/${tool}.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools)
        install(FILES ${PROJECT_SOURCE_DIR}/tools/completion/${tool}.bash RENAME ${tool}
            DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT tools)
    endif()
endforeach()
if(TARGET csx)
    install(FILES ${PROJECT_SOURCE_DIR}/tools/completion/csx.zsh RENAME _csx
        DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions COMPONENT tools)
    install(FILES ${PROJECT_SOURCE_DIR}/tools/completion/csx.fish
        DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d COMPONENT tools)
endif()

if(TARGET csmqtt)
    set_target_properties(csmqtt PROPERTIES INSTALL_RPATH "${tools_rpath}")
    install(TARGETS csmqtt RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT mqtt)
    install(FILES ${PROJECT_SOURCE_DIR}/man/csmqtt.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT mqtt)
    install(FILES ${PROJECT_SOURCE_DIR}/tools/completion/csmqtt.bash RENAME csmqtt
        DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT mqtt)
    install(FILES ${PROJECT_SOURCE_DIR}/tools/completion/csmqtt.zsh RENAME _csmqtt
        DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions COMPONENT mqtt)
    install(FILES ${PROJECT_SOURCE_DIR}/tools/completion/csmqtt.fish
        DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d COMPONENT mqtt)
    install(FILES ${PROJECT_SOURCE_DIR}/packaging/csmqtt.yaml DESTINATION ${CMAKE_INSTALL_SYSCONFDIR}/csmqtt COMPONENT mqtt)
    install(FILES ${PROJECT_SOURCE_DIR}/packaging/systemd/csmqtt.tmpfiles RENAME csmqtt.conf
        DESTINATION lib/tmpfiles.d COMPONENT mqtt)
endif()

# The services, with the options that they get from files.
function(install_service program component)
    file(READ ${PROJECT_SOURCE_DIR}/packaging/systemd/${program}.service unit)
    string(REPLACE "/usr/bin/" "${CMAKE_INSTALL_FULL_BINDIR}/" unit "${unit}")
    file(GENERATE OUTPUT ${PROJECT_BINARY_DIR}/${program}.service CONTENT "${unit}")
    install(FILES ${PROJECT_BINARY_DIR}/${program}.service DESTINATION lib/systemd/system COMPONENT ${component})
    install(FILES ${PROJECT_SOURCE_DIR}/packaging/systemd/${program}.default RENAME ${program}
        DESTINATION ${CMAKE_INSTALL_SYSCONFDIR}/default COMPONENT ${component})
endfunction()
if(TARGET cshost)
    install_service(cshost tools)
endif()
if(TARGET csmqtt)
    install_service(csmqtt mqtt)
endif()

install(DIRECTORY ${PROJECT_SOURCE_DIR}/examples/scenarios DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/csclient-tools/examples
    COMPONENT tools)

# Below the prefix /usr, Wireshark looks there. It needs no other file of the project.
install(FILES ${PROJECT_SOURCE_DIR}/tools/wireshark/csclient.lua DESTINATION ${CMAKE_INSTALL_LIBDIR}/wireshark/plugins
    COMPONENT wireshark)
