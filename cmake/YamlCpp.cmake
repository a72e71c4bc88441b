# Finds yaml-cpp, and makes the target csclient_yaml of it. The static library is preferred, so that the packages of all machines
# depend on nothing more.
find_path(CSCLIENT_YAML_INCLUDE_DIR yaml-cpp/yaml.h DOC "Directory that contains yaml-cpp/yaml.h")
find_library(CSCLIENT_YAML_LIBRARY NAMES libyaml-cpp.a yaml-cpp DOC "The library of yaml-cpp")
if(NOT CSCLIENT_YAML_INCLUDE_DIR OR NOT CSCLIENT_YAML_LIBRARY)
    message(FATAL_ERROR
        "cshost needs yaml-cpp, which was not found. On Debian: apt-get install libyaml-cpp-dev. For another machine: "
        "scripts/foreign-packages. Or build without the host's tools: -DCSCLIENT_BUILD_HOST=OFF.")
endif()
mark_as_advanced(CSCLIENT_YAML_INCLUDE_DIR CSCLIENT_YAML_LIBRARY)
add_library(csclient_yaml INTERFACE)
target_include_directories(csclient_yaml SYSTEM INTERFACE ${CSCLIENT_YAML_INCLUDE_DIR})
target_link_libraries(csclient_yaml INTERFACE ${CSCLIENT_YAML_LIBRARY})
