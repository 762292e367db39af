# embed_files(TARGET name FUNCTION qualified::name BASE dir FILES file...)
#
# Links the files' bytes into TARGET and defines
#   std::span<const EmbeddedFile> FUNCTION();
# declared in cmake/EmbeddedFile.h's terms; paths are relative to BASE.
function(embed_files)
  cmake_parse_arguments(PARSE_ARGV 0 arg "" "TARGET;NAMESPACE;FUNCTION;BASE" "FILES")
  set(stem ${CMAKE_CURRENT_BINARY_DIR}/${arg_TARGET}_${arg_FUNCTION})
  string(MAKE_C_IDENTIFIER "${arg_TARGET}_${arg_FUNCTION}" symbol)
  set(assembly ".section .rodata\n")
  set(externs "")
  set(rows "")
  set(index 0)
  foreach(file IN LISTS arg_FILES)
    cmake_path(RELATIVE_PATH file BASE_DIRECTORY ${arg_BASE} OUTPUT_VARIABLE name)
    set(id "${symbol}_${index}")
    string(APPEND assembly ".global ${id}\n.hidden ${id}\n.global ${id}_end\n.hidden ${id}_end\n"
                           ".balign 16\n${id}:\n.incbin \"${file}\"\n${id}_end:\n.byte 0\n")
    string(APPEND externs "extern \"C\" const char ${id}[];\nextern \"C\" const char ${id}_end[];\n")
    string(APPEND rows "      {\"${name}\", {${id}, static_cast<std::size_t>(${id}_end - ${id})}},\n")
    math(EXPR index "${index} + 1")
  endforeach()
  string(APPEND assembly ".section .note.GNU-stack,\"\",@progbits\n")
  file(CONFIGURE OUTPUT ${stem}.S CONTENT "${assembly}" @ONLY)
  file(CONFIGURE OUTPUT ${stem}.cpp CONTENT
"#include \"cmake/EmbeddedFile.h\"

${externs}
namespace ${arg_NAMESPACE} {
std::span<const paperloom::EmbeddedFile> ${arg_FUNCTION}() {
  static const paperloom::EmbeddedFile files[] = {
${rows}  };
  return files;
}
}  // namespace ${arg_NAMESPACE}
" @ONLY)
  set_source_files_properties(${stem}.S PROPERTIES OBJECT_DEPENDS "${arg_FILES}")
  target_sources(${arg_TARGET} PRIVATE ${stem}.S ${stem}.cpp)
  target_include_directories(${arg_TARGET} PRIVATE ${PROJECT_SOURCE_DIR})
endfunction()
