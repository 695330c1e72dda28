# SPDX-FileCopyrightText: 2026 Kavro developers
# SPDX-License-Identifier: MIT
# Writes every ```cpp block of INPUT (a Markdown page) into OUTPUT as the body
# of a function of its own, its #include lines gathered at the top, so that
# the page's samples are compiled. The samples may use `client` (a
# Kavro::KavroClient), `guid` and `fileId`.

file(READ "${INPUT}" page)
# Semicolons would split CMake's lists: they travel as a placeholder.
string(REPLACE ";" "@SEMICOLON@" page "${page}")
string(REGEX MATCHALL "```cpp\n[^`]*```" blocks "${page}")

set(includes "#include <QtCore>\n")
set(functions "")
set(count 0)
foreach(block IN LISTS blocks)
    string(REGEX REPLACE "^```cpp\n" "" block "${block}")
    string(REGEX REPLACE "```$" "" block "${block}")
    string(REGEX MATCHALL "#include [^\n]*\n" blockIncludes "${block}")
    foreach(line IN LISTS blockIncludes)
        string(APPEND includes "${line}")
    endforeach()
    string(REGEX REPLACE "#include [^\n]*\n" "" block "${block}")
    math(EXPR count "${count} + 1")
    string(APPEND functions
        "[[maybe_unused]] static void sample${count}([[maybe_unused]] Kavro::KavroClient &client,\n"
        "    [[maybe_unused]] const QString &guid, [[maybe_unused]] unsigned int fileId)\n{\n{\n${block}}\n}\n\n")
endforeach()
if(count EQUAL 0)
    message(FATAL_ERROR "no C++ samples in ${INPUT}")
endif()

set(source "// Generated from ${INPUT}: ${count} samples.\n${includes}\n${functions}int main()\n{\n    return 0@SEMICOLON@\n}\n")
string(REPLACE "@SEMICOLON@" [[;]] source "${source}")
file(WRITE "${OUTPUT}.tmp" "${source}")
file(COPY_FILE "${OUTPUT}.tmp" "${OUTPUT}" ONLY_IF_DIFFERENT)
