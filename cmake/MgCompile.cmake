# SPDX-License-Identifier: MIT
# Compiler and linker options of all targets; a target takes them with target_link_libraries(... mg_compile).
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
include(CheckPIESupported)
check_pie_supported()
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)

add_library(mg_compile INTERFACE)
target_compile_options(mg_compile INTERFACE
    -Wall -Wextra -Wpedantic -Wconversion -Wsign-conversion -Wnon-virtual-dtor -Woverloaded-virtual
    -Wformat=2 -Wimplicit-fallthrough -Wnull-dereference
    $<$<BOOL:${MG_WERROR}>:-Werror>
    -fstack-protector-strong -fstack-clash-protection
    # Checks of indirect jumps in hardware, where the processor has them.
    $<IF:$<STREQUAL:${CMAKE_SYSTEM_PROCESSOR},aarch64>,-mbranch-protection=standard,-fcf-protection=full>
    # Error log lines contain the source path: it begins at src/, wherever the project is built.
    -fmacro-prefix-map=${PROJECT_SOURCE_DIR}/=)
# Programs bind all symbols at start. The plug-in must not: the host's functions are resolved at the first call.
target_link_options(mg_compile INTERFACE
    -Wl,-z,relro -Wl,-z,noexecstack
    $<$<STREQUAL:$<TARGET_PROPERTY:TYPE>,EXECUTABLE>:-Wl,-z,now>)
if(MG_SANITIZE)
    target_compile_options(mg_compile INTERFACE -fsanitize=${MG_SANITIZE} -fno-sanitize-recover=all
                           -fno-omit-frame-pointer)
    target_link_options(mg_compile INTERFACE -fsanitize=${MG_SANITIZE})
else()
    target_compile_definitions(mg_compile INTERFACE $<$<CONFIG:RelWithDebInfo>:_FORTIFY_SOURCE=2>)
endif()
