# libFuzzer targets of orv-cli's inputs: the area file reader and the strict
# frame stream decoder. As for fuzz_receive, the sources are compiled into
# each fuzzer so that they carry its coverage instrumentation. Each runs about
# 10 s as a test, from its seed corpus (new inputs go to a corpus in the build
# directory, never into the source tree).
function(orv_add_fuzz_run name dict)
    set(work "${CMAKE_CURRENT_BINARY_DIR}/${name}-work")
    file(MAKE_DIRECTORY "${work}/corpus")
    add_test(NAME ${name}_run
        COMMAND ${name} -max_total_time=10 -seed=1 -rss_limit_mb=2048 -detect_leaks=0
                -dict=${CMAKE_CURRENT_SOURCE_DIR}/${dict} -print_final_stats=1
                "${work}/corpus" "${CMAKE_CURRENT_SOURCE_DIR}/corpus/${name}"
        WORKING_DIRECTORY "${work}")
    set_tests_properties(${name}_run PROPERTIES
        LABELS fuzz
        TIMEOUT 120
        ENVIRONMENT "ASAN_OPTIONS=detect_leaks=0;QT_QPA_PLATFORM=offscreen")
endfunction()

add_executable(fuzz_areafile
    fuzz_areafile.cpp
    ${CMAKE_SOURCE_DIR}/cli/areafile.cpp
    ${CMAKE_SOURCE_DIR}/cli/wirearea.cpp
    ${CMAKE_SOURCE_DIR}/radar/frameformat.cpp)
target_compile_options(fuzz_areafile PRIVATE -fsanitize=fuzzer)
target_link_options(fuzz_areafile PRIVATE -fsanitize=fuzzer)
target_link_libraries(fuzz_areafile PRIVATE Qt5::Core)
orv_add_fuzz_run(fuzz_areafile areafile.dict)

add_executable(fuzz_framedecoder
    fuzz_framedecoder.cpp
    ${CMAKE_SOURCE_DIR}/radar/framedecoder.cpp
    ${CMAKE_SOURCE_DIR}/radar/frameformat.cpp)
target_compile_options(fuzz_framedecoder PRIVATE -fsanitize=fuzzer)
target_link_options(fuzz_framedecoder PRIVATE -fsanitize=fuzzer)
target_link_libraries(fuzz_framedecoder PRIVATE Qt5::Core)
orv_add_fuzz_run(fuzz_framedecoder framedecoder.dict)
