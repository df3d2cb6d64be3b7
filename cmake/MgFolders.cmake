# SPDX-License-Identifier: MIT
# Components (openpv, camsim, host) consist of folders. A folder may use only the folders that it names.
#
#   mg_folder(COMPONENT FOLDER [USES FOLDER...] [LIBRARIES TARGET...] [SYSTEM_INCLUDES DIR...] [EXCLUDE FILE...])
#
# Compiles the sources of FOLDER as the object library COMPONENT_FOLDER. EXCLUDE names sources that another target compiles.
# Headers are included as "FOLDER/name.hpp". Only folders that name FOLDER, directly or through others, find them: each folder
# stands alone in a directory of the build tree (a symbolic link), and only that directory is on the include path. CMake
# reports a cycle between folders as an error. `scripts/check-layers` checks that a folder names all the folders that it
# includes itself.
#
#   mg_component(NAME COMPONENT FOLDER...)
#
# Makes the static library NAME of the folders.
function(mg_folder component folder)
    cmake_parse_arguments(PARSE_ARGV 2 arg "" "" "USES;LIBRARIES;SYSTEM_INCLUDES;EXCLUDE")
    set(target ${component}_${folder})
    set(view ${PROJECT_BINARY_DIR}/include/${component}/${folder})
    file(MAKE_DIRECTORY ${view})
    file(CREATE_LINK ${CMAKE_CURRENT_SOURCE_DIR}/${folder} ${view}/${folder} SYMBOLIC)
    file(GLOB sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/${folder}/*.cpp)
    list(TRANSFORM arg_EXCLUDE PREPEND ${CMAKE_CURRENT_SOURCE_DIR}/${folder}/)
    list(REMOVE_ITEM sources ${arg_EXCLUDE} "")
    add_library(${target} OBJECT ${sources})
    target_include_directories(${target} PUBLIC ${view})
    if(arg_SYSTEM_INCLUDES)
        target_include_directories(${target} SYSTEM PUBLIC ${arg_SYSTEM_INCLUDES})
    endif()
    list(TRANSFORM arg_USES PREPEND ${component}_)
    target_link_libraries(${target} PUBLIC ${arg_USES} ${arg_LIBRARIES} PRIVATE mg_compile)
    if(MG_FUZZ)
        target_compile_options(${target} PRIVATE -fsanitize=fuzzer-no-link)
    endif()
    mg_precompiled(${target})
endfunction()

function(mg_component name component)
    add_library(${name} STATIC)
    list(TRANSFORM ARGN PREPEND ${component}_ OUTPUT_VARIABLE folders)
    target_link_libraries(${name} PUBLIC ${folders})
    foreach(folder ${folders})
        target_sources(${name} PRIVATE $<TARGET_OBJECTS:${folder}>)
    endforeach()
endfunction()
