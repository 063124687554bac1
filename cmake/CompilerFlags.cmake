# Flags that every target of the project shares. Contraction is off so that a sum gives the same bytes on machines with and
# without fused multiply-add, and with either compiler.
add_library(voxlith_flags INTERFACE)
target_compile_features(voxlith_flags INTERFACE cxx_std_20)
target_compile_options(voxlith_flags INTERFACE
    -ffp-contract=off -Wall -Wextra -Wpedantic -Wshadow -Werror
    $<$<COMPILE_LANGUAGE:CXX>:-Wconversion -Wsign-conversion -Wnon-virtual-dtor>)
if(VOXLITH_SANITIZE)
    # Test code itself has the address sanitizer alone: the other one doubles the time of its compilation.
    set(libraryCode $<NOT:$<BOOL:$<TARGET_PROPERTY:TEST_CODE>>>)
    target_compile_options(voxlith_flags INTERFACE
        -fsanitize=address -fno-omit-frame-pointer
        $<${libraryCode}:-fsanitize=undefined> $<${libraryCode}:-fno-sanitize-recover=undefined>)
    target_link_options(voxlith_flags INTERFACE -fsanitize=address,undefined)
endif()

# Command lines are parsed once: their sources are not optimised, which would take most of the time that they are compiled.
function(compile_without_optimisation)
    set_source_files_properties(${ARGN} PROPERTIES COMPILE_OPTIONS -O0)
endfunction()
