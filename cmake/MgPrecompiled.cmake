# SPDX-License-Identifier: MIT
# Precompiled headers for all folders of components, in sanitized builds. Other builds do without, so that a missing #include
# is an error there.
#
#   mg_precompiled(TARGET)
if(MG_SANITIZE)
    find_package(nlohmann_json REQUIRED)
    file(CONFIGURE OUTPUT ${PROJECT_BINARY_DIR}/mg_precompiled.cpp CONTENT "")
    add_library(mg_precompiled OBJECT ${PROJECT_BINARY_DIR}/mg_precompiled.cpp)
    target_link_libraries(mg_precompiled PRIVATE mg_compile)
    if(MG_FUZZ)
        target_compile_options(mg_precompiled PRIVATE -fsanitize=fuzzer-no-link)  # as the folders
    endif()
    target_precompile_headers(mg_precompiled PRIVATE
        <algorithm> <array> <atomic> <chrono> <condition_variable> <cstdint> <cstring> <filesystem> <fstream> <functional> <map>
        <memory> <mutex> <optional> <ranges> <span> <sstream> <stdexcept> <string> <string_view> <thread> <unordered_map>
        <utility> <variant> <vector> <nlohmann/json.hpp>)
    # pkg-config files of GLib and GStreamer set it, and all users of a precompiled header must have the same macros.
    target_compile_options(mg_compile INTERFACE -pthread)
endif()

function(mg_precompiled target)
    if(MG_SANITIZE)
        target_precompile_headers(${target} REUSE_FROM mg_precompiled)
    endif()
endfunction()
