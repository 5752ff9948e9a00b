# fiva_add_fuzzer(NAME SOURCES a.cpp LIBS lib1 lib2 [COVERS target1 target2])
# One libFuzzer program, fuzz_NAME, under AddressSanitizer and UndefinedBehaviorSanitizer; build
# with clang. The libraries named in COVERS are instrumented too, so that coverage reaches their
# code. fuzz/run-all.sh runs every fuzz_* program from its corpus in fuzz/corpus/NAME.
set(FIVA_FUZZ_SANITIZERS -fsanitize=fuzzer,address,undefined)

function(fiva_add_fuzzer name)
    cmake_parse_arguments(ARG "" "" "SOURCES;LIBS;COVERS" ${ARGN})
    foreach(covered IN LISTS ARG_COVERS)
        target_compile_options(${covered} PRIVATE -fsanitize=fuzzer-no-link,address,undefined -fno-omit-frame-pointer)
    endforeach()
    add_executable(fuzz_${name} ${ARG_SOURCES})
    target_link_libraries(fuzz_${name} PRIVATE fiva_options ${ARG_LIBS})
    target_compile_options(fuzz_${name} PRIVATE ${FIVA_FUZZ_SANITIZERS} -fno-omit-frame-pointer)
    target_link_options(fuzz_${name} PRIVATE ${FIVA_FUZZ_SANITIZERS})
endfunction()
