# cmake -DOUTPUT=FILE.cpp -DFOLDER=faces "-DPICTURES=a.png b.jpg" -P embed.cmake: a source that holds each picture's bytes.
set(code "#include \"sandbox/server/faces.h\"\n\nnamespace brickfall::sandbox {\nnamespace {\n")
separate_arguments(PICTURES)
set(table "")
set(number 0)
foreach(file ${PICTURES})
  file(READ "${FOLDER}/${file}" hex HEX)
  string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1," bytes "${hex}")
  string(APPEND code "constexpr unsigned char picture_${number}[] = {${bytes}};\n")
  string(APPEND table "    {\"${file}\", picture_${number}},\n")
  math(EXPR number "${number} + 1")
endforeach()
file(WRITE "${OUTPUT}" "${code}constexpr Face faces[] = {\n${table}};\n\n}  // namespace\n\n"
                       "std::span<const Face> Faces() { return faces; }\n\n}  // namespace brickfall::sandbox\n")
