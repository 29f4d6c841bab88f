# cmake -DOUTPUT=FILE.cpp -DFOLDER=assets -P embed.cmake: a source that holds each picture's bytes.
set(code "#include \"assets/assets.h\"\n\nnamespace brickfall {\n")
foreach(pair "LogoFile1024:logo.png" "IconFile256:icon-256.png" "IconFile48:icon-48.png" "IconFile32:icon-32.png"
             "IconFile16:icon-16.png")
  string(REPLACE ":" ";" pair "${pair}")
  list(GET pair 0 name)
  list(GET pair 1 file)
  file(READ "${FOLDER}/${file}" hex HEX)
  string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1," bytes "${hex}")
  string(APPEND code "std::string_view ${name}() {\n    static constexpr unsigned char bytes[] = {${bytes}};\n"
                     "    return {reinterpret_cast<const char*>(bytes), sizeof bytes};\n}\n")
endforeach()
file(WRITE "${OUTPUT}" "${code}}  // namespace brickfall\n")
