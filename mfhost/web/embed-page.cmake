# Writes a C++ source with the bytes of the page's files, plainly and as gzip has them.
# cmake -DDIRECTORY=DIR -DFILES=a;b -DWORK=DIR -DOUTPUT=FILE -DGZIP=PROGRAM -P embed-page.cmake

set(types
    html "text/html| charset=utf-8" css "text/css| charset=utf-8" js "text/javascript| charset=utf-8"
    mjs "text/javascript| charset=utf-8" json "application/json" svg "image/svg+xml" png "image/png"
    ico "image/x-icon" woff2 "font/woff2" txt "text/plain| charset=utf-8"
    webmanifest "application/manifest+json")

# append_bytes(FILE NAME): an array of that name.
function(append_bytes file name)
    file(READ ${file} hex HEX)
    string(REGEX REPLACE "(..)" "0x\\1," bytes "${hex}")
    # Lines of some length: compilers read them faster than one of a megabyte.
    string(REGEX REPLACE "(................................................................................)" "\\1\n"
        bytes "${bytes}")
    # No array is empty.
    set(source "${source}const unsigned char ${name}[] = {${bytes}0};\n" PARENT_SCOPE)
endfunction()

set(source "// Written by embed-page.cmake.\n#include \"PageFiles.h\"\n\nnamespace {\n")
set(rows "")
set(number 0)
foreach(name IN LISTS FILES)
    set(file ${DIRECTORY}/${name})
    get_filename_component(ending ${name} LAST_EXT)
    string(REGEX REPLACE "^\\." "" ending "${ending}")
    list(FIND types "${ending}" place)
    if(place EQUAL -1)
        message(FATAL_ERROR "${file}: embed-page.cmake knows no media type for \".${ending}\"")
    endif()
    math(EXPR place "${place} + 1")
    list(GET types ${place} type)
    # A semicolon would be the end of an element.
    string(REPLACE "|" ";" type "${type}")

    set(zipped ${WORK}/${number}.gz)
    # Without name and time, so that the same file is always the same bytes.
    execute_process(COMMAND ${GZIP} -9 -n -c ${file} OUTPUT_FILE ${zipped} RESULT_VARIABLE failed)
    if(failed)
        message(FATAL_ERROR "${GZIP} cannot compress ${file}")
    endif()
    file(SIZE ${file} size)
    file(SIZE ${zipped} zipped_size)
    if(zipped_size GREATER_EQUAL size)
        set(zipped_size 0)
    endif()
    append_bytes(${file} s_plain${number})
    append_bytes(${zipped} s_zipped${number})
    file(SHA256 ${file} digest)
    string(SUBSTRING ${digest} 0 32 digest)
    string(APPEND rows
        "        {\"/${name}\", \"${type}\", \"W/\\\"${digest}\\\"\", text(s_plain${number}, ${size}),\n"
        "         text(s_zipped${number}, ${zipped_size})},\n")
    math(EXPR number "${number} + 1")
endforeach()
string(APPEND source
    "\nstd::string_view text(const unsigned char* pBytes, std::size_t size) {\n"
    "    return {reinterpret_cast<const char*>(pBytes), size};\n}\n\n}  // namespace\n\n"
    "const std::vector<PageFile>& pageFiles() {\n    static const std::vector<PageFile> s_files{\n${rows}    };\n"
    "    return s_files;\n}\n")
file(WRITE ${OUTPUT} "${source}")
