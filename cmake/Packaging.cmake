# The files of an installation, and its Debian packages (cpack -G DEB in the build folder): voxlith, and voxlith-mpi where
# MPI was found.
include(CMakePackageConfigHelpers)

install(TARGETS voxlith RUNTIME)
if(TARGET voxlith-run)
    install(TARGETS voxlith-run RUNTIME)
endif()
if(TARGET voxlith-run-mpi)
    install(TARGETS voxlith-run-mpi RUNTIME COMPONENT mpi)
    install(FILES LICENSE DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/voxlith-mpi RENAME copyright COMPONENT mpi)
endif()
if(TARGET voxlith-forward)
    install(TARGETS voxlith-forward RUNTIME DESTINATION ${CMAKE_INSTALL_LIBEXECDIR}/voxlith)
endif()

# The Python package, where Debian's own Python looks below /usr, and its programs.
set(packageHome lib/python3/dist-packages)
install(DIRECTORY python/voxlith DESTINATION ${packageHome} FILES_MATCHING PATTERN "*.py" PATTERN py.typed
        PATTERN "data/*" PATTERN "report/page/*" PATTERN __pycache__ EXCLUDE)
install_start_scripts(${CMAKE_INSTALL_BINDIR} ${packageHome})

# The spline routines, for programs that call find_package(voxlith_spline).
set(splineConfigFolder ${CMAKE_INSTALL_LIBDIR}/cmake/voxlith_spline)
install(TARGETS voxlith_spline EXPORT voxlith_spline_targets ARCHIVE)
install(FILES src/spline/voxlith_spline.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(EXPORT voxlith_spline_targets FILE voxlith_splineConfig.cmake NAMESPACE voxlith:: DESTINATION ${splineConfigFolder})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/voxlith_splineConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/voxlith_splineConfigVersion.cmake DESTINATION ${splineConfigFolder})

install(FILES man/voxlith.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
install(FILES man/voxlith-inp.5 man/voxlith-mtx.5 DESTINATION ${CMAKE_INSTALL_MANDIR}/man5)
install(FILES README.md CHANGELOG.md LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(FILES LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR} RENAME copyright)  # the name under which Debian looks for it
install(DIRECTORY docs DESTINATION ${CMAKE_INSTALL_DOCDIR})
if(TARGET pages)
    install(FILES ${manualPages} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
    if(TARGET voxlith-run-mpi)
        install(FILES ${pagesFolder}/man/voxlith-run.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 RENAME voxlith-run-mpi.1
                COMPONENT mpi)
    endif()
    # In bash one file serves all programs; the shell looks for it by the name of the program.
    foreach(program voxlith voxlith-run voxlith-run-mpi voxlith-tools voxlith-plot)
        install(FILES ${pagesFolder}/completion/voxlith.bash
                DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME ${program})
        install(FILES ${pagesFolder}/completion/${program}.fish DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d)
    endforeach()
    install(FILES ${pagesFolder}/completion/_voxlith DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions)
endif()

set(CPACK_GENERATOR DEB)
# voxlith-run-mpi is a package of its own: the first one shall not need an MPI.
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_COMPONENTS_ALL Unspecified)
set(CPACK_PACKAGE_NAME voxlith)
set(CPACK_DEBIAN_UNSPECIFIED_PACKAGE_NAME voxlith)
set(CPACK_PACKAGE_VENDOR "the VoxLith developers")
set(CPACK_PACKAGE_CONTACT "the VoxLith developers <voxlith@example.org>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "inversion of gravity and magnetic survey data")
set(CPACK_COMPONENT_UNSPECIFIED_DESCRIPTION
    "VoxLith inverts gravity and magnetic survey data for a three-dimensional\ncell model of density or susceptibility. With it come tools that make meshes,\nsensitivity files and synthetic data, and pictures of a run.")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION science)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_UNSPECIFIED_PACKAGE_DEPENDS "python3 (>= 3.11), python3-numpy (>= 1:1.24)")
set(CPACK_DEBIAN_UNSPECIFIED_PACKAGE_RECOMMENDS "python3-matplotlib, python3-pandas, python3-scipy, python3-vtk9")
set(CPACK_DEBIAN_UNSPECIFIED_PACKAGE_SUGGESTS "python3-gdal, python3-h5py, python3-pyproj, python3-rasterio, python3-xarray")
if(TARGET voxlith-run-mpi)
    list(APPEND CPACK_COMPONENTS_ALL mpi)
    set(launcherPackage openmpi-bin)
    if(MPI_C_LIBRARIES MATCHES mpich)
        set(launcherPackage mpich)
    endif()
    set(CPACK_DEBIAN_MPI_PACKAGE_NAME voxlith-mpi)
    set(CPACK_DEBIAN_MPI_PACKAGE_DEPENDS "voxlith (= ${PROJECT_VERSION}), ${launcherPackage}")
    set(CPACK_COMPONENT_MPI_DESCRIPTION
        "The program voxlith-run-mpi, started by mpirun, shares a run among processes.\nIts results are the same bytes as those of voxlith-run.")
endif()
include(CPack)
