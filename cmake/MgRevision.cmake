# SPDX-License-Identifier: MIT
# Writes HEADER with the release VERSION and the source revision, 40 hexadecimal digits; zeros where the sources are not
# a git checkout. Touches the header only when one of them changed.
execute_process(COMMAND git -C ${SOURCE_DIR} rev-parse --verify HEAD
    OUTPUT_VARIABLE revision OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
if(NOT revision MATCHES "^[0-9a-f]+$")
    string(REPEAT "0" 40 revision)
endif()
file(CONFIGURE OUTPUT ${HEADER} CONTENT
    "#pragma once\n#define MG_VERSION \"${VERSION}\"\n#define MG_SOURCE_REVISION \"${revision}\"\n")
