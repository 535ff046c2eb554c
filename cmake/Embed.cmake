# The files of the page become a table in the program (agent/web/page_files.h): it is served wherever the program lies.
# Where index.html links style.css, the sheet itself is put.
function(embed_page_files target folder)
    set(style ${CMAKE_SOURCE_DIR}/${folder}/style.css)
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${style})
    file(READ ${style} sheet HEX)
    file(SHA256 ${style} digest)
    string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1," digest "${digest}")
    string(HEX "<link rel=\"stylesheet\" href=\"style.css\">" link)
    string(HEX "<style>" opening)
    string(HEX "</style>" closing)
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
        string(REPLACE "${link}" "${opening}${sheet}${closing}" hex "${hex}")
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
const unsigned char kStyleDigest[] = {@digest@};
} // namespace

std::span<const PageFile> AllPageFiles()
{
    return kFiles;
}

std::span<const unsigned char> PageStyleDigest()
{
    return kStyleDigest;
}
} // namespace web
")
    target_sources(${target} PRIVATE ${source})
    set_source_files_properties(${source} PROPERTIES SKIP_UNITY_BUILD_INCLUSION ON)
endfunction()
