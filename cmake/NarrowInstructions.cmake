# The programs again, limited to narrower vector instructions than the machine may have: <build>/plain, <build>/avx2. Only for
# comparing results: the limit is compiled in and no setting of the programs.
foreach(widest plain avx2)
    add_executable(voxlith_${widest} src/main.cpp src/simd/instruction_set.cpp)
    target_link_libraries(voxlith_${widest} PRIVATE voxlith_core voxlith_flags)
    add_executable(voxlith_tools_${widest} tools/cli/main.cpp src/simd/instruction_set.cpp)
    target_link_libraries(voxlith_tools_${widest} PRIVATE voxlith_tools_lib voxlith_flags)
    foreach(program voxlith_${widest} voxlith_tools_${widest})
        target_include_directories(${program} PRIVATE src)
        target_compile_definitions(${program} PRIVATE VOXLITH_WIDEST=${widest})
    endforeach()
    set_target_properties(voxlith_${widest} PROPERTIES
        OUTPUT_NAME voxlith RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/${widest})
    set_target_properties(voxlith_tools_${widest} PROPERTIES
        OUTPUT_NAME voxlith-forward RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/${widest}/tools)
    add_start_scripts(${CMAKE_BINARY_DIR}/${widest}/tools)
endforeach()
