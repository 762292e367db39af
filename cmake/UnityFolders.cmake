# unity_folders(TARGET): under CMAKE_UNITY_BUILD the target's sources of one folder are compiled as one.
# A folder's sources then share their unnamed namespace, and need names that go together.
function(unity_folders target)
  get_target_property(sources ${target} SOURCES)
  foreach(source IN LISTS sources)
    cmake_path(GET source PARENT_PATH folder)
    string(MAKE_C_IDENTIFIER "${folder}" group)
    set_source_files_properties(${source} PROPERTIES UNITY_GROUP "${group}")
  endforeach()
  set_target_properties(${target} PROPERTIES UNITY_BUILD_MODE GROUP)
endfunction()
