# Makes a source file that holds text files as they are:
#
#     cmake -DSOURCE=<made file> -DFILES=<files, parted by |> -P cmake/embed_text.cmake
string(REPLACE "|" ";" files "${FILES}")
set(made "#include \"model/built_in_knowledge.h\"\n\nnamespace model {\n\nnamespace {\n\n")
set(names "")
foreach(file IN LISTS files)
    get_filename_component(name ${file} NAME_WE)
    file(READ ${file} text)
    string(REPLACE "\\" "\\\\" text "${text}")
    string(REPLACE "\"" "\\\"" text "${text}")
    string(REPLACE "\n" "\\n\"\n    \"" text "${text}")
    string(APPEND made "constexpr std::string_view ${name} =\n    \"${text}\";\n\n")
    list(APPEND names ${name})
endforeach()
list(JOIN names ", " joined)
string(APPEND made "constexpr std::string_view tables[] = {${joined}};\n\n} // namespace\n\n"
    "std::span<const std::string_view> built_in_knowledge()\n{\n    return tables;\n}\n\n"
    "} // namespace model\n")
file(WRITE ${SOURCE} "${made}")
