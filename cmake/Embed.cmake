# The files of the page become a table in the program (agent/web/page_files.h): it is served wherever the program lies.
function(embed_page_files target folder)
    set(arrays "")
    set(rows "")
    set(number 0)
    foreach(row ${ARGN})
        string(REPLACE "|" ";" row "${row}")
        list(GET row 0 path)
        list(GET row 1 name)
        list(GET row 2 type)
        set(file ${CMAKE_SOURCE_DIR}/${folder}/${name})
        set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${file})
        file(READ ${file} hex HEX)
        string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1," bytes "${hex}")
        string(APPEND arrays "const unsigned char kFile${number}[] = {${bytes}};\n")
        string(APPEND rows "    {\"${path}\", \"${type}\", kFile${number}},\n")
        math(EXPR number "${number} + 1")
    endforeach()
    set(source ${CMAKE_BINARY_DIR}/generated/${folder}_files.cc)
    file(CONFIGURE OUTPUT ${source} @ONLY CONTENT
"// Made by cmake/Embed.cmake.
#include \"agent/web/page_files.h\"

namespace web {
namespace {
@arrays@const PageFile kFiles[] = {
@rows@};
} // namespace

std::span<const PageFile> AllPageFiles()
{
    return kFiles;
}
} // namespace web
")
    target_sources(${target} PRIVATE ${source})
    set_source_files_properties(${source} PROPERTIES SKIP_UNITY_BUILD_INCLUSION ON)
endfunction()
