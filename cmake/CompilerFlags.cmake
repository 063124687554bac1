# Flags that every target of the project shares. Contraction is off so that a sum gives the same bytes on machines with and
# without fused multiply-add, and with either compiler.
add_library(voxlith_flags INTERFACE)
target_compile_features(voxlith_flags INTERFACE cxx_std_20)
target_compile_options(voxlith_flags INTERFACE
    -ffp-contract=off -Wall -Wextra -Wpedantic -Wshadow -Werror
    $<$<COMPILE_LANGUAGE:CXX>:-Wconversion -Wsign-conversion -Wnon-virtual-dtor>)
if(VOXLITH_SANITIZE)
    target_compile_options(voxlith_flags INTERFACE
        -fsanitize=address,undefined -fno-sanitize-recover=undefined -fno-omit-frame-pointer)
    target_link_options(voxlith_flags INTERFACE -fsanitize=address,undefined)
endif()
