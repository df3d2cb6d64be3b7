# SPDX-License-Identifier: MIT
# find_package(mediagrabber) defines:
#
#   mediagrabber::host         mg_host_api.hpp and the options of a program that loads the plug-in
#   mediagrabber::frame_ring   mg_frame_ring.h, for programs that read the frame ring
#   mediagrabber_PLUGIN        path of libmgjai.so
get_filename_component(mediagrabber_PREFIX "${CMAKE_CURRENT_LIST_DIR}/../../.." ABSOLUTE)
set(mediagrabber_PLUGIN "${mediagrabber_PREFIX}/lib/mediagrabber/libmgjai.so")

if(NOT TARGET mediagrabber::host)
    add_library(mediagrabber::host INTERFACE IMPORTED)
    target_include_directories(mediagrabber::host INTERFACE "${mediagrabber_PREFIX}/include/mediagrabber")
    target_compile_features(mediagrabber::host INTERFACE cxx_std_20)
    # The plug-in resolves the host's functions in the program.
    target_link_options(mediagrabber::host INTERFACE -rdynamic)
    target_link_libraries(mediagrabber::host INTERFACE ${CMAKE_DL_LIBS})

    add_library(mediagrabber::frame_ring INTERFACE IMPORTED)
    target_include_directories(mediagrabber::frame_ring INTERFACE "${mediagrabber_PREFIX}/include/mediagrabber")
endif()
