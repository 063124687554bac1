# Start scripts of the Python programs. In the build folder they use the package of the source tree; installed, the one
# beside them.
set(pythonPrograms voxlith-tools voxlith-plot)
set(startScriptTemplate ${PROJECT_SOURCE_DIR}/cmake/start_script.py.in)

# Writes the scripts into a folder of the build.
function(add_start_scripts folder)
    set(packageFolder ${PROJECT_SOURCE_DIR}/python)
    foreach(program ${pythonPrograms})
        string(REPLACE "voxlith-" "" module ${program})
        configure_file(${startScriptTemplate} ${folder}/${program} @ONLY
                       FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
    endforeach()
endfunction()

# Installs the scripts; both folders stand below the prefix.
function(install_start_scripts programFolder packageHome)
    file(RELATIVE_PATH packageFolder /${programFolder} /${packageHome})
    foreach(program ${pythonPrograms})
        string(REPLACE "voxlith-" "" module ${program})
        configure_file(${startScriptTemplate} ${PROJECT_BINARY_DIR}/installed/${program} @ONLY)
        install(PROGRAMS ${PROJECT_BINARY_DIR}/installed/${program} DESTINATION ${programFolder})
    endforeach()
endfunction()
