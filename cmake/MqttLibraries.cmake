# Finds libmosquitto and cpp-httplib, and makes the targets csclient_mosquitto and csclient_httplib of them. Sets
# CSCLIENT_MQTT_MISSING to the Debian packages that are missing, or to nothing.
#
# Debian has cpp-httplib as a library, compiled with TLS and compression. Its classes then have members for TLS, so programs must be
# compiled with the same definitions, which need the headers of OpenSSL, zlib and Brotli. Elsewhere it is a header alone.
find_path(CSCLIENT_MOSQUITTO_INCLUDE_DIR mosquitto.h DOC "Directory that contains mosquitto.h")
find_library(CSCLIENT_MOSQUITTO_LIBRARY NAMES mosquitto DOC "The library libmosquitto")
find_path(CSCLIENT_HTTPLIB_INCLUDE_DIR httplib.h DOC "Directory that contains httplib.h")
find_library(CSCLIENT_HTTPLIB_LIBRARY NAMES cpp-httplib DOC "The library of cpp-httplib, where it is one")
find_path(CSCLIENT_OPENSSL_INCLUDE_DIR openssl/ssl.h DOC "Directory that contains openssl/ssl.h")
# In Debian, the headers that differ from machine to machine are in another directory.
find_path(CSCLIENT_OPENSSL_CONFIGURATION_DIR openssl/opensslconf.h DOC "Directory that contains openssl/opensslconf.h")
mark_as_advanced(CSCLIENT_OPENSSL_CONFIGURATION_DIR CSCLIENT_MOSQUITTO_INCLUDE_DIR CSCLIENT_MOSQUITTO_LIBRARY CSCLIENT_HTTPLIB_INCLUDE_DIR
    CSCLIENT_HTTPLIB_LIBRARY CSCLIENT_OPENSSL_INCLUDE_DIR)

set(CSCLIENT_MQTT_MISSING "")
if(NOT CSCLIENT_MOSQUITTO_INCLUDE_DIR OR NOT CSCLIENT_MOSQUITTO_LIBRARY)
    string(APPEND CSCLIENT_MQTT_MISSING " libmosquitto-dev")
endif()
if(NOT CSCLIENT_HTTPLIB_INCLUDE_DIR OR (CSCLIENT_HTTPLIB_LIBRARY AND NOT CSCLIENT_OPENSSL_CONFIGURATION_DIR))
    string(APPEND CSCLIENT_MQTT_MISSING " libcpp-httplib-dev")
endif()
if(CSCLIENT_MQTT_MISSING OR TARGET csclient_httplib)
    return()
endif()

add_library(csclient_mosquitto INTERFACE)
target_include_directories(csclient_mosquitto SYSTEM INTERFACE ${CSCLIENT_MOSQUITTO_INCLUDE_DIR})
target_link_libraries(csclient_mosquitto INTERFACE ${CSCLIENT_MOSQUITTO_LIBRARY})

add_library(csclient_httplib INTERFACE)
target_include_directories(csclient_httplib SYSTEM INTERFACE ${CSCLIENT_HTTPLIB_INCLUDE_DIR})
if(CSCLIENT_HTTPLIB_LIBRARY)
    target_include_directories(csclient_httplib SYSTEM INTERFACE
        ${CSCLIENT_OPENSSL_INCLUDE_DIR} ${CSCLIENT_OPENSSL_CONFIGURATION_DIR})
    target_compile_definitions(csclient_httplib INTERFACE
        CPPHTTPLIB_OPENSSL_SUPPORT CPPHTTPLIB_ZLIB_SUPPORT CPPHTTPLIB_BROTLI_SUPPORT)
    target_link_libraries(csclient_httplib INTERFACE ${CSCLIENT_HTTPLIB_LIBRARY})
endif()
target_link_libraries(csclient_httplib INTERFACE Threads::Threads)

if(CMAKE_CROSSCOMPILING)
    # The linker looks there for the libraries that these need in turn.
    get_filename_component(folder ${CSCLIENT_MOSQUITTO_LIBRARY} DIRECTORY)
    string(REPLACE "/usr/lib/" "/lib/" root_folder ${folder})
    target_link_options(csclient_mosquitto INTERFACE -Wl,-rpath-link,${folder}:${root_folder})
    target_link_options(csclient_httplib INTERFACE -Wl,-rpath-link,${folder}:${root_folder})
endif()
