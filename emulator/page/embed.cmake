# Writes page_files.cpp: the page's files as arrays of bytes, for the program to serve.
#
#   cmake -DOUTPUT=... -DDIRECTORY=... -P embed.cmake
set(types html text/html css text/css js text/javascript svg image/svg+xml)
set(paths index.html / page.css /page.css page.js /page.js devices.js /devices.js policy.js /policy.js
  diff.js /diff.js elements.js /elements.js faults.js /faults.js icon.svg /favicon.ico)
set(arrays "")
set(entries "")
set(number 0)
while(paths)
  list(POP_FRONT paths file path)
  string(REGEX MATCH "[a-z]+$" ending ${file})
  list(FIND types ${ending} place)
  math(EXPR place "${place} + 1")
  list(GET types ${place} type)
  file(READ ${DIRECTORY}/${file} bytes HEX)
  string(REGEX REPLACE "(..)" "'\\\\x\\1'," bytes ${bytes})
  string(APPEND arrays "constexpr char file${number}[] = {${bytes}};\n")
  string(APPEND entries "    {\"${path}\", \"${type};charset=utf-8\", {file${number}, sizeof file${number}}},\n")
  math(EXPR number "${number} + 1")
endwhile()
file(WRITE ${OUTPUT} "#include \"emulator/page_files.h\"
namespace orvane::emulator {
namespace {
${arrays}
constexpr PageFile files[] = {
${entries}};
}  // namespace

const PageFile* findPageFile(std::string_view path) {
    for (const PageFile& file : files) {
        if (file.path == path) {
            return &file;
        }
    }
    return nullptr;
}

}  // namespace orvane::emulator
")
