# For the builds of mutation.py: the headers of libraries take most of the time, so they are compiled
# only once.
cmake_language(DEFER CALL target_precompile_headers TavIDL PRIVATE <TavIDL/thrift.h> <map> <string>)
cmake_language(DEFER CALL target_precompile_headers TavIDLHost PRIVATE <TavIDL/thrift.h>)
cmake_language(DEFER CALL target_precompile_headers tavctl PRIVATE
    <TavIDL/thrift.h> <CLI/CLI.hpp> <nlohmann/json.hpp>)
