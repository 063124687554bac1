# Manual pages and completions from the help of the programs: <build>/pages. They need all programs.
set(pagesFolder ${PROJECT_BINARY_DIR}/pages)
file(GLOB pageSources CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/scripts/pages/*.py ${PROJECT_SOURCE_DIR}/man/*.in
     ${PROJECT_SOURCE_DIR}/python/voxlith/cli/*.py)
set(manualPages ${pagesFolder}/man/voxlith-run.1 ${pagesFolder}/man/voxlith-tools.1 ${pagesFolder}/man/voxlith-plot.1)
find_package(Python3 REQUIRED COMPONENTS Interpreter)
add_custom_command(
    OUTPUT ${manualPages} ${pagesFolder}/completion/voxlith.bash
    COMMAND ${Python3_EXECUTABLE} ${PROJECT_SOURCE_DIR}/scripts/pages/make_pages.py --build ${PROJECT_BINARY_DIR}
            --out ${pagesFolder}
    DEPENDS voxlith-run voxlith-forward ${pageSources}
    COMMENT "Manual pages and completions" VERBATIM)
add_custom_target(pages ALL DEPENDS ${manualPages} ${pagesFolder}/completion/voxlith.bash)
