# Writes PageFiles() with the bytes of files in it: cmake -DOUTPUT=... -DFILES=a;b -P EmbedFiles.cmake
set(types html text/html css text/css js text/javascript svg image/svg+xml)
set(arrays "")
set(rows "")
set(number 0)
foreach(file ${FILES})
    get_filename_component(name ${file} NAME)
    get_filename_component(extension ${file} LAST_EXT)
    string(SUBSTRING ${extension} 1 -1 extension)
    list(FIND types ${extension} at)
    math(EXPR at "${at} + 1")
    list(GET types ${at} type)
    string(REPLACE "index.html" "" path ${name})
    file(READ ${file} bytes HEX)
    string(REGEX REPLACE "(..)" "0x\\1," bytes "${bytes}")
    string(APPEND arrays "constexpr unsigned char c_aucFile${number}[] = {${bytes}};\n")
    string(APPEND rows "    {\"/${path}\", \"${type}; charset=utf-8\", Text(c_aucFile${number})},\n")
    math(EXPR number "${number} + 1")
endforeach()
file(WRITE ${OUTPUT} "#include \"Web/Page.h\"

namespace
{

template <std::size_t unSize>
std::string Text(const unsigned char (&aucBytes)[unSize])
{
    return std::string(aucBytes, aucBytes + unSize);
}

${arrays}
} // namespace

std::vector<stWebFile> PageFiles()
{
    return {
${rows}    };
}
")
