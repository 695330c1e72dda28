# SPDX-FileCopyrightText: 2026 Kavro developers
# SPDX-License-Identifier: MIT
# Script mode: fails when a layer can include a header of a layer above it or a
# private header of a layer it does not use. Each case compiles a one-line
# source with exactly one layer's include directories and definitions; every
# header that must stay hidden is also compiled once where it must be visible,
# so the check cannot pass merely because nothing compiles.
#
# Expects CXX_COMPILER, CXX_FLAGS, WORK_DIR and, for each layer named below,
# <layer>_INCLUDES and <layer>_DEFINES (ui's only where Kavro::Widgets is built).

file(REMOVE_RECURSE "${WORK_DIR}")
file(MAKE_DIRECTORY "${WORK_DIR}")
set(ENV{LC_ALL} C)
set(failures "")
set(case 0)

# check(<include> <layer> VISIBLE|HIDDEN): <include> is the text after
# #include, e.g. <kavro/kavroclient.h>.
function(check include layer expect)
    math(EXPR n "${case} + 1")
    set(case ${n} PARENT_SCOPE)
    set(source "${WORK_DIR}/case${n}.cpp")
    file(WRITE "${source}" "#include ${include}\n")
    set(args "")
    foreach(dir IN LISTS ${layer}_INCLUDES)
        list(APPEND args "-I${dir}")
    endforeach()
    foreach(definition IN LISTS ${layer}_DEFINES)
        list(APPEND args "-D${definition}")
    endforeach()
    execute_process(COMMAND "${CXX_COMPILER}" ${CXX_FLAGS} ${args} -fsyntax-only "${source}"
        RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
    string(REGEX REPLACE "^[<\"](.*)[>\"]$" "\\1" header "${include}")
    if(expect STREQUAL "VISIBLE" AND NOT result EQUAL 0)
        string(APPEND failures "${include} does not compile in the ${layer} layer:\n${output}\n")
    elseif(expect STREQUAL "HIDDEN")
        if(result EQUAL 0)
            string(APPEND failures "${include} compiles in the ${layer} layer, which must not see it\n")
        else()
            # The error must be the include itself not being found, not
            # something further down.
            string(REPLACE "." "\\." pattern "case${n}.cpp:1:[0-9]+: fatal error: '?${header}'?[: ]")
            if(NOT output MATCHES "${pattern}")
                string(APPEND failures "${include} fails in the ${layer} layer for another reason than not being found:\n${output}\n")
            endif()
        endif()
    endif()
    set(failures "${failures}" PARENT_SCOPE)
endfunction()

# A client-layer public header is out of the model layer's reach.
check(<kavro/kavroclient.h> model HIDDEN)
check(<kavro/kavroclient.h> client VISIBLE)
# Transport knows only platform, not the model above it.
check(<kavro/filequery.h> transport HIDDEN)
check(<kavro/filequery.h> model VISIBLE)
# A transport private header is out of the model layer's reach.
check("\"commandsendersocket_p.h\"" model HIDDEN)
check("\"commandsendersocket_p.h\"" transport VISIBLE)
# The ui layer sees the client's public headers and the platform's trace, not
# the client's private headers nor the protocol and transport under it.
if(ui_INCLUDES)
    check(<kavro/kavroclient.h> ui VISIBLE)
    check("\"trace_p.h\"" ui VISIBLE)
    check("\"kavroclient_p.h\"" ui HIDDEN)
    check("\"kavroclient_p.h\"" client VISIBLE)
    check("\"soapmessage_p.h\"" ui HIDDEN)
    check("\"soapmessage_p.h\"" client VISIBLE)
    check("\"commandsendersocket_p.h\"" ui HIDDEN)
endif()

if(failures)
    message(FATAL_ERROR "Layering broken:\n${failures}")
endif()
message(STATUS "Layering holds: ${case} include cases checked")
