# Run by CPack when everything is installed for packaging, before it is packed: adds what only a Debian package has.

file(GLOB components ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/*)
foreach(component IN LISTS components)
    get_filename_component(name ${component} NAME)
    string(TOUPPER ${name} name)
    set(package ${CPACK_DEBIAN_${name}_PACKAGE_NAME})
    set(documents ${component}/usr/share/doc/${package})
    file(COPY ${CPACK_CSCLIENT_PACKAGING}/changelog ${CPACK_CSCLIENT_PACKAGING}/copyright DESTINATION ${documents}
        FILE_PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)

    # Without name and time, so that the same content is the same file on every architecture.
    file(GLOB manuals ${component}/usr/share/man/man*/*)
    execute_process(COMMAND gzip -9n ${manuals} ${documents}/changelog COMMAND_ERROR_IS_FATAL ANY)

    if(EXISTS ${CPACK_CSCLIENT_PACKAGING}/lintian-overrides/${package})
        file(COPY ${CPACK_CSCLIENT_PACKAGING}/lintian-overrides/${package}
            DESTINATION ${component}/usr/share/lintian/overrides
            FILE_PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
    endif()
endforeach()
