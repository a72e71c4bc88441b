# Each library exists twice, shared and static, and both consist of the same objects. BUILD_SHARED_LIBS selects which one the short
# name refers to. The other one is built only when it is installed or a target links it.

include(GNUInstallDirs)

if(BUILD_SHARED_LIBS)
    set(CSCLIENT_KIND shared)
else()
    set(CSCLIENT_KIND static)
endif()

# csclient_library(NAME OBJECTS OUTPUT [DEPENDS...]): adds csclient::NAME, csclient::NAME_shared and csclient::NAME_static, which
# consist of the objects of the target OBJECTS. OUTPUT is the name of the files. DEPENDS are other such libraries, without a kind.
function(csclient_library name objects output)
    target_link_libraries(${objects} PUBLIC Threads::Threads)
    target_compile_features(${objects} PUBLIC cxx_std_17)
    target_include_directories(${objects} PRIVATE ${PROJECT_SOURCE_DIR}/include ${PROJECT_SOURCE_DIR})
    foreach(kind IN ITEMS shared static)
        string(TOUPPER ${kind} type)
        set(library ${output}_${kind})
        add_library(${library} ${type} $<TARGET_OBJECTS:${objects}>)
        add_library(csclient::${name}_${kind} ALIAS ${library})
        target_compile_features(${library} PUBLIC cxx_std_17)
        # The build tree and an installation both include headers as <client/SimClient.h>.
        target_include_directories(${library} PUBLIC
            $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>
            $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/csclient>)
        target_link_libraries(${library} PUBLIC Threads::Threads)
        foreach(dependency IN LISTS ARGN)
            target_link_libraries(${library} PUBLIC ${dependency}_${kind})
        endforeach()
        set_target_properties(${library} PROPERTIES OUTPUT_NAME ${output} EXPORT_NAME ${name}_${kind})
        if(NOT CSCLIENT_INSTALL AND NOT kind STREQUAL CSCLIENT_KIND)
            set_target_properties(${library} PROPERTIES EXCLUDE_FROM_ALL TRUE)
        endif()
    endforeach()
    set(library ${output}_shared)
    set_target_properties(${library} PROPERTIES
        VERSION ${PROJECT_VERSION}
        SOVERSION ${PROJECT_VERSION_MAJOR}
        LINK_DEPENDS ${PROJECT_SOURCE_DIR}/cmake/ExportedSymbols.map)
    # Bind calls inside the library directly, which is smaller and faster.
    target_link_options(${library} PRIVATE
        LINKER:--version-script=${PROJECT_SOURCE_DIR}/cmake/ExportedSymbols.map
        LINKER:-Bsymbolic-functions)
    # The library must stay loaded when an application unloads a plugin that uses it. A detached thread may still run a few of its
    # instructions: the worker after it has announced STATE_DISCONNECTED, or the look-up of a name that was given up.
    target_link_options(${library} PRIVATE LINKER:-z,nodelete)
    add_library(csclient::${name} ALIAS ${output}_${CSCLIENT_KIND})
endfunction()

csclient_library(csclient csclient_objects csclient)
add_library(csclient ALIAS csclient_${CSCLIENT_KIND})
