# The two libraries, csclient::csclient_shared and csclient::csclient_static, consist of the same objects. BUILD_SHARED_LIBS
# selects which one csclient::csclient is. The other one is built only when it is installed or a target links it.

include(GNUInstallDirs)

add_library(csclient_shared SHARED $<TARGET_OBJECTS:csclient_objects>)
add_library(csclient_static STATIC $<TARGET_OBJECTS:csclient_objects>)
target_link_libraries(csclient_objects PUBLIC Threads::Threads)
target_compile_features(csclient_objects PUBLIC cxx_std_17)
target_include_directories(csclient_objects PRIVATE ${PROJECT_SOURCE_DIR}/include ${PROJECT_SOURCE_DIR})

foreach(library IN ITEMS csclient_shared csclient_static)
    add_library(csclient::${library} ALIAS ${library})
    target_compile_features(${library} PUBLIC cxx_std_17)
    # The build tree and an installation both include headers as <client/SimClient.h>.
    target_include_directories(${library} PUBLIC
        $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>
        $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/csclient>)
    target_link_libraries(${library} PUBLIC Threads::Threads)
    set_target_properties(${library} PROPERTIES OUTPUT_NAME csclient)
endforeach()

set_target_properties(csclient_shared PROPERTIES
    VERSION ${PROJECT_VERSION}
    SOVERSION ${PROJECT_VERSION_MAJOR}
    LINK_DEPENDS ${PROJECT_SOURCE_DIR}/cmake/ExportedSymbols.map)
# Bind calls inside the library directly, which is smaller and faster.
target_link_options(csclient_shared PRIVATE
    LINKER:--version-script=${PROJECT_SOURCE_DIR}/cmake/ExportedSymbols.map
    LINKER:-Bsymbolic-functions)
# The library must stay loaded when an application unloads a plugin that uses it. The detached worker thread of a connection
# still runs a few instructions of the library after it has announced STATE_DISCONNECTED.
target_link_options(csclient_shared PRIVATE LINKER:-z,nodelete)

if(BUILD_SHARED_LIBS)
    set(CSCLIENT_KIND shared)
    set(other_kind static)
else()
    set(CSCLIENT_KIND static)
    set(other_kind shared)
endif()
add_library(csclient::csclient ALIAS csclient_${CSCLIENT_KIND})
add_library(csclient ALIAS csclient_${CSCLIENT_KIND})
if(NOT CSCLIENT_INSTALL)
    set_target_properties(csclient_${other_kind} PROPERTIES EXCLUDE_FROM_ALL TRUE)
endif()
