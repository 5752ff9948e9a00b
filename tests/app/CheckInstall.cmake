# Installs the build into a fresh prefix and checks that everything the desktop and the program
# look for is where they look: cmake -DBUILD_DIR=... -DPREFIX=... -P CheckInstall.cmake
file(REMOVE_RECURSE ${PREFIX})
execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${PREFIX} RESULT_VARIABLE result
    OUTPUT_QUIET)
if(NOT result EQUAL 0)
    message(FATAL_ERROR "cmake --install failed: ${result}")
endif()
foreach(file IN ITEMS bin/fiva share/fiva/Aide-Fiva.pdf share/fiva/licence.pdf share/fiva/licence.html
        share/applications/fiva.desktop share/metainfo/fiva.metainfo.xml
        share/icons/hicolor/scalable/apps/fiva.svg)
    if(NOT EXISTS ${PREFIX}/${file})
        message(FATAL_ERROR "not installed: ${file}")
    endif()
endforeach()
file(READ ${PREFIX}/share/applications/fiva.desktop desktop)
foreach(line IN ITEMS "Exec=fiva" "Icon=fiva" "Type=Application")
    string(FIND "${desktop}" "${line}" at)
    if(at EQUAL -1)
        message(FATAL_ERROR "fiva.desktop lacks ${line}")
    endif()
endforeach()
file(REMOVE_RECURSE ${PREFIX})
