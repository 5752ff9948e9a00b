find_package(GTest REQUIRED)

# fiva_add_test(NAME SOURCES a.cpp b.cpp LIBS lib1 lib2 [GUI] [TIMEOUT seconds])
# One GoogleTest executable registered with CTest, run offscreen in the C.UTF-8 locale.
# Deleted attachment files go to the desktop trash under $XDG_DATA_HOME: tests keep theirs here,
# never in the real home folder.
set(FIVA_TEST_HOME ${CMAKE_BINARY_DIR}/test-home)
file(MAKE_DIRECTORY ${FIVA_TEST_HOME})

function(fiva_add_test name)
    cmake_parse_arguments(ARG "GUI" "TIMEOUT" "SOURCES;LIBS" ${ARGN})
    if(NOT ARG_TIMEOUT)
        set(ARG_TIMEOUT 600)
    endif()
    add_executable(${name} ${ARG_SOURCES})
    target_link_libraries(${name} PRIVATE fiva_options GTest::gtest GTest::gtest_main ${ARG_LIBS})
    add_test(NAME ${name} COMMAND ${name})
    set_tests_properties(${name} PROPERTIES
        TIMEOUT ${ARG_TIMEOUT}
        ENVIRONMENT "QT_QPA_PLATFORM=offscreen;LC_ALL=C.UTF-8;FIVA_TEST_DATA=${CMAKE_SOURCE_DIR}/tests/data;XDG_DATA_HOME=${FIVA_TEST_HOME}")
    if(TARGET fiva-cli)
        # Tests that drive the command-line tool find it here rather than on PATH.
        set_property(TEST ${name} APPEND PROPERTY ENVIRONMENT "FIVA_CLI=$<TARGET_FILE:fiva-cli>")
        add_dependencies(${name} fiva-cli)
    endif()
endfunction()
