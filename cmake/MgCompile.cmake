# How everything in this project is compiled; targets take it with target_link_libraries(... mg_compile).
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
    -fstack-protector-strong -fstack-clash-protection -fcf-protection=full
    # Error log lines carry the source path; it begins at src/, wherever the project is built.
    -fmacro-prefix-map=${PROJECT_SOURCE_DIR}/=)
# Programs have all that they need from others when they begin. The plug-in cannot: a host's functions are found later.
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
