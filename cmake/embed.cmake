# cmake -DOUTPUT=FILE.cpp -DHEADER=some/header.h "-DFILES=Name:path,Other:path" -P embed.cmake: a source with a function
# of each name that gives the bytes of that file.
set(code "#include \"${HEADER}\"\n\nnamespace brickfall {\n")
string(REPLACE "," ";" pairs "${FILES}")
foreach(pair ${pairs})
  string(REPLACE ":" ";" pair "${pair}")
  list(GET pair 0 name)
  list(GET pair 1 file)
  file(READ "${file}" hex HEX)
  string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1," bytes "${hex}")
  string(APPEND code "std::string_view ${name}() {\n    static constexpr unsigned char bytes[] = {${bytes}};\n"
                     "    return {reinterpret_cast<const char*>(bytes), sizeof bytes};\n}\n")
endforeach()
file(WRITE "${OUTPUT}" "${code}}  // namespace brickfall\n")
